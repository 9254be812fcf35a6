// One table of names for each kind; printing and reading go through the same table.
#include "model/EventType.h"

#include <array>
#include <ostream>
#include <span>

#include "model/Strep.h"

namespace Zeb {

namespace {

constexpr std::array<std::string_view, 7> eventNames{
    "eventNone",          "eventDormant",          "eventDeleted",
    "eventProbesLost",    "eventProbesMisordered", "eventProbesDuplicated",
    "eventProbesReceived"};
constexpr std::array<std::string_view, 2> lossRecordNames{"lossRecordUnknown", "lossRecordDestDormant"};

std::span<std::string_view const> namesOf(EventType) {
  return eventNames;
}
std::span<std::string_view const> namesOf(LossRecordType) {
  return lossRecordNames;
}

template <class Enumeration>
std::string nameOf(Enumeration value) {
  auto names = namesOf(value);
  auto number = static_cast<std::size_t>(value);
  return number < names.size() ? std::string(names[number]) : std::to_string(number);
}

template <class Enumeration>
bool fromName(std::string_view name, Enumeration& value) {
  auto names = namesOf(value);
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] != name) continue;
    value = static_cast<Enumeration>(i);
    return true;
  }
  return false;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, EventType type) {
  return out << nameOf(type);
}
std::ostream& operator<<(std::ostream& out, LossRecordType type) {
  return out << nameOf(type);
}
std::string valueToStrep(EventType type) {
  return Rix::valueToStrep(nameOf(type));
}
std::string valueToStrep(LossRecordType type) {
  return Rix::valueToStrep(nameOf(type));
}
bool sequenceToValue(std::string_view name, EventType& value) {
  return fromName(name, value);
}
bool sequenceToValue(std::string_view name, LossRecordType& value) {
  return fromName(name, value);
}

}  // namespace Zeb
