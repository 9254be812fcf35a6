// Parsing and printing of network values, and the table in which the names of interfaces are kept once.
#include "model/Netkit.h"

#include <charconv>
#include <memory>
#include <ostream>
#include <unordered_map>

#include "model/Strep.h"
#include "runtime/Exceptions.h"

namespace Netkit {

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  std::array<U8, 6> bytes{};
  if (text.size() != 3 * bytes.size() - 1) return std::nullopt;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    char const* pair = text.data() + 3 * i;
    auto read = std::from_chars(pair, pair + 2, bytes[i], 16);
    if (read.ec != std::errc() || read.ptr != pair + 2) return std::nullopt;
    if (i + 1 < bytes.size() && pair[2] != ':') return std::nullopt;
  }
  return EthAddr(bytes);
}

std::string EthAddr::stringValue() const {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (U8 byte : bytes_) {
    if (!text.empty()) text += ':';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  U32 value = 0;
  char const* next = text.data();
  char const* end = next + text.size();
  for (int i = 0; i < 4; ++i) {
    if (i > 0 && (next == end || *next++ != '.')) return std::nullopt;
    U8 part = 0;
    auto read = std::from_chars(next, end, part);
    if (read.ec != std::errc() || (*next == '0' && read.ptr != next + 1)) return std::nullopt;
    value = value << 8 | part;
    next = read.ptr;
  }
  if (next != end) return std::nullopt;
  return IpAddr(value);
}

std::string IpAddr::stringValue() const {
  std::string text = std::to_string(value_ >> 24);
  for (int shift : {16, 8, 0}) text += '.' + std::to_string(value_ >> shift & 255);
  return text;
}

IntfId::IntfId(std::string_view name) : interned_(name.empty() ? nullptr : intern(name)) {}

IntfId::Interned const* IntfId::intern(std::string_view name) {
  // A name is never taken out again. One thread uses this, as everything here.
  static auto& names = *new std::unordered_map<std::string_view, std::unique_ptr<Interned const>>;
  if (name.size() > maxNameLength) Rix::throwRangeException("interface name longer than 255 characters");
  if (auto known = names.find(name); known != names.end()) return known->second.get();
  if (names.size() == maxNames) Rix::throwRangeException("more than 1048576 different interface names");
  auto interned =
      std::make_unique<Interned const>(Interned{std::string(name), Rix::hashBytes(name.data(), name.size())});
  std::string_view key = interned->name;
  return names.emplace(key, std::move(interned)).first->second.get();
}

std::ostream& operator<<(std::ostream& out, EthAddr const& address) {
  return out << address.stringValue();
}
std::ostream& operator<<(std::ostream& out, IpAddr address) {
  return out << address.stringValue();
}
std::ostream& operator<<(std::ostream& out, IpProto protocol) {
  return out << unsigned{protocol.value()};
}
std::ostream& operator<<(std::ostream& out, IntfId interface) {
  return out << interface.view();
}

std::string valueToStrep(EthAddr const& address) {
  return Rix::valueToStrep(address.stringValue());
}
std::string valueToStrep(IpAddr address) {
  return Rix::valueToStrep(address.stringValue());
}
std::string valueToStrep(IntfId interface) {
  return Rix::valueToStrep(interface.view());
}

}  // namespace Netkit

namespace Bridging {

std::ostream& operator<<(std::ostream& out, VlanIdOrNone vlan) {
  return vlan.isNone() ? out << "none" : out << vlan.value();
}

}  // namespace Bridging
