// The probing service on a real switch: real packets, the kernel's links and routes, shared tables, and the records by
// which the switch's agent and the service know each other. Whoever runs the service makes one of these, gives it the
// process's loop and the records, and asks it for its next deadline.
//
// The service follows Sonar::Config at the end of each turn of the activity in which the record stands, and writes
// Sonar::Status in turns of its own there. Its tables belong to nobody else, and outlive it: the next one goes on with
// what they hold.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/SonarTables.h"
#include "model/gen/Sonar.h"
#include "platform/EventLoop.h"
#include "platform/Netlink.h"
#include "platform/SharedMemory.h"
#include "runtime/Activity.h"
#include "runtime/AttributeLog.h"
#include "sonar/NetworkView.h"
#include "sonar/Sonar.h"

namespace Sonar {

class KernelService {
 public:
  struct Options {
    Service::Options service;
    Shelf::RootPath tables;          ///< where the tables' files stand
    std::uint32_t capacity = 65536;  ///< rows of each table
    KernelPacketIo::TapMode tap = KernelPacketIo::TapMode::open;
  };
  struct Records {
    Rix::Ptr<Config> config;
    Rix::Ptr<Status> status;
  };

  /// Opens everything in the network namespace of the calling thread. `loop`, `activity` and `storage` outlive this.
  /// Throws std::system_error, std::runtime_error or Vesta::StorageException if something cannot be had.
  KernelService(Platform::EventLoop& loop, Rix::Activity& activity, Shelf::Storage& storage, Options const& options,
                Records records);
  ~KernelService();
  KernelService(KernelService const&) = delete;
  KernelService& operator=(KernelService const&) = delete;

  /// The switch's agent is a new one: see `Service`.
  void agentRestarted() { service_->agentRestarted(Platform::monotonicSeconds()); }
  /// For a stop that is to last longer than a moment: see `Service`. This may go at once, or be driven on until
  /// it has `stopped`.
  void stop() { service_->stop(Platform::monotonicSeconds()); }
  bool stopped() const { return service_->stopped(); }

  Rix::Seconds nextDeadline() const { return service_->nextDeadline(); }
  void onTimer(Rix::Seconds now) { service_->onTimer(now); }

  Service const& service() const { return *service_; }

 private:
  struct IngressRows : IngressTable {
    IngressStreamWriter writer;
    IngressRows(Shelf::Storage& storage, Options const& options);
    std::vector<IngressStreamStatisticsTableEntry> rows();
    void rowIs(IngressStreamStatisticsTableEntry const& row) override { writer.rowIs(row); }
    void rowDel(IngressStream const& key) override { writer.rowDel(key); }
  };
  struct EgressRows : EgressTable {
    EgressStreamWriter writer;
    EgressRows(Shelf::Storage& storage, Options const& options);
    std::vector<EgressStreamTable> rows();
    void rowIs(EgressStreamTable const& row) override { writer.rowIs(row); }
    void rowDel(EgressStream const& key) override { writer.rowDel(key); }
  };
  struct StreamMap : StreamTransmitterMap {
    Rix::Activity& activity;
    Rix::Ptr<Status> status;
    StreamMap(Rix::Activity& activityOfStatus, Rix::Ptr<Status> statusRecord)
        : activity(activityOfStatus), status(std::move(statusRecord)) {}
    void transmittersAre(EgressStream const& stream, std::set<std::string> const& transmitters) override;
    void streamDel(EgressStream const& stream) override;
  };

  void handleConfig();
  void handleNetwork();

  Platform::EventLoop& loop_;
  Rix::Activity& activity_;
  Records records_;
  IngressRows ingress_;
  EgressRows egress_;
  StreamMap map_;
  Platform::NetworkWatcher watcher_;
  NetworkView view_;
  KernelPacketIo packets_;
  std::unique_ptr<Service> service_;
  bool configChanged_ = true;
  std::unique_ptr<Rix::AttributeLog> configLog_;
  std::shared_ptr<KernelService*> self_;  // emptied when this goes: an activity keeps what was posted
};

}  // namespace Sonar
