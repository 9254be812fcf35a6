// One takeover after another.
#include "sonar/Holders.h"

#include <algorithm>

namespace Sonar {

std::vector<Netkit::IpAddr> Holders::taken(Netkit::IpAddr address, ProbeNumber since) {
  if (!all_.empty() && since <= all_.back().since) return {};
  std::vector<Netkit::IpAddr> others;
  Netkit::IpAddr const previous = all_.empty() ? address : all_.back().address;
  for (Holder const& holder : all_) {
    // Those before the last one have been told already, unless the stream has begun again since.
    bool const told = holder.address != previous && holder.since.epoch == since.epoch;
    if (holder.address != address && !told) others.push_back(holder.address);
  }
  // From here on they count as told.
  for (Holder& holder : all_) holder.since.epoch = since.epoch;
  std::erase_if(all_, [&](Holder const& holder) { return holder.address == address; });
  if (all_.size() >= most) all_.erase(all_.begin());
  all_.push_back({address, since});
  return others;
}

void Holders::remember(Netkit::IpAddr address) {
  bool const known =
      std::any_of(all_.begin(), all_.end(), [&](Holder const& holder) { return holder.address == address; });
  if (known || all_.size() >= most) return;
  all_.insert(all_.begin(), Holder{address});
}

}  // namespace Sonar
