// The last reports of switches in files, one for each switch and mount, in a directory of their own.
//
// A file is replaced as a whole, so that one that is read is what was written, whenever the process died. After the
// machine itself has died it may be empty: then it is left out, as is anything else that is no report, with one line in
// the trace that names the file, and the switch's next report takes its place. Nothing here waits for the disk.
#pragma once

#include <cstddef>

#include "runtime/ReportStore.h"

namespace Platform {

class FileReportStore final : public Fabric::ReportStore {
 public:
  static constexpr std::size_t maxReports = 32768;
  static constexpr std::size_t maxReportSize = std::size_t{1} << 20;

  // Makes the directory if there is none. Throws FileError if it cannot. One store for a directory at a time.
  explicit FileReportStore(std::string directory);

  // At most maxReports: what is more is left out.
  std::vector<Fabric::StoredReport> load() override;
  // A report beyond maxReportSize is not kept, and the one before it is removed.
  void save(std::string const& systemId, std::string const& mount, std::string const& bytes) override;
  void remove(std::string const& systemId, std::string const& mount) override;

 private:
  std::string pathOf(std::string const& systemId, std::string const& mount) const;

  std::string const directory_;
};

}  // namespace Platform
