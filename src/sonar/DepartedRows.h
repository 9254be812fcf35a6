// Rows that have been removed from the ingress table and may have to be shown again. An agent that is new reads only
// what stands: of a row that went while there was no agent it would never tell that it is gone, and whoever had it
// from the agent before would keep it. So each row that went a short while ago is shown once more, and removed again
// under the new agent's eyes. Driven by the sweep of the rows.
#pragma once

#include <map>

#include "runtime/Types.h"
#include "sonar/Tables.h"

namespace Sonar {

/// How long a row is shown to a new agent before it is removed again: until the agent has its link to the centre.
inline constexpr Rix::Seconds shownAgainFor = 3.0;
/// How long ago a row may have gone to be shown to a new agent: longer than an agent takes to tell of it, twice.
inline constexpr Rix::Seconds departedFor = 15.0;

class DepartedRows {
 public:
  /// At most `most` rows are remembered.
  DepartedRows(IngressTable& table, std::size_t most) : table_(table), most_(most) {}

  /// The row has just been removed.
  void departed(Rix::Seconds now, IngressStreamStatisticsTableEntry const& row);
  /// A row of that key is about to stand again.
  void returned(IngressStream const& key) { rows_.erase(key); }

  void agentRestarted(Rix::Seconds now);
  void sweep(Rix::Seconds now);
  bool empty() const { return rows_.empty(); }

 private:
  struct Departed {
    IngressStreamStatisticsTableEntry row;
    bool shown = false;
    Rix::Seconds until = 0;  // shown, or remembered
  };

  IngressTable& table_;
  std::size_t const most_;
  std::map<IngressStream, Departed> rows_;
  Rix::Seconds nextLook_ = Rix::never;
};

}  // namespace Sonar
