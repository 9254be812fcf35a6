// The two ends of the exchange of state: one at the centre, one on each switch.
//
// Between them run links (Transport.h). A switch says hello with its system id, its version and its incarnation, then
// sends a snapshot of each mount, then deltas; the centre sends what it publishes to that switch. Each end applies what
// arrives as input of its own activity, and sends at the end of each turn what the turn has changed.
//
// Trees that travel stand where the agents look for them: on a switch at the declared paths, at the centre as entries
// of the declared directories, named by the switch's system id. While a link is away nothing is noted but what changes;
// when it returns, a snapshot brings the difference. What cannot be read ends the link, with one line in the trace.
//
// Either end may start anew while the other stands:
// - A switch's new end takes over the copy of its orders that stands in its database, and the centre's orders are
// patched
//   into it: what is unchanged is written by nobody. At the centre the reports of the new agent replace the old ones,
//   in one dispatch, when all of them are there.
// - A new centre has the reports that its store holds, and those of the switches that are connected by then, before it
//   reports its group; orders leave after the agent's machines have been made from them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "runtime/Activity.h"
#include "runtime/AttributeLog.h"
#include "runtime/Fabric.h"
#include "runtime/Frames.h"
#include "runtime/Reactor.h"
#include "runtime/Replica.h"
#include "runtime/ReportStore.h"
#include "runtime/Transport.h"

namespace Fabric {

// The version that a switch says: the layout of what it reports.
inline constexpr U32 switchVersion = 1;

// A beat each second shows the loss of a last frame; what is missing is asked for at most twice a second.
inline constexpr Rix::Seconds beatInterval = 1.0;

// How long the report of the group waits for the first reports of switches that are connected.
inline constexpr Rix::Seconds firstReportsTimeout = 2.0;

class Asking {
 public:
  bool mayAsk(Rix::Seconds now);

 private:
  static constexpr Rix::Seconds interval = 0.5;
  Rix::Seconds next_ = -Rix::never;
};

// The record of a mount's type. One that no schema declares: RangeException.
Rix::Record const& recordByName(std::string_view type);

// What stands for the mount of a frame. FrameException if there is no such mount.
template <class Mounts>
auto& mountOf(Mounts const& mounts, Rix::FrameHeader const& header) {
  if (header.mount >= mounts.size()) {
    throw Rix::FrameException("malformed frame: mount: expected below " + std::to_string(mounts.size()) + ", found " +
                              std::to_string(header.mount));
  }
  return *mounts[header.mount];
}

// The publications of one end that have something to send at the end of the turn, in the order in which they came.
class Publication;
class Outbox {
 public:
  explicit Outbox(Rix::Activity& activity);
  ~Outbox();
  Outbox(Outbox const&) = delete;
  Outbox& operator=(Outbox const&) = delete;

  void add(Publication& publication);
  void remove(Publication& publication);

 private:
  std::vector<Publication*> waiting_;
  std::shared_ptr<Outbox*> self_;  // emptied when this goes: an activity keeps its flushes
};

// One mount's tree on the side of its writer.
class Publication {
 public:
  Publication(Outbox& outbox, U16 mount, Rix::Record const& record, U64 incarnation);
  ~Publication();
  Publication(Publication const&) = delete;
  Publication& operator=(Publication const&) = delete;

  Rix::Record const& record() const { return record_; }
  // The tree to tell, or null for none. One of another type counts as none.
  void rootIs(Rix::Ptr<Rix::Entity> const& root);
  // Who reads, or null. A new reader gets a snapshot.
  void linkIs(Link* link);
  // The reader has missed something.
  void snapshotWanted();
  void sendBeat();
  // Sends what waits. The outbox calls it.
  void flush();

 private:
  void send(Rix::FrameKind kind, std::string_view payload);

  Outbox& outbox_;
  U16 const mount_;
  Rix::Record const& record_;
  U32 const schemaHash_;
  U64 const incarnation_;
  U64 sequence_ = 0;
  U32 nextSerial_ = 1;
  Link* link_ = nullptr;
  bool snapshotWanted_ = false;
  std::unique_ptr<Rix::AttributeLog> log_;
};

// One mount's tree on the side of its reader.
class Subscription {
 public:
  Subscription(Rix::Record const& record, Rix::Replica::NewWriter newWriter, Rix::Replica::RootChanged rootChanged);

