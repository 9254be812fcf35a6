// Showing rows once more, and taking them away again.
#include "sonar/DepartedRows.h"

#include <algorithm>

namespace Sonar {

void DepartedRows::departed(Rix::Seconds now, IngressStreamStatisticsTableEntry const& row) {
  if (rows_.size() >= most_) return;
  rows_[row.key] = {.row = row, .until = now + departedFor};
  nextLook_ = std::min(nextLook_, now + departedFor);
}

void DepartedRows::agentRestarted(Rix::Seconds now) {
  for (auto& [key, departed] : rows_) {
    table_.rowIs(departed.row);
    departed.shown = true;
    departed.until = now + shownAgainFor;
    nextLook_ = std::min(nextLook_, departed.until);
  }
}

void DepartedRows::sweep(Rix::Seconds now) {
  if (now < nextLook_) return;
  nextLook_ = Rix::never;
  for (auto entry = rows_.begin(); entry != rows_.end();) {
    Departed& departed = entry->second;
    bool const over = departed.until <= now;
    if (over && !departed.shown) {
      entry = rows_.erase(entry);
      continue;
    }
    if (over) {
      table_.rowDel(entry->first);
      departed.shown = false;
      departed.until = now + departedFor;
    }
    nextLook_ = std::min(nextLook_, departed.until);
    ++entry;
  }
}

}  // namespace Sonar
