// Runs a fuzz target over the files of folders and files named on the command line, in the order of their names. Fails
// if there is none: a corpus that went missing must show.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < count; ++i) {
    const std::filesystem::path path = arguments[i];
    if (std::filesystem::is_regular_file(path)) inputs.push_back(path);
    if (!std::filesystem::is_directory(path)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (const auto& input : inputs) {
    std::printf("%s\n", input.filename().c_str());
    std::fflush(stdout);
    std::ifstream file(input, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  if (inputs.empty()) std::fprintf(stderr, "replay: no input found\n");
  return inputs.empty() ? 1 : 0;
}
