// Tracing and logging: named trace facilities, the ring buffer of recent lines, and structured log messages.
//
// A module has one static TraceHandle named after it. A trace point that is off costs one test:
//
//   RIX_TRACE(traceHandle, 8, "void Zeb::RootSm::handleEnabled()" << " config::enabled:" << enabled);
//
// A line reads: facility, level, source file and line, function, text. It goes to the process's trace sink, which
// is none until a host sets one. Twinlog writes one message both there and to the ring buffer, Flashlog.
#pragma once

#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Types.h"

namespace Rix {

class TraceHandle {
 public:
  // `name` must outlive the handle. `on`: every level is on from the start.
  explicit TraceHandle(char const* name, bool on = false);
  char const* name() const { return name_; }
  // Levels run from 0 to 31.
  bool enabled(unsigned level) const { return ((levels_ >> level) & 1u) != 0; }
  void enabledIs(unsigned level, bool on) { levels_ = on ? levels_ | (1u << level) : levels_ & ~(1u << level); }

 private:
  char const* name_;
  U32 levels_;
};

// Turns levels of the facilities of that name on or off; `name` "*" means all, also those made later.
void traceLevelsIs(std::string_view name, U32 levels);

struct TraceLine {
  std::string_view facility;
  unsigned level;
  std::string_view file;
  int line;
  std::string_view function;
  std::string_view text;
};
// Takes every line that is traced. An empty function: nobody does.
void traceSinkIs(std::function<void(TraceLine const&)> sink);
std::string formatted(TraceLine const& line);

class TraceHelper {
 public:
  // A stream for the text if that level of that facility is on, else null.
  static std::unique_ptr<TraceHelper> createIfEnabled(TraceHandle const& handle, unsigned level) {
    if (!handle.enabled(level)) [[likely]]
      return nullptr;
    return std::unique_ptr<TraceHelper>(new TraceHelper(handle, level));
  }
  std::ostream& stream() { return text_; }
  // Completes the line and hands it to the sink.
  void trace(char const* file, int line, char const* function);

 private:
  TraceHelper(TraceHandle const& handle, unsigned level) : handle_(handle), level_(level) {}
  TraceHandle const& handle_;
  unsigned level_;
  std::ostringstream text_;
};

// The ring buffer of recent messages.
namespace Flashlog {
class Handle {
 public:
  explicit Handle(std::size_t capacity) : capacity_(capacity) {}
  // Drops the oldest message when full.
  void write(std::string message);
  std::deque<std::string> const& messages() const { return messages_; }

 private:
  std::size_t capacity_;
  std::deque<std::string> messages_;
};
// The process's ring buffer; null until a host sets one.
Handle* defaultFlashlogHandle();
void defaultFlashlogHandleIs(Handle* handle);
}  // namespace Flashlog

// Writes `format`, whose "%s" items are replaced in order by `items`, to the trace and to the ring buffer.
void twinlog(TraceHandle const& handle, unsigned level, char const* file, int line, char const* function,
             std::string_view format, std::initializer_list<std::string> items);

// `format` with its "%s" items replaced in order; surplus items are dropped, missing ones stay as they are.
std::string formattedText(std::string_view format, std::vector<std::string> const& items);

// The standard text for a message that asks nothing of its reader.
extern char const* const NoActionRequired;

// The severities of the system log.
enum class LogSeverity : U8 { emergency, alert, critical, error, warning, notice, informational, debug };

// A structured log message, declared once as a static object.
class LogHandle {
 public:
  // All texts must outlive the handle. `minimumInterval`: seconds between two messages of this handle, 0.0 for no
  // limit. `burst` and `flags` are kept for whoever lists the handles.
  LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
            char const* recommendedAction, double minimumInterval, double burst, unsigned char flags);

  char const* name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  char const* format() const { return format_; }
  char const* explanation() const { return explanation_; }
  char const* recommendedAction() const { return recommendedAction_; }
  unsigned char flags() const { return flags_; }

  struct RateLimit {
    double minimumInterval;
    double burst;
  };
  RateLimit rateLimitArgs() const { return {minimumInterval_, burst_}; }
  // Whether the rate limit lets a message pass at `now`.
  bool okToLog(double now) const { return minimumInterval_ <= 0 || now >= lastLogged_ + minimumInterval_; }
  // Hands the message to the current activity's sink and notes the time.
  void log(std::vector<std::string> arguments);

 private:
  char const* name_;
  LogSeverity severity_;
  char const* format_;
  char const* explanation_;
  char const* recommendedAction_;
  double minimumInterval_;
  double burst_;
  unsigned char flags_;
  double lastLogged_ = -never;
};

// Formats two arguments and logs them, if the rate limit lets them pass.
template <class A, class B>
void log(LogHandle& handle, A const& a, B const& b) {
  std::ostringstream first;
  std::ostringstream second;
  first << a;
  second << b;
  handle.log({first.str(), second.str()});
}

}  // namespace Rix

#define RIX_TRACE(handle, level, text)                                           \
  do {                                                                           \
    if ((handle).enabled(level)) [[unlikely]] {                                  \
      auto rixTraceHelper = ::Rix::TraceHelper::createIfEnabled(handle, level);  \
      rixTraceHelper->stream() << text; /* NOLINT(bugprone-macro-parentheses) */ \
      rixTraceHelper->trace(__FILE__, __LINE__, __func__);                       \
    }                                                                            \
  } while (false)
#define RIX_TWINLOG(handle, level, format, ...) \
  ::Rix::twinlog(handle, level, __FILE__, __LINE__, __func__, format, {__VA_ARGS__})
