// Sonar::LocalStatus: the probing service's two shared tables as an entity, at "sonar/localStatus" on a switch.
//
// The tables stand in shared memory and change at the service's own pace, so nobody's write notifies. The host polls,
// and a poll tells watchers, key by key, of the rows that changed. Nothing here writes a table, and nothing here is
// replicated.
#pragma once

#include <memory>

#include "model/SonarTables.h"
#include "runtime/Entity.h"
#include "runtime/Watch.h"

namespace Sonar {

class LocalStatus : public Rix::Entity {
 public:
  class NotifieeConst : public Rix::NotifieeBase {
   public:
    // A row was added, changed or removed. Without a key: a table came as a whole.
    virtual void onIngressStreamStatisticsTable(IngressStream const&) {}
    virtual void onIngressStreamStatisticsTablerixImmediate() { onIngressStreamStatisticsTable(); }
    virtual void onIngressStreamStatisticsTable();
    virtual void onEgressStreamTable(EgressStream const&) {}
    virtual void onEgressStreamTablerixImmediate() { onEgressStreamTable(); }
    virtual void onEgressStreamTable();

    void rixSweepCollections(Rix::Interest) {}
  };
  using Notifiee = NotifieeConst;
  // An attach does not walk the tables: their readers do that themselves, once they are ready for the rows.
  static constexpr Rix::Interest rixCollections = 0;

  template <class D>
  static constexpr Rix::Interest rixInterestOf() {
    Rix::Interest interest = 0;
    if constexpr (!requires {
                    requires std::is_same_v<decltype(Rix::keyedNotification<IngressStream const&>(
                                                &D::onIngressStreamStatisticsTable)),
                                            void (NotifieeConst::*)(IngressStream const&)>;
                  })
      interest |= Rix::interestBit(0);
    if constexpr (!requires {
                    requires std::is_same_v<decltype(Rix::keyedNotification<EgressStream const&>(
                                                &D::onEgressStreamTable)),
                                            void (NotifieeConst::*)(EgressStream const&)>;
                  })
      interest |= Rix::interestBit(1);
    return interest;
  }

  /// Without tables: both read as empty.
  LocalStatus();
  /// With the tables below `root`. `storage` outlives the entity.
  LocalStatus(Shelf::Storage& storage, Shelf::RootPath const& root);
  ~LocalStatus() override;
  static Rix::Type const& rixType();
  Rix::Type const& fwkType() const override { return rixType(); }
  using RixConstants = std::tuple<>;

  /// Reads the tables below `root` from the next poll on, in place of those before. `storage` outlives the entity.
  /// Not while a table is being read.
  void tablesAre(Shelf::Storage& storage, Shelf::RootPath const& root);

  // The readers. Reading moves their inner state, so they are handed out as they are to who may only read the entity.
  IngressStreamReader& ingressStreamStatisticsTable() const { return ingress_->reader; }
  EgressStreamReader& egressStreamTable() const { return egress_->reader; }

  /// Takes up tables whose files have come, and tells of the rows that changed since the last poll: a bounded number.
  /// To be called at least every 20 ms. Returns whether more is waiting. A table found corrupt is given up until the
  /// tables are set anew. Throws Vesta::StorageException where the system refuses a file.
  bool poll();

 private:
  template <class Reader>
  struct Table {
    Table(Shelf::Storage& storage, Shelf::RootPath const& root, char const* name) : reader(storage, root, name) {}
    Reader reader;
    bool awaited = true;  // its file was not there yet
  };
  template <class Reader, class TellAll, class Tell>
  bool pollTable(Table<Reader>& table, TellAll const& tellAll, Tell const& tell);

  std::unique_ptr<Table<IngressStreamReader>> ingress_;
  std::unique_ptr<Table<EgressStreamReader>> egress_;
};

}  // namespace Sonar