  Rix::Replica& replica() { return replica_; }
  Rix::Replica const& replica() const { return replica_; }
  // The writer presents itself on a new link.
  void writerIs(U64 incarnation);
  void disconnected();
  // While held, complete snapshots wait in place of being applied. Releasing applies what waits.
  void heldIs(bool held);
  // While not wanted, what comes is dropped, and the tree goes. When it is wanted again a snapshot is to be asked for.
  void wantedIs(bool wanted);
  bool wanted() const { return wanted_; }
  // Neither a snapshot nor the word that there is none has come since writerIs.
  bool awaited() const { return wanted_ && !sequence_.synchronised() && !first_; }

  // The tree with its writer, to be restored by a later process; empty if there is no tree.
  std::string stored() const;
  // Puts back what was stored, before any writer presents itself. FrameException if the bytes are no such thing.
  void restore(std::string_view bytes);

  // Takes a frame of this mount. False: something is missing, and a snapshot is to be asked for. FrameException.
  bool take(Rix::Frame const& frame);

 private:
  struct Message {
    Rix::FrameHeader header;
    std::string payload;
  };
  bool takeMessage(Rix::FrameHeader const& header, std::string_view payload);
  void apply(Rix::FrameHeader const& header, std::string_view payload);

  U32 const schemaHash_;
  U64 writer_ = 0;   // of the present link
  U64 applied_ = 0;  // whose snapshot was applied last
  Rix::Replica replica_;
  Rix::MessageAssembler assembler_;
  Rix::SequenceCheck sequence_;
  bool held_ = false;
  bool wanted_ = true;
  std::optional<Message> first_;
};

// Calls back at a time, and with each entity that comes to a directory or goes: watchers for objects that are no
// reactors themselves.
class Alarm : public Rix::Reactor<Alarm> {
 public:
  explicit Alarm(std::function<void()> ring);
  void timeIs(Rix::Seconds time) { clock_.timeMinIs(time); }
  template <class F>
  void rixParts(F&& f) {
    f(clock_);
  }

 private:
  struct RixClock : Rix::Watch<RixClock, Rix::Clock, Alarm> {
    using Watch::Watch;
    void onTime() override { owner().ring_(); }
  };
  std::function<void()> const ring_;
  RixClock clock_{this};
};

class DirWatch : public Rix::Reactor<DirWatch> {
 public:
  // Told at once of what is there.
  DirWatch(Rix::Ptr<Rix::Dir> const& dir, std::function<void(Rix::Name const&)> changed);
  template <class F>
  void rixParts(F&& f) {
    f(dir_);
  }

 private:
  struct RixDir : Rix::Watch<RixDir, Rix::Dir const, DirWatch> {
    using Watch::Watch;
    void onEntityPtr(Rix::Name const& name) override { owner().changed_(name); }
  };
  std::function<void(Rix::Name const&)> const changed_;
  RixDir dir_{this};
};

// One declared mount, as a switch sees it.
struct SwitchMount {
  std::string path;
  std::string type;
};

class SwitchEnd final : LinkUser {
 public:
  struct Identity {
    std::string systemId;  // its text form
    U64 incarnation = 1;   // another one at each start of the agent
    U32 version = switchVersion;
  };
  // `reported` goes to the centre, `ordered` comes from it, each in the order in which the service declares them. An
  // unknown type: RangeException. Links count from now on: make it when the agent's machines stand. What stands at an
  // ordered mount is the copy that an earlier end has left, and is kept. The activity and the transport must outlive
  // it.
  SwitchEnd(Rix::Activity& activity, Transport& transport, Rix::Ptr<Atlas::EntityManager> const& entityManager,
            Identity identity, std::vector<SwitchMount> const& reported, std::vector<SwitchMount> const& ordered);
  ~SwitchEnd();

  bool connected() const { return link_ != nullptr; }
  // How many frames could not be read, each of which ended a link.
  U64 malformedFrames() const { return malformedFrames_; }

