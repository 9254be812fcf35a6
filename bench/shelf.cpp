// Shared tables: reading a row of the ingress table's size from 100,000 rows in random order, beside a plain copy of
// such a row in the same order; and what a changed row costs its writer. Which row comes next depends on the last
// byte of the one before (it is always 0), as a reader uses one row before it asks for another: without that, a
// processor has several short copies under way at once, and the comparison would be one of loop lengths.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <random>
#include <span>
#include <vector>

#include "platform/SharedMemory.h"
#include "runtime/ShelfBase.h"
#include "runtime/ShelfEditor.h"
#include "runtime/ShelfWords.h"

namespace {

constexpr std::size_t kRowSize = 452;
constexpr std::size_t kKeySize = 53;
constexpr std::uint32_t kRows = 100'000;

using RowArray = std::array<std::byte, kRowSize>;

RowArray rowOf(std::uint32_t number, std::uint64_t value) {
  RowArray row{};
  std::memcpy(row.data() + 14, &number, sizeof(number));
  for (std::size_t at = 60; at + sizeof(value) <= row.size(); at += sizeof(value)) {
    std::memcpy(row.data() + at, &value, sizeof(value));
  }
  return row;
}

std::vector<std::uint32_t> randomOrder() {
  std::vector<std::uint32_t> order(kRows);
  std::iota(order.begin(), order.end(), 0U);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  return order;
}

// The place in the order after `at`, once `row` is there.
std::size_t following(std::size_t at, std::span<const std::byte> row) {
  at += 1 + std::to_integer<std::size_t>(row[kRowSize - 1]);
  return at == kRows ? 0 : at;
}

// A table in a file of its own, full, with its writer and a reader.
class Table {
 public:
  Table() {
    Shelf::TableShape shape{kKeySize, kRowSize, kRows, 0, 16, "Ingress", "bench"};
    editor = std::make_unique<Shelf::TableEditor>(memory_, root_.file("bench"), shape, &Shelf::keyHash);
    for (std::uint32_t i = 0; i < kRows; ++i) editor->write(rowOf(i, 1));
    reader = std::make_unique<Shelf::ShelfBaseReader>(memory_.openForReading(root_.file("bench")), root_, "bench",
                                                      kKeySize, kRowSize, &Shelf::keyHash);
  }
  ~Table() {
    reader.reset();
    editor.reset();
    std::filesystem::remove_all(root_.path);
  }

  std::unique_ptr<Shelf::TableEditor> editor;
  std::unique_ptr<Shelf::ShelfBaseReader> reader;

 private:
  static std::string folder() {
    std::string name = (std::filesystem::temp_directory_path() / "zeb-bench-XXXXXX").string();
    return mkdtemp(name.data());
  }

  Platform::SharedMemory memory_;
  Shelf::RootPath root_{folder()};
};

void memcpyOfARow(benchmark::State& state) {
  std::vector<RowArray> rows;
  for (std::uint32_t i = 0; i < kRows; ++i) rows.push_back(rowOf(i, 1));
  const auto order = randomOrder();
  RowArray copy;
  std::size_t at = 0;
  for (auto _ : state) {
    std::memcpy(copy.data(), rows[order[at]].data(), copy.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
    at = following(at, copy);
  }
}
BENCHMARK(memcpyOfARow);

// The same copy out of a file that is mapped, whose pages are small ones.
void memcpyOfAMappedRow(benchmark::State& state) {
  Table table;
  const Shelf::TableView& view = table.editor->view();
  const auto* const words = view.mapping().words().data();
  const auto order = randomOrder();
  RowArray copy;
  std::size_t at = 0;
  for (auto _ : state) {
    std::memcpy(copy.data(), words + view.layout().slotAt(order[at]) + Shelf::Layout::kRow, copy.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
    at = following(at, copy);
  }
}
BENCHMARK(memcpyOfAMappedRow);

// A consistent copy of a slot whose number is known: what a walk and a poll do.
void readOfASlot(benchmark::State& state) {
  Table table;
  const auto order = randomOrder();
  Shelf::TableView& view = table.editor->view();
  std::size_t at = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(view.read(order[at]));
    at = following(at, view.row());
  }
}
BENCHMARK(readOfASlot);

void lookupOfARow(benchmark::State& state) {
  Table table;
  std::vector<std::array<std::byte, kKeySize>> keys(kRows);
  const auto order = randomOrder();
  for (std::uint32_t i = 0; i < kRows; ++i) std::memcpy(keys[i].data(), rowOf(order[i], 1).data(), kKeySize);
  std::size_t at = 0;
  for (auto _ : state) {
    const auto row = table.reader->lookup(keys[at]);
    if (row.empty()) {
      state.SkipWithError("row not found");
      break;
    }
    at = following(at, row);
  }
}
BENCHMARK(lookupOfARow);

void writeOfAChangedRow(benchmark::State& state) {
  Table table;
  const auto order = randomOrder();
  std::size_t at = 0;
  std::uint64_t value = 2;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.editor->write(rowOf(order[at], value)));
    at = at + 1 == kRows ? 0 : at + 1;
    value += at == 0 ? 1 : 0;
  }
}
BENCHMARK(writeOfAChangedRow);

void pollOfAChange(benchmark::State& state) {
  Table table;
  table.reader->notifying(true);
  const auto order = randomOrder();
  std::vector<std::byte> keys;
  std::uint64_t value = 2;
  std::int64_t told = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (std::uint32_t i = 0; i < 1000; ++i) table.editor->write(rowOf(order[i], value));
    ++value;
    keys.clear();
    state.ResumeTiming();
    told += static_cast<std::int64_t>(table.reader->poll(keys).keys);
  }
  state.SetItemsProcessed(told);
}
BENCHMARK(pollOfAChange);

}  // namespace
