// Which switches have, or have had, one ttl of a stream: kept by the stream's source, who tells the earlier ones when
// another takes it over, and all of them when it ends. Plain bookkeeping.
#pragma once

#include <vector>

#include "sonar/Probe.h"

namespace Sonar {

class Holders {
 public:
  /// So many are remembered; the one that has not had it for the longest time is forgotten first.
  static constexpr std::size_t most = 6;

  struct Holder {
    Netkit::IpAddr address;
    ProbeNumber since{};  ///< zero of one that is only known to have had it once
  };

  /// Who has it in the counting of `epoch`, null if nobody has said so.
  Holder const* current(U64 epoch) const {
    return !all_.empty() && all_.back().since.epoch == epoch ? &all_.back() : nullptr;
  }

  /// `address` has it from `since` on. Returns who must be told that they have it no more. Nothing changes, and nobody
  /// must, if somebody has had it since a later probe.
  std::vector<Netkit::IpAddr> taken(Netkit::IpAddr address, ProbeNumber since);

  /// `address` has had it at some time.
  void remember(Netkit::IpAddr address);

  std::vector<Holder> const& all() const { return all_; }

 private:
  std::vector<Holder> all_;  // the one that took it last is the last
};

}  // namespace Sonar
