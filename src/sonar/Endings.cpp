// The marks, and what is shown again.
#include "sonar/Endings.h"

#include <algorithm>
#include <limits>

#include "sonar/DepartedRows.h"

namespace Sonar {

namespace {

constexpr auto later = [](auto const& left, auto const& right) {
  return left.when > right.when || (left.when == right.when && left.key > right.key);
};

Notice noticeOf(Endings::Ended const& ended, U64 serial) {
  return {.kind = PacketKind::end,
          .ttl = ended.row.key.ttl,
          .stream = ended.flow,
          .streamTag = ended.row.key.streamTag,
          .auxIp = ended.row.key.auxIp,
          .number = ended.last,
          .serial = serial};
}

}  // namespace

void Endings::add(Rix::Seconds now, Ended ended, Rix::Seconds firstMark) {
  table_.rowDel(ended.row.key);
  Key const key{ended.flow, ended.row.key.ttl};
  Entry entry{.what = std::move(ended), .serial = notices_.nextSerial(), .forgetAt = now + remembered};
  if (entries_.size() >= most_) {
    if (entry.what.last.sequence > 0) mark(entry);
    return;
  }
  Entry& kept = entries_[key] = std::move(entry);
  markFrom(kept, firstMark);
  schedule(key, kept);
}

// Of what was never sent nobody needs to know the end.
void Endings::markFrom(Entry& entry, Rix::Seconds first) {
  if (entry.what.last.sequence == 0) return;
  if (entry.marksLeft == 0) ++marking_;
  entry.marksLeft = marks;
  entry.nextMark = first;
}

void Endings::mark(Entry const& entry) {
  Notice const notice = noticeOf(entry.what, entry.serial);
  // Where the address has gone nothing leaves from it, and only those are told who are known.
  if (view_.isLocal(entry.what.flow.source)) notices_.tellInBand(notice);
  for (auto const& holder : entry.what.holders.all()) notices_.tellOnce(holder.address, notice, entry.marksLeft);
}

std::optional<Endings::Ended> Endings::take(Flow const& flow, U8 ttl) {
  auto const known = entries_.find({flow, ttl});
  if (known == entries_.end()) return std::nullopt;
  if (known->second.marksLeft > 0) --marking_;
  if (known->second.shownUntil != Rix::never) table_.rowDel(known->second.what.row.key);
  Ended ended = std::move(known->second.what);
  entries_.erase(known);
  return ended;
}

void Endings::tell(ReceivedPacket const& packet) {
  Notice notice = packet.notice;
  auto const known = entries_.find({notice.stream, notice.ttl});
  if (known != entries_.end()) {
    known->second.what.holders.remember(packet.flow.source);
    U64 const epoch = known->second.what.last.epoch;
    notice.number.epoch = std::max(notice.number.epoch, epoch);
  }
  // Not a new matter to one who has heard of the end already.
  notice.serial = known == entries_.end() ? 0 : known->second.serial;
  notice.kind = PacketKind::end;
  // Whatever has been heard: nothing of that epoch will be sent again.
  notice.number.sequence = std::numeric_limits<U64>::max();
  notice.holder = Netkit::IpAddr();
  notices_.answer(packet.flow, notice);
}

void Endings::agentRestarted(Rix::Seconds now) {
  for (auto& [key, entry] : entries_) {
    table_.rowIs(entry.what.row);
    entry.shownUntil = now + shownAgainFor;
    entry.forgetAt = now + remembered;
    entry.serial = notices_.nextSerial();
    markFrom(entry, now);
    schedule(key, entry);
  }
}

void Endings::run(Rix::Seconds now) {
  while (!due_.empty() && due_.front().when <= now) {
    Due const due = due_.front();
    std::pop_heap(due_.begin(), due_.end(), later);
    due_.pop_back();
    auto const known = entries_.find(due.key);
    if (known == entries_.end() || known->second.next() != due.when) continue;
    Entry& entry = known->second;
    if (entry.shownUntil <= now) {
      table_.rowDel(entry.what.row.key);
      entry.shownUntil = Rix::never;
      // Receivers wait from here on once more.
      entry.serial = notices_.nextSerial();
      markFrom(entry, now);
    }
    if (entry.nextMark <= now) {
      mark(entry);
      std::size_t const made = marks - entry.marksLeft;
      entry.nextMark = made < markPauses.size() ? now + markPauses[made] : Rix::never;
      if (--entry.marksLeft == 0) --marking_;
    }
    if (entry.forgetAt <= now) {
      entries_.erase(known);
      continue;
    }
    schedule(due.key, entry);
  }
}

void Endings::schedule(Key const& key, Entry const& entry) {
  due_.push_back({entry.next(), key});
  std::push_heap(due_.begin(), due_.end(), later);
}

std::vector<Flow> Endings::flows() const {
  std::vector<Flow> result;
  for (auto const& [key, entry] : entries_) {
    if (entry.marksLeft > 0) result.push_back(key.first);
  }
  return result;
}

}  // namespace Sonar