 private:
  void linkConnected(Link& link) override;
  void linkReceived(Link& link, std::string_view frame) override;
  void linkDisconnected(Link& link) override;
  void handleFrame(Rix::Frame const& frame);
  void handleBeat();
  // The directory and the name that a path means.
  std::pair<Rix::Ptr<Rix::Dir>, Rix::Name> place(std::string_view path);

  Rix::Activity& activity_;
  Transport& transport_;
  Rix::Ptr<Atlas::EntityManager> const entityManager_;
  Identity const identity_;
  Link* link_ = nullptr;
  U64 malformedFrames_ = 0;
  Outbox outbox_;
  std::vector<std::unique_ptr<Publication>> publications_;
  std::vector<std::unique_ptr<Subscription>> subscriptions_;
  std::vector<Asking> asking_;
  std::vector<Rix::Ptr<DirWatch>> watches_;
  Rix::Ptr<Alarm> beat_;
};

class CentralEnd final : public ServiceHost, LinkUser {
 public:
  // The most switches that one centre takes on.
  static constexpr std::size_t maxSwitches = 16384;

  // `entityManager` is the database of the central directories. `incarnation`: another one at each start. `reports`,
  // which may be null, holds the last reports of a group that preserves its mounts. The activity, the transport and the
  // store must outlive it.
  CentralEnd(Rix::Activity& activity, Transport& transport, Rix::Ptr<Atlas::EntityManager> const& entityManager,
             U64 incarnation, ReportStore* reports = nullptr);
  ~CentralEnd();

  Rix::Ptr<Atlas::EntityManager> const& entityManager() const override { return entityManager_; }
  // Serves the service's groups; one service of one group is what there is. Links count from now on. The group is
  // reported as the next input, or, if there are switches by then that have presented themselves, when the first report
  // of each has been applied or its link has gone, and at the latest after `firstReportsTimeout`.
  void serviceClosed(Rix::Ptr<FabricdbService> const& service) override;
  void machinesStand(Rix::Ptr<FabricdbService> const& service, bool stand) override;

  U64 malformedFrames() const { return malformedFrames_; }
  // Links that were ended because of an unknown version, a name that is no identity, or too many switches.
  U64 refusedSwitches() const { return refusedSwitches_; }
  bool connected(std::string_view systemId) const;

 private:
  struct Switch;

  void linkConnected(Link& link) override;
  void linkReceived(Link& link, std::string_view frame) override;
  void linkDisconnected(Link& link) override;

  void handleHello(Link& link, Rix::Frame const& frame);
  void handleFrame(Switch& each, Rix::Frame const& frame);
  void handleGroup();
  void handleGroupTimeout();
  void handleFirst(Switch& each);
  void handleMachines(bool stand);
  void handleEntry(std::size_t publishMount, Rix::Name const& name);
  void handleBeat();
  void flushReports();

  bool stores(FabricMount const& mount) const;
  void restoreReports();
  void ask(Switch& each, std::size_t mount);
  void linkPublications(Switch& each);
  void makeOrders(Switch const& each);
  bool firstReportsAwaited() const;
  void reportGroup();
  Switch& switchIs(std::string const& systemId);
  void refuse(Link& link, std::string const& why);
  void tell(Switch const& each, MountState state);

  Rix::Activity& activity_;
  Transport& transport_;
  Rix::Ptr<Atlas::EntityManager> const entityManager_;
  U64 const incarnation_;
  ReportStore* const reports_;
  U64 malformedFrames_ = 0;
  U64 refusedSwitches_ = 0;
  Outbox outbox_;
  Rix::Ptr<FabricdbService> service_;
  Rix::Ptr<FabricdbServiceMountGroup> group_;
  std::vector<Rix::Ptr<DirWatch>> watches_;
  std::map<std::string, std::unique_ptr<Switch>> switches_;
  std::map<Link*, Switch*> links_;  // null until hello. Looked up, never walked
  std::set<std::string> changed_;   // whose reports have changed in this turn
  bool closed_ = false;             // the group is to be reported as soon as no first report is awaited
  bool reported_ = false;
  std::optional<bool> machines_;  // as the agent has said
  Rix::Ptr<Alarm> beat_;
  Rix::Ptr<Alarm> firstReportsTimer_;
  std::shared_ptr<CentralEnd*> self_;  // emptied when this goes: for what was posted, and for the activity's flushes
};

}  // namespace Fabric
