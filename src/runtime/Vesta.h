// What the shared tables need from below them: their exceptions and their debug stream. The tables throw and write
// here; whoever hosts them may take the debug lines. Nothing here opens a file or knows a table.
#pragma once

#include <functional>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace Vesta {

/// The base of all that the shared tables throw; what() is the whole text.
class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An operation that only the writer of a table may do.
class NoPermissionException : public Exception {
 public:
  using Exception::Exception;
};

/// An operation of the interface that this kind of table does not have.
class UnimplementedException : public Exception {
 public:
  using Exception::Exception;
};

/// Bytes that no writer of this layout leaves behind. The table is not to be read any further.
class CorruptionDetectedException : public Exception {
 public:
  using Exception::Exception;
};

/// The system refused what a table needs: a file that cannot be made, mapped or locked. The text names the file.
class StorageException : public Exception {
 public:
  using Exception::Exception;
};

namespace Platform {

/// Takes one finished debug line, without a line end.
using DebugSink = std::function<void(std::string_view line)>;

/// Replaces where debug lines go and returns what took them before. An empty sink means the standard log stream.
DebugSink debugSinkIs(DebugSink sink);

/// One debug line: what is streamed into it goes to the sink as one line when the object ends.
class DebugStream {
 public:
  DebugStream() = default;
  DebugStream(const DebugStream&) = delete;
  DebugStream& operator=(const DebugStream&) = delete;
  ~DebugStream();

  template <typename Value>
  DebugStream& operator<<(const Value& value) {
    text_ << value;
    return *this;
  }

 private:
  std::ostringstream text_;
};

}  // namespace Platform
}  // namespace Vesta
