// The text form of a switch's identity, which names directory entries, and its reading.
#include "model/SystemId.h"

#include <ostream>

#include "model/Strep.h"

namespace Fabric {

SystemId::SystemId(char const* begin, char const* end)
    : SystemId(systemIdFromString({begin, static_cast<std::size_t>(end - begin)})) {}

SystemId systemIdFromString(std::string_view text) {
  auto address = Netkit::EthAddr::parse(text);
  return address && address->stringValue() == text ? SystemId(*address) : SystemId();
}

std::ostream& operator<<(std::ostream& out, SystemId const& id) {
  return out << id.stringValue();
}

std::string valueToStrep(SystemId const& id) {
  return Netkit::valueToStrep(id.ethAddr());
}

SystemId readSystemId(Rix::StrepReader& reader) {
  Rix::StrepReader place = reader;
  std::string text = reader.quoted();
  SystemId id = systemIdFromString(text);
  if (id.stringValue() != text) place.fail("a system id");
  return id;
}

}  // namespace Fabric
