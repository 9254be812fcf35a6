// The hash and the text forms of a device pair.
#include "model/DevicePair.h"

#include <ostream>

#include "model/Strep.h"

namespace Zeb {

namespace {

U32 feed(U32 state, U32 word) {
  for (int shift = 0; shift < 32; shift += 8) {
    state += word >> shift & 255;
    state *= 1025;
    state ^= state >> 6;
  }
  return state;
}

}  // namespace

DevicePair::DevicePair(Rix::StrepReader& reader) {
  constexpr char opening[] = "Value('Zeb::DevicePair', ** {'dev1SysId': ";
  dev1SysId_ = reader.attribute("dev1SysId", opening, [&] { return Fabric::readSystemId(reader); });
  dev2SysId_ = reader.attribute("dev2SysId", ", 'dev2SysId': ", [&] {
    Fabric::SystemId id = Fabric::readSystemId(reader);
    reader.literal("})");
    return id;
  });
}

DevicePair::DevicePair(char const* begin, char const* end) {
  Rix::StrepReader reader(begin, end);
  *this = DevicePair(reader);
  reader.attribute("dev2SysId", "", [&] { reader.end(); });
}

U32 DevicePair::hash() const {
  U32 state = feed(feed(0, dev1SysId_.hash()), dev2SysId_.hash());
  state *= 9;
  state ^= state >> 11;
  return state * 32769;
}

std::ostream& operator<<(std::ostream& out, DevicePair const& pair) {
  return out << pair.dev1SysId() << "->" << pair.dev2SysId();
}

std::string valueToStrep(DevicePair const& pair) {
  return "Value('Zeb::DevicePair', ** {'dev1SysId': " + Fabric::valueToStrep(pair.dev1SysId()) +
         ", 'dev2SysId': " + Fabric::valueToStrep(pair.dev2SysId()) + "})";
}

}  // namespace Zeb
