// What an event of a stream tells, and what a loss record found. The numbers are what is stored and sent; the names
// stand for them in texts.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "runtime/Types.h"

namespace Zeb {

enum class EventType : U8 {
  eventNone = 0,
  eventDormant = 1,
  eventDeleted = 2,
  eventProbesLost = 3,
  eventProbesMisordered = 4,
  eventProbesDuplicated = 5,
  eventProbesReceived = 6,
};

enum class LossRecordType : U8 {
  lossRecordUnknown = 0,
  lossRecordDestDormant = 1,
};

/// The name; for a number that none has, the number.
std::ostream& operator<<(std::ostream& out, EventType type);
std::ostream& operator<<(std::ostream& out, LossRecordType type);
std::string valueToStrep(EventType type);
std::string valueToStrep(LossRecordType type);

/// Gives `value` the enumerator of this name. False, and `value` as it was, if there is none.
bool sequenceToValue(std::string_view name, EventType& value);
bool sequenceToValue(std::string_view name, LossRecordType& value);

}  // namespace Zeb
