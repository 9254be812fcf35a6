// The store in memory.
#include "runtime/ReportStore.h"

namespace Fabric {

std::vector<StoredReport> MemoryReportStore::load() {
  std::vector<StoredReport> all;
  for (auto const& [place, bytes] : reports_) all.push_back({place.first, place.second, bytes});
  return all;
}

void MemoryReportStore::save(std::string const& systemId, std::string const& mount, std::string const& bytes) {
  reports_[{systemId, mount}] = bytes;
  ++saves_;
}

void MemoryReportStore::remove(std::string const& systemId, std::string const& mount) {
  reports_.erase({systemId, mount});
}

}  // namespace Fabric
