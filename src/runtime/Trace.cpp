// The process's trace facilities, its sinks, and the limits of log messages.
#include "runtime/Trace.h"

#include <algorithm>
#include <map>

#include "runtime/Activity.h"

namespace Rix {
namespace {

// Handles are static objects of many files: the register is made at its first use.
struct Facilities {
  std::vector<TraceHandle*> handles;
  std::map<std::string, U32, std::less<>> levels;
};
Facilities& facilities() {
  static Facilities instance;
  return instance;
}
std::function<void(TraceLine const&)>& traceSink() {
  static std::function<void(TraceLine const&)> sink;
  return sink;
}
void levelsIs(TraceHandle& handle, U32 levels) {
  for (unsigned level = 0; level < 32; ++level) handle.enabledIs(level, ((levels >> level) & 1u) != 0);
}
Flashlog::Handle* flashlog = nullptr;

}  // namespace

TraceHandle::TraceHandle(char const* name, bool on) : name_(name), levels_(on ? ~0u : 0u) {
  Facilities& all = facilities();
  all.handles.push_back(this);
  for (std::string_view const key : {std::string_view("*"), std::string_view(name)}) {
    auto const wanted = all.levels.find(key);
    if (wanted != all.levels.end()) levelsIs(*this, wanted->second);
  }
}

void traceLevelsIs(std::string_view name, U32 levels) {
  Facilities& all = facilities();
  all.levels[std::string(name)] = levels;
  for (TraceHandle* handle : all.handles) {
    if (name == "*" || name == handle->name()) levelsIs(*handle, levels);
  }
}

void traceSinkIs(std::function<void(TraceLine const&)> sink) {
  traceSink() = std::move(sink);
}

std::string formatted(TraceLine const& line) {
  std::ostringstream out;
  auto const slash = line.file.rfind('/');
  out << line.facility << ' ' << line.level << ' '
      << (slash == std::string_view::npos ? line.file : line.file.substr(slash + 1)) << ':' << line.line << ' '
      << line.function << ' ' << line.text;
  return out.str();
}

void TraceHelper::trace(char const* file, int line, char const* function) {
  if (!traceSink()) return;
  std::string const text = text_.str();
  traceSink()({handle_.name(), level_, file, line, function, text});
}

void Flashlog::Handle::write(std::string message) {
  if (messages_.size() == capacity_) messages_.pop_front();
  if (capacity_ > 0) messages_.push_back(std::move(message));
}
Flashlog::Handle* Flashlog::defaultFlashlogHandle() {
  return flashlog;
}
void Flashlog::defaultFlashlogHandleIs(Handle* handle) {
  flashlog = handle;
}

std::string formattedText(std::string_view format, std::vector<std::string> const& items) {
  std::string out;
  auto item = items.begin();
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format.substr(i, 2) == "%s" && item != items.end()) {
      out += *item++;
      ++i;
    } else {
      out += format[i];
    }
  }
  return out;
}

void twinlog(TraceHandle const& handle, unsigned level, char const* file, int line, char const* function,
             std::string_view format, std::initializer_list<std::string> items) {
  if (!handle.enabled(level) && !flashlog) return;
  std::string const text = formattedText(format, items);
  if (auto helper = TraceHelper::createIfEnabled(handle, level)) {
    helper->stream() << text;
    helper->trace(file, line, function);
  }
  if (flashlog) flashlog->write(text);
}

char const* const NoActionRequired = "No action is required.";

LogHandle::LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
                     char const* recommendedAction, double minimumInterval, double burst, unsigned char flags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      minimumInterval_(minimumInterval),
      burst_(burst),
      flags_(flags) {}

void LogHandle::log(std::vector<std::string> arguments) {
  Activity& activity = Activity::current();
  double const now = activity.now();
  if (!okToLog(now)) return;
  lastLogged_ = now;
  std::string text = formattedText(format_, arguments);
  activity.log({this, now, activity.utcNow(), std::move(text), std::move(arguments)});
}

}  // namespace Rix
