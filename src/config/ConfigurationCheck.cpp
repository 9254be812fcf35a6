// See the header. Texts are those of an error that a person reads, so each names what it found.
#include "config/ConfigurationCheck.h"

#include <charconv>

namespace Zeb {

std::string inQuotes(std::string_view text) {
  constexpr std::size_t longest = 60;
  std::string result = "\"";
  for (char const c : text.substr(0, longest)) {
    auto const byte = static_cast<unsigned char>(c);
    result += byte < 0x20 || byte == 0x7f ? '?' : c;
  }
  return result + (text.size() > longest ? "...\"" : "\"");
}

std::optional<ConfigurationFinding> nameFinding(std::string_view what, std::string_view name) {
  if (!name.empty() && name.size() <= longestName && name.find(':') == std::string_view::npos) return std::nullopt;
  return ConfigurationFinding{std::string(what), inQuotes(name),
                              "a name of 1 to " + std::to_string(longestName) + " characters without \":\""};
}

CheckedNumber checkedNumber(std::string_view what, std::string_view text, WholeNumbers allowed) {
  CheckedNumber checked;
  char const* const end = text.data() + text.size();
  auto const result = std::from_chars(text.data(), end, checked.value);
  if (result.ec != std::errc() || result.ptr != end || checked.value < allowed.least || checked.value > allowed.most) {
    checked.finding = ConfigurationFinding{
        std::string(what), inQuotes(text),
        "a whole number from " + std::to_string(allowed.least) + " to " + std::to_string(allowed.most)};
  }
  return checked;
}

std::optional<ConfigurationFinding> AddressUse::addressIs(std::string_view member, std::string_view interface,
                                                          U32 address, std::string_view addressText) {
  std::pair const user{std::string(member), std::string(interface)};
  auto const& first = users_.emplace(address, user).first->second;
  if (first == user) return std::nullopt;
  return ConfigurationFinding{
      "address", inQuotes(addressText) + " of " + inQuotes(user.first + ":" + user.second),
      "one that no other interface has or had; " + inQuotes(first.first + ":" + first.second) + " has it or had it"};
}

}  // namespace Zeb
