// What the tests of the analysis stand on: virtual time, a root object with its status, and short ways to fill the
// stream table and the clients by hand, as the collector and the intake would.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "central/ZebRoot.h"
#include "runtime/Activity.h"
#include "runtime/OwnedMap.h"
#include "runtime/Trace.h"

namespace Zeb {

inline Fabric::SystemId systemId(U8 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, 0, number}));
}
inline Netkit::IpAddr ipAddr(U8 number) {
  return Netkit::IpAddr(0x0a000000U + number);
}

// The stream with this tag from switch `from` to switch `to`, each at the address of its number.
inline ProbeStreamId streamId(U8 from, U8 to, U32 tag = 1) {
  ProbeStreamId::Fields fields;
  fields.srcEthAddr = Netkit::EthAddr({2, 0, 0, 0, 1, from});
  fields.dstEthAddr = Netkit::EthAddr({2, 0, 0, 0, 1, to});
  fields.srcIp = ipAddr(from);
  fields.dstIp = ipAddr(to);
  fields.streamTag = tag;
  return ProbeStreamId(fields);
}

// Every trace line of the process while this stands, all facilities and levels on.
class TraceLines {
 public:
  TraceLines() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { lines_.emplace_back(line.text); });
    Rix::traceLevelsIs("*", ~U32{0});
  }
  ~TraceLines() {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }
  TraceLines(TraceLines const&) = delete;
  TraceLines& operator=(TraceLines const&) = delete;

  // How many lines hold the text.
  int count(std::string_view text) const {
    int found = 0;
    for (auto const& line : lines_) found += line.find(text) != std::string::npos ? 1 : 0;
    return found;
  }

 private:
  std::vector<std::string> lines_;
};

// A message in the operator's log.
struct Logged {
  double time;
  std::string text;
  bool operator==(Logged const&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, Logged const& logged) {
  return out << logged.time << ' ' << logged.text;
}

struct AnalysisTest : testing::Test {
  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  Rix::Ptr<ZebStatus> status = Rix::make<ZebStatus>();
  Rix::Ptr<Root> root = rootFactory("root");
  std::vector<Logged> logged;

  AnalysisTest() {
    root->zebStatusIs(status);
    activity.rootObject() = root;
    activity.logSinkIs([this](Rix::LogMessage const& message) { logged.push_back({message.time, message.text}); });
  }

  ProbeLossStatus& lossStatus() { return *status->lossStatus(); }

  // Lets time pass, and whatever falls due in it happen.
  void runTo(double now) {
    time.nowIs(now);
    activity.runDueTimers();
  }
  // Something that comes from outside at a moment.
  void at(double now, std::function<void()> const& input) {
    time.nowIs(now);
    activity.dispatch(input);
  }

  void client(U8 number, char const* hostname) { status->clientIs(systemId(number))->hostnameIs(hostname); }

  // A stream's record, sent by switch `from`; `to` is its known destination.
  ProbeStreamRecord& stream(ProbeStreamId const& id, U8 from, U8 to) {
    ProbeStreamRecord* record = root->zebStreamTable()->streamRecordIs(id);
    record->sourceIdIs(systemId(from));
    record->destinationIdIs(systemId(to));
    return *record;
  }
  // What a switch reports of one TTL, with counters that start at zero.
  ProbeStreamSwitchIngressRecord& ingress(ProbeStreamRecord& record, U8 ttl, U8 number) {
    ProbeStreamSwitchIngressRecord* found = record.ingressRecordIs(ttl)->switchIngressRecordIs(systemId(number));
    found->ingressStatsIs();
    return *found;
  }
  // The stream's loss record; there must be one.
  StreamLossRecord& lossRecord(ProbeStreamId const& id) {
    StreamLossRecord* record = lossStatus().lossRecord(id);
    RIX_ASSERT(record != nullptr);
    return *record;
  }
};

}  // namespace Zeb
