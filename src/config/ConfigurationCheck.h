// What configuration may hold: the one check of whatever writes it, be it a scenario's reader or an operator's command.
// It looks at words as they came from outside and says what is wrong with them; it writes nothing. The machines that
// read configuration rely on it: a name with a colon would make two orders share one key, and a distance of 255 would
// never come to its end.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/Types.h"

namespace Zeb {

// `text` from outside as it may stand in a message: in double quotes, cut if long, without control characters.
std::string inQuotes(std::string_view text);

// One thing that may not stand.
struct ConfigurationFinding {
  std::string what;     // "rate"
  std::string found;    // as it may stand in a message
  std::string allowed;  // "a whole number from 1 to 65535"

  // All of it in one line: rate "0"; expected a whole number from 1 to 65535
  std::string text() const { return what + " " + found + "; expected " + allowed; }
};

struct WholeNumbers {
  U64 least;
  U64 most;
};
inline constexpr WholeNumbers probeRates{1, 65535};  // per second and TTL
inline constexpr WholeNumbers probeDistances{1, 254};
inline constexpr WholeNumbers probePorts{1, 65535};
inline constexpr std::size_t longestName = 64;

// The name of a probe or of a group; `what` says which.
std::optional<ConfigurationFinding> nameFinding(std::string_view what, std::string_view name);

struct CheckedNumber {
  U64 value = 0;  // counts where there is no finding
  std::optional<ConfigurationFinding> finding;
};
CheckedNumber checkedNumber(std::string_view what, std::string_view text, WholeNumbers allowed);

// Something of which a list may hold each but once, as a probe's ports and a group's interfaces; `value` as it may
// stand in a message, `before` what the list holds so far.
template <class T>
std::optional<ConfigurationFinding> repetitionFinding(std::string_view what, std::string const& value, T const& one,
                                                      std::vector<T> const& before) {
  for (T const& each : before) {
    if (each == one) {
      return ConfigurationFinding{std::string(what), value + " a second time", "each " + std::string(what) + " once"};
    }
  }
  return std::nullopt;
}

// Whose address is whose. Orders name destinations by address alone, and an address leaves them with the interface
// that reported it last: one that is on two interfaces, or goes from one straight to another, would be missing in
// orders of which it is a part. So an address stays with the interface that had it first.
class AddressUse {
 public:
  // Notes that the interface has the address, unless another one has, or had, it.
  std::optional<ConfigurationFinding> addressIs(std::string_view member, std::string_view interface, U32 address,
                                                std::string_view addressText);

 private:
  std::map<U32, std::pair<std::string, std::string>> users_;
};

}  // namespace Zeb
