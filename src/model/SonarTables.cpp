// Rows to bytes and back. The rows know their layout; what is added here is the table's list of names.
#include "model/SonarTables.h"

#include <bit>
#include <cstring>

#include "runtime/Exceptions.h"
#include "runtime/ShelfWords.h"

namespace Sonar {

namespace {

class TableIntfNames : public IntfNames {
 public:
  explicit TableIntfNames(Shelf::Names& names) : names_(names) {}

  IntfBytes encode(Netkit::IntfId interface) override {
    auto const cell = names_.cell(interface.view());
    refused_ = refused_ || !cell;
    return cell ? std::bit_cast<IntfBytes>(*cell) : IntfBytes{};
  }
  Netkit::IntfId decode(IntfBytes const& bytes) override {
    try {
      return Netkit::IntfId(names_.name(std::bit_cast<Shelf::NameCell>(bytes)));
    } catch (Rix::RangeException const& exception) {
      // More names than a switch has interfaces: no writer of ours filled this table.
      throw Vesta::CorruptionDetectedException(exception.what());
    }
  }
  bool refused() const { return refused_; }

 private:
  Shelf::Names& names_;
  bool refused_ = false;
};

template <class Value>
bool encodeValue(Value const& value, Shelf::Names& names, std::span<std::byte> bytes) {
  TableIntfNames interfaces(names);
  auto const encoded = value.encode(interfaces);
  if (interfaces.refused()) return false;
  std::memcpy(bytes.data(), encoded.data(), encoded.size());
  return true;
}

template <class Value>
Value decodeValue(std::span<std::byte const> bytes, Shelf::Names& names) {
  TableIntfNames interfaces(names);
  std::array<U8, Value::encodedSize> encoded;
  std::memcpy(encoded.data(), bytes.data(), encoded.size());
  return Value::decode(encoded, interfaces);
}

}  // namespace

template <class Key, class Row>
std::uint32_t StreamTableOps<Key, Row>::hash(std::span<std::byte const> key) {
  return Shelf::keyHash(key);
}
template <class Key, class Row>
bool StreamTableOps<Key, Row>::encodeKey(Key const& key, Shelf::Names& names, std::span<std::byte> bytes) {
  return encodeValue(key, names, bytes);
}
template <class Key, class Row>
bool StreamTableOps<Key, Row>::encodeRow(Row const& row, Shelf::Names& names, std::span<std::byte> bytes) {
  return encodeValue(row, names, bytes);
}
template <class Key, class Row>
Key StreamTableOps<Key, Row>::decodeKey(std::span<std::byte const> bytes, Shelf::Names& names) {
  return decodeValue<Key>(bytes, names);
}
template <class Key, class Row>
Row StreamTableOps<Key, Row>::decodeRow(std::span<std::byte const> bytes, Shelf::Names& names) {
  return decodeValue<Row>(bytes, names);
}

template struct StreamTableOps<EgressStream, EgressStreamTable>;
template struct StreamTableOps<IngressStream, IngressStreamStatisticsTableEntry>;

}  // namespace Sonar
