// The root object: what the centre keeps in process and never publishes. It owns the central stream table, the event
// table, the directory of event queues and the registry of analyzers, and it lives from the start of the agent to the
// end of its activity, so that a disable of the service loses none of them. It is data: the state machines write it,
// and it drives nobody.
#pragma once

#include "model/gen/Loss.h"
#include "model/gen/ProbeStream.h"
#include "model/gen/Status.h"
#include "runtime/Collections.h"
#include "runtime/Entity.h"

namespace Zeb {

class Root;

// What looks at each batch of a stream's events. The base looks at nothing.
class ProbeEventsAnalyzerBase : public Rix::PtrInterface {
 public:
  explicit ProbeEventsAnalyzerBase(Rix::Name const& name) : name_(name) {}
  Rix::Name const& name() const { return name_; }

  // Called for every batch, oldest event first in `queue`, which holds it until all analyzers have seen it. The batch
  // has been folded into the stream's loss record by then.
  virtual void doAnalyze(Rix::Ptr<Root> const& root, Rix::Ptr<ProbeStreamEventsQueue> const& queue);

 private:
  Rix::Name const name_;
};

Rix::Ptr<ProbeEventsAnalyzerBase> probeEventsAnalyzerBaseFactory(Rix::Name const& name);

// The analyzers by name, each of which gets its turn at every batch.
class ZebAnalyzerRegistry : public Rix::Entity {
 public:
  class NotifieeConst : public Rix::NotifieeBase {
   public:
    virtual void onAnalyzer(Rix::String8 const&) {}
    virtual void onAnalyzerrixImmediate() { onAnalyzer(); }
    virtual void onAnalyzer();
    void rixSweepCollections(Rix::Interest interest);
  };
  using Notifiee = NotifieeConst;
  static constexpr Rix::Interest rixCollections = Rix::interestBit(0);
  template <class D>
  static constexpr Rix::Interest rixInterestOf() {
    constexpr bool watched = !requires {
      requires std::is_same_v<decltype(Rix::keyedNotification<Rix::String8 const&>(&D::onAnalyzer)),
                              void (NotifieeConst::*)(Rix::String8 const&)>;
    };
    return watched ? Rix::interestBit(0) : Rix::Interest{0};
  }

  // `root` owns this registry.
  ZebAnalyzerRegistry(Rix::Name const& name, Root* root) : name_(name), root_(root) {}
  static Rix::Type const& rixType();
  Rix::Type const& fwkType() const override { return rixType(); }
  Rix::Name name() const override { return name_; }
  Root* root() const { return root_; }

  // The analyzer of that name, or null.
  Rix::Ptr<ProbeEventsAnalyzerBase> analyzer(Rix::String8 const& key) const { return analyzer_.get(key); }
  U32 analyzers() const { return analyzer_.size(); }
  // Iterates entries with `key` and `value`.
  auto const& analyzerIterator() const { return analyzer_; }
  // Adds an analyzer, or puts it in place of the one of that name.
  void analyzerIs(Rix::String8 const& key, Rix::Ptr<ProbeEventsAnalyzerBase> const& analyzer);
  void analyzerDel(Rix::String8 const& key);
  // Removes the entry on which an iterator of analyzerIterator() stands.
  template <class Iterator>
  requires requires(Iterator& at) { (*at).key; }
  void analyzerDel(Iterator& at) { analyzerDel(Rix::String8((*at).key)); }
  void analyzerDelAll();
  void analyzerNotify(Rix::String8 const& key);

 private:
  Rix::Name const name_;
  Root* const root_;
  Rix::ValueMap<Rix::String8, Rix::Ptr<ProbeEventsAnalyzerBase>> analyzer_;
};

class Root : public Rix::Entity {
 public:
  // Nobody watches the root object: its members are watched each by itself.
  using NotifieeConst = Rix::NotifieeBase;
  using Notifiee = NotifieeConst;

  explicit Root(Rix::Name const& name);
  ~Root() override;
  static Rix::Type const& rixType();
  Rix::Type const& fwkType() const override { return rixType(); }
  Rix::Name name() const override { return name_; }

  // Makes whichever of the four members is missing, which none is after construction.
  void doInit();

  // Every stream ever seen.
  Rix::Ptr<ProbeStreamTable> const& zebStreamTable() const { return zebStreamTable_; }
  Rix::Ptr<ProbeStreamTable> const& zebStreamTableIs(Rix::Name const& name);
  // The last event of each stream.
  Rix::Ptr<ProbeStreamEventTable> const& eventTable() const { return eventTable_; }
  Rix::Ptr<ProbeStreamEventTable> const& eventTableIs(Rix::Name const& name);
  // The events that wait for their analysis, by stream.
  Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDir() const { return zebStreamEventsDir_; }
  Rix::Ptr<ZebProbeStreamEventsDir> const& zebStreamEventsDirIs(Rix::Name const& name);
  // The published status; null until the agent has mounted it.
  Rix::Ptr<ZebStatus> const& zebStatus() const { return zebStatus_; }
  void zebStatusIs(Rix::Ptr<ZebStatus> const& status) { zebStatus_ = status; }
  Rix::Ptr<ZebAnalyzerRegistry> const& analyzerRegistry() const { return analyzerRegistry_; }
  Rix::Ptr<ZebAnalyzerRegistry> const& analyzerRegistryIs(Rix::Name const& name);

 private:
  Rix::Name const name_;
  Rix::Ptr<ProbeStreamTable> zebStreamTable_;
  Rix::Ptr<ProbeStreamEventTable> eventTable_;
  Rix::Ptr<ZebProbeStreamEventsDir> zebStreamEventsDir_;
  Rix::Ptr<ZebStatus> zebStatus_;
  Rix::Ptr<ZebAnalyzerRegistry> analyzerRegistry_;
};

Rix::Ptr<Root> rootFactory(Rix::Name const& name);

// The root object of the current activity; null without an activity, and where the activity's root object is none yet
// or of another kind, as on a switch.
Rix::Ptr<Root> zebRoot();

// The host name of the switch that sends a stream. Its source address in text form while that is not known: without a
// root, for a stream without a record, and for a record without a source. A record that names a switch without a client
// entry ends the process. Changes nothing.
Rix::String8 streamSrcHostname(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId);
// The same of the switch that a stream is sent to, and of the destination address.
Rix::String8 streamDstHostname(Rix::Ptr<Root> const& root, ProbeStreamId const& streamId);

}  // namespace Zeb
