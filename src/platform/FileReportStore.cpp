// Names and frames of the files: a name tells switch and mount, a line at the top what must follow it.
#include "platform/FileReportStore.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <tuple>
#include <utility>

#include "platform/Files.h"
#include "runtime/Hash.h"
#include "runtime/Trace.h"

namespace Platform {
namespace {

Rix::TraceHandle traceHandle("FileReportStore");

constexpr char separator = '@';
constexpr char ending[] = ".report";

// What is no letter, digit, colon, point or hyphen is written as two hexadecimal digits.
std::string escaped(std::string const& text) {
  std::string result;
  for (char const c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == ':' || c == '.' || c == '-') {
      result += c;
      continue;
    }
    char code[4];
    std::snprintf(code, sizeof code, "%%%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    result += code;
  }
  return result;
}

std::string unescaped(std::string const& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned code = 0;
    if (text[i] == '%' && std::sscanf(text.substr(i + 1, 2).c_str(), "%2x", &code) == 1) {
      result += static_cast<char>(code);
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

std::string fileName(std::string const& systemId, std::string const& mount) {
  return escaped(systemId) + separator + escaped(mount) + ending;
}

// The place that a file's name tells, or nothing for a name that this store does not give.
std::optional<std::pair<std::string, std::string>> placeOf(std::string const& name) {
  auto const at = name.find(separator);
  auto const end = name.size() < sizeof ending ? std::string::npos : name.size() - (sizeof ending - 1);
  if (at == std::string::npos || end == std::string::npos || at > end) return std::nullopt;
  std::pair place(unescaped(name.substr(0, at)), unescaped(name.substr(at + 1, end - at - 1)));
  if (fileName(place.first, place.second) != name) return std::nullopt;
  return place;
}

// What goes before a report: its kind and layout, its length and its hash.
std::string heading(std::string const& bytes) {
  char line[64];
  std::snprintf(line, sizeof line, "zeb-report 1 %zu %08x\n", bytes.size(),
                static_cast<unsigned>(Rix::hashBytes(bytes.data(), bytes.size())));
  return line;
}

std::string readReport(std::string const& path) {
  std::string const content = readSmallFile(path, FileReportStore::maxReportSize + 64);
  auto const end = content.find('\n');
  std::string bytes = end == std::string::npos ? std::string() : content.substr(end + 1);
  if (content.substr(0, end == std::string::npos ? 0 : end + 1) != heading(bytes)) {
    throw FileError(path + ":1: expected \"zeb-report 1\", and the length and hash of what follows");
  }
  return bytes;
}

}  // namespace

FileReportStore::FileReportStore(std::string directory) : directory_(std::move(directory)) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  if (error) throw FileError(directory_ + ": cannot make the directory: " + error.message());
}

std::vector<Fabric::StoredReport> FileReportStore::load() {
  std::vector<Fabric::StoredReport> reports;
  std::error_code error;
  std::filesystem::directory_iterator entries(directory_, error);
  for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    std::string const path = entries->path().string();
    auto const place = placeOf(entries->path().filename().string());
    if (!place) {
      // What a process left that died while it wrote is no report, and nothing to speak of.
      if (!path.ends_with(".new")) RIX_TRACE(traceHandle, 0, path << ": left out: its name is none of a report");
      continue;
    }
    if (reports.size() >= maxReports) {
      RIX_TRACE(traceHandle, 0,
                directory_ << ": expected at most " << maxReports << " reports; the others are left out");
      break;
    }
    try {
      reports.push_back({place->first, place->second, readReport(path)});
    } catch (FileError const& failure) {
      RIX_TRACE(traceHandle, 0, "left out: " << failure.what());
    }
  }
  if (error) RIX_TRACE(traceHandle, 0, directory_ << ": cannot read the directory: " << error.message());
  // A directory gives its files in no order of its own.
  std::sort(reports.begin(), reports.end(), [](auto const& left, auto const& right) {
    return std::tie(left.systemId, left.mount) < std::tie(right.systemId, right.mount);
  });
  return reports;
}

void FileReportStore::save(std::string const& systemId, std::string const& mount, std::string const& bytes) {
  if (bytes.size() > maxReportSize) {
    RIX_TRACE(traceHandle, 0,
              "report of " << systemId << " not kept: expected at most " << maxReportSize << " bytes, found "
                           << bytes.size());
    return remove(systemId, mount);
  }
  try {
    replaceFile(pathOf(systemId, mount), heading(bytes) + bytes);
  } catch (FileError const& failure) {
    RIX_TRACE(traceHandle, 0, "report of " << systemId << " not kept: " << failure.what());
  }
}

void FileReportStore::remove(std::string const& systemId, std::string const& mount) {
  std::string const path = pathOf(systemId, mount);
  std::error_code error;
  std::filesystem::remove(path, error);
  if (error) RIX_TRACE(traceHandle, 0, path << ": cannot remove: " << error.message());
}

std::string FileReportStore::pathOf(std::string const& systemId, std::string const& mount) const {
  return directory_ + "/" + fileName(systemId, mount);
}

}  // namespace Platform
