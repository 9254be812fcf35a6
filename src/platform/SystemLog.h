// Writes structured messages to the log of the host that the operator reads: to the journal with fields of its own
// where there is one, else as an RFC 5424 datagram to the syslog socket. A program's main() makes one and hands it
// what the agents log. It never waits: a log that cannot take a message at once loses it, and the loss is counted.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/Descriptor.h"
#include "runtime/Activity.h"

namespace Platform {

struct SystemLogMessage {
  int severity = 6;  // 0 (emergency) to 7 (debug), as syslog counts
  std::string name;  // which message this is, whatever its arguments: capitals, digits and '_', at most 32
  std::string text;  // one line for a person; what is beyond 2048 bytes is cut off
  // What the text speaks of, each by a name of capitals, digits and '_', at most 32, and a value of at most 256
  // bytes. The journal has it as ZEB_NAME, RFC 5424 as a parameter `name`.
  std::vector<std::pair<std::string, std::string>> fields;
};

// A message of an agent as the system log has it. Its arguments are the devices that it speaks of: DEVICE1, DEVICE2 and
// so on.
SystemLogMessage systemLogMessage(const Rix::LogMessage& message);

class SystemLog {
 public:
  struct Paths {
    std::string journal = "/run/systemd/journal/socket";
    std::string syslog = "/dev/log";
  };

  // `program` is what the log calls the writer. Throws std::system_error if there is no socket to be had.
  explicit SystemLog(std::string program);
  SystemLog(std::string program, Paths paths);

  // Whether the host's log has taken the message. The first failure is also told on standard error.
  bool write(const SystemLogMessage& message);

  // How many messages no log has taken.
  std::uint64_t lost() const { return lost_; }

 private:
  bool send(const std::string& path, const std::string& datagram) const;
  std::string journalEntry(const SystemLogMessage& message) const;
  std::string syslogLine(const SystemLogMessage& message) const;

  std::string program_;
  Paths paths_;
  Descriptor socket_;
  std::uint64_t lost_ = 0;
};

}  // namespace Platform
