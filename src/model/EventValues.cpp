// The orders and the text forms of the event values, field by field.
#include "model/EventValues.h"

#include <ostream>
#include <tuple>

#include "model/Strep.h"

namespace Sonar {

std::ostream& operator<<(std::ostream& out, Epoch epoch) {
  return out << epoch.value;
}

}  // namespace Sonar

namespace Zeb {

namespace {

// Orders two values by one field after the other. A time is ordered as a number is, and a value that is none (which
// no clock gives) still has its one place.
std::weak_ordering compareField(double left, double right) {
  return std::weak_order(left, right);
}
template <class Field>
std::weak_ordering compareField(Field const& left, Field const& right) {
  return left <=> right;
}

template <class Record, class... Fields>
std::weak_ordering compareFields(Record const& left, Record const& right, Fields Record::*... fields) {
  std::weak_ordering order = std::weak_ordering::equivalent;
  static_cast<void>(((order = compareField(left.*fields, right.*fields), order != 0) || ...));
  return order;
}

EventType readEventType(Rix::StrepReader& reader) {
  Rix::StrepReader place = reader;
  EventType type{};
  if (!sequenceToValue(reader.quoted(), type)) place.fail("the name of an event type");
  return type;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, DeviceInfo const& info) {
  return out << info.hostname << ' ' << info.ipAddr << ' ' << info.intf;
}

std::weak_ordering operator<=>(ProbeStreamEventRecord const& left, ProbeStreamEventRecord const& right) {
  using Record = ProbeStreamEventRecord;
  return compareFields(left, right, &Record::timeStamp, &Record::eventType, &Record::ttl, &Record::ingressSwitchId,
                       &Record::epoch, &Record::currentSequenceNumber, &Record::lastSequenceNumber,
                       &Record::probesReceived, &Record::probesLost, &Record::probesMisordered,
                       &Record::probesDuplicated, &Record::count);
}

std::ostream& operator<<(std::ostream& out, ProbeStreamEventRecord const& record) {
  return out << record.timeStamp << ' ' << record.eventType << " ttl " << unsigned{record.ttl} << " switch "
             << record.ingressSwitchId << " epoch " << record.epoch << " sequence " << record.currentSequenceNumber
             << ' ' << record.lastSequenceNumber << " received " << record.probesReceived << " lost "
             << record.probesLost << " misordered " << record.probesMisordered << " duplicated "
             << record.probesDuplicated << " count " << record.count;
}

std::weak_ordering operator<=>(ZebStreamEvent const& left, ZebStreamEvent const& right) {
  using Event = ZebStreamEvent;
  return compareFields(left, right, &Event::timeStamp, &Event::eventType, &Event::ttl, &Event::ingressSwitchId,
                       &Event::count);
}

ZebStreamEvent::ZebStreamEvent(char const* begin, char const* end) {
  Rix::StrepReader reader(begin, end);
  timeStamp =
      reader.attribute("timeStamp", "Value('Zeb::ZebStreamEvent', ** {'timeStamp': ", [&] { return reader.real(); });
  eventType = reader.attribute("eventType", ", 'eventType': ", [&] { return readEventType(reader); });
  ttl = reader.attribute("ttl", ", 'ttl': ", [&] { return reader.number<U8>(); });
  ingressSwitchId =
      reader.attribute("ingressSwitchId", ", 'ingressSwitchId': ", [&] { return Fabric::readSystemId(reader); });
  count = reader.attribute("count", ", 'count': ", [&] {
    U32 number = reader.number<U32>();
    reader.literal("})");
    reader.end();
    return number;
  });
}

std::ostream& operator<<(std::ostream& out, ZebStreamEvent const& event) {
  return out << valueToStrep(event);
}

std::string valueToStrep(ZebStreamEvent const& event) {
  return "Value('Zeb::ZebStreamEvent', ** {'timeStamp': " + Rix::valueToStrep(event.timeStamp) +
         ", 'eventType': " + valueToStrep(event.eventType) + ", 'ttl': " + Rix::valueToStrep(event.ttl) +
         ", 'ingressSwitchId': " + Fabric::valueToStrep(event.ingressSwitchId) +
         ", 'count': " + Rix::valueToStrep(event.count) + "})";
}

std::weak_ordering operator<=>(PairTime const& left, PairTime const& right) {
  return compareFields(left, right, &PairTime::devicePair_, &PairTime::time_);
}

PairTime::PairTime(char const* begin, char const* end) {
  Rix::StrepReader reader(begin, end);
  devicePair_ =
      reader.attribute("devicePair", "Value('Zeb::PairTime', ** {'devicePair': ", [&] { return DevicePair(reader); });
  time_ = reader.attribute("time", ", 'time': ", [&] {
    double number = reader.real();
    reader.literal("})");
    reader.end();
    return number;
  });
}

std::ostream& operator<<(std::ostream& out, PairTime const& pairTime) {
  return out << valueToStrep(pairTime);
}

std::string valueToStrep(PairTime const& pairTime) {
  return "Value('Zeb::PairTime', ** {'devicePair': " + valueToStrep(pairTime.devicePair()) +
         ", 'time': " + Rix::valueToStrep(pairTime.time()) + "})";
}

}  // namespace Zeb
