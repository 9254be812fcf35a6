// Fabric::ReportStore: the last reports of switches, kept so that a centre that starts anew knows the switches that are
// away as well.
//
// The central end (FabricEnds.h) fills it at the end of each turn in which a report has changed, and reads it once,
// when its service is closed. It may be older than what is live: a switch that connects brings the difference. What the
// bytes mean is the end's business; a store only gives back what it was given.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Fabric {

// What a switch has last reported of one mount.
struct StoredReport {
  std::string systemId;  // its text form
  std::string mount;     // the central path of the mount
  std::string bytes;
};

class ReportStore {
 public:
  virtual ~ReportStore() = default;
  // All that is kept, in order of system id and mount. What cannot be read is left out.
  virtual std::vector<StoredReport> load() = 0;
  // Keeps a report in place of the one before. What cannot be kept is said in the trace, and no failure.
  virtual void save(std::string const& systemId, std::string const& mount, std::string const& bytes) = 0;
  virtual void remove(std::string const& systemId, std::string const& mount) = 0;
};

// One that lives as long as its process: for tests, and where the centre is restarted within one process.
class MemoryReportStore final : public ReportStore {
 public:
  std::vector<StoredReport> load() override;
  void save(std::string const& systemId, std::string const& mount, std::string const& bytes) override;
  void remove(std::string const& systemId, std::string const& mount) override;
  // How often a report was kept.
  std::size_t saves() const { return saves_; }

 private:
  std::map<std::pair<std::string, std::string>, std::string> reports_;
  std::size_t saves_ = 0;
};

}  // namespace Fabric
