// Both forms are one datagram that is made here as text; the journal's own protocol is a list of fields, short enough
// not to need a library for it. Values come from outside (host names of other devices), so nothing in them may end
// a field, a parameter or a line.
#include "platform/SystemLog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>
#include <string_view>
#include <system_error>

#include "runtime/Trace.h"

namespace Platform {

namespace {

constexpr std::size_t longestText = 2048;
constexpr std::size_t longestName = 32;
constexpr std::size_t longestValue = 256;
constexpr int daemonFacility = 3;

// The first `size` bytes of a text, or fewer so that no UTF-8 sequence is cut.
std::string_view cut(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xc0U) == 0x80U) --size;
  return text.substr(0, size);
}

// A name as both logs allow it: other characters become '_'.
std::string fieldName(std::string_view name) {
  std::string result(name.substr(0, longestName));
  for (char& c : result) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) c = '_';
  }
  return result;
}

// Text without control characters: a line break would let a value pass for a message of its own.
std::string oneLine(std::string_view text, std::size_t size) {
  std::string result(cut(text, size));
  std::ranges::replace_if(
      result, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
  return result;
}

// A field of a journal entry: "NAME=value", which is only for values of one line.
void appendField(std::string& entry, std::string_view name, std::string_view value) {
  entry.append(name).append("=").append(value).append("\n");
}

std::string timestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  gmtime_r(&now.tv_sec, &parts);
  std::array<char, 32> seconds{};
  const std::size_t length = std::strftime(seconds.data(), seconds.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  const std::string microseconds = std::to_string(1'000'000 + now.tv_nsec / 1000).substr(1);
  return std::string(seconds.data(), length) + "." + microseconds + "Z";
}

// A header field of RFC 5424: printable and without spaces, "-" if there is nothing to say.
std::string headerField(std::string_view text, std::size_t size) {
  std::string result(text.substr(0, size));
  std::ranges::replace_if(
      result, [](char c) { return c <= ' ' || c > '~'; }, '_');
  return result.empty() ? "-" : result;
}

std::string hostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

SystemLogMessage systemLogMessage(const Rix::LogMessage& message) {
  SystemLogMessage result{static_cast<int>(message.handle->severity()), message.handle->name(), message.text, {}};
  for (const std::string& device : message.arguments) {
    result.fields.emplace_back("DEVICE" + std::to_string(result.fields.size() + 1), device);
  }
  return result;
}

SystemLog::SystemLog(std::string program) : SystemLog(std::move(program), Paths{}) {}

SystemLog::SystemLog(std::string program, Paths paths)
    : program_(std::move(program)), paths_(std::move(paths)), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (!socket_) throw std::system_error(errno, std::generic_category(), "a socket to the system log");
}

bool SystemLog::write(const SystemLogMessage& message) {
  if (send(paths_.journal, journalEntry(message)) || send(paths_.syslog, syslogLine(message))) return true;
  if (lost_++ == 0) {
    std::cerr << program_ << ": the system log takes no message at " << paths_.journal << " nor at " << paths_.syslog
              << ": " << std::generic_category().message(errno) << '\n';
  }
  return false;
}

bool SystemLog::send(const std::string& path, const std::string& datagram) const {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  const ssize_t sent = ::sendto(socket_.fd(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return sent == static_cast<ssize_t>(datagram.size());
}

std::string SystemLog::journalEntry(const SystemLogMessage& message) const {
  std::string entry;
  appendField(entry, "MESSAGE", oneLine(message.text, longestText));
  appendField(entry, "PRIORITY", std::to_string(std::clamp(message.severity, 0, 7)));
  appendField(entry, "SYSLOG_FACILITY", std::to_string(daemonFacility));
  appendField(entry, "SYSLOG_IDENTIFIER", oneLine(program_, longestValue));
  appendField(entry, "ZEB_EVENT", fieldName(message.name));
  for (const auto& [name, value] : message.fields) {
    appendField(entry, "ZEB_" + fieldName(name), oneLine(value, longestValue));
  }
  return entry;
}

std::string SystemLog::syslogLine(const SystemLogMessage& message) const {
  std::string line = "<" + std::to_string(daemonFacility * 8 + std::clamp(message.severity, 0, 7)) + ">1 " +
                     timestamp() + " " + headerField(hostName(), 255) + " " + headerField(program_, 48) + " " +
                     std::to_string(getpid()) + " " + headerField(fieldName(message.name), longestName) + " ";
  if (message.fields.empty()) line += "-";
  // 32473 is the enterprise number kept for examples: there is none of our own to tell the parameters apart by.
  if (!message.fields.empty()) line += "[zeb@32473";
  for (const auto& [name, value] : message.fields) {
    std::string parameter = fieldName(name);
    std::ranges::transform(parameter, parameter.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    line += " " + parameter + "=\"";
    for (const char c : oneLine(value, longestValue)) {
      if (c == '"' || c == '\\' || c == ']') line += '\\';
      line += c;
    }
    line += '"';
  }
  if (!message.fields.empty()) line += "]";
  return line + " " + oneLine(message.text, longestText);
}

}  // namespace Platform
