// Attaching and polling. What a poll does is the same for both tables.
#include "model/SonarLocalStatus.h"

#include "runtime/TypeOf.h"

namespace Sonar {

namespace {

// Where there are no tables.
class NoStorage : public Shelf::Storage {
 public:
  std::unique_ptr<Shelf::Mapping> openForReading(std::string const&) override { return nullptr; }
  std::unique_ptr<Shelf::Mapping> openForWriting(std::string const&) override { return nullptr; }
  std::unique_ptr<Shelf::Mapping> create(std::string const& path, std::size_t,
                                         std::function<void(Shelf::Mapping&)> const&) override {
    throw Vesta::StorageException(path + ": there is no storage for tables here");
  }
  void textFileIs(std::string const&, std::string_view) override {}
};
NoStorage noStorage;

}  // namespace

LocalStatus::LocalStatus() : LocalStatus(noStorage, Shelf::RootPath{}) {}
LocalStatus::LocalStatus(Shelf::Storage& storage, Shelf::RootPath const& root) {
  tablesAre(storage, root);
}
LocalStatus::~LocalStatus() = default;

Rix::Type const& LocalStatus::rixType() {
  static Rix::Type const type = Rix::typeOf<LocalStatus>("Sonar::LocalStatus");
  return type;
}
namespace {
Rix::TypeRegistration const registration(LocalStatus::rixType());
}

void LocalStatus::NotifieeConst::onIngressStreamStatisticsTable() {
  Rix::Ptr<LocalStatus> notifier(static_cast<LocalStatus*>(rixNotifier()));
  if (!notifier) return;
  visitKeys(notifier->ingressStreamStatisticsTable(),
            [this](IngressStream const& key) { onIngressStreamStatisticsTable(key); });
}
void LocalStatus::NotifieeConst::onEgressStreamTable() {
  Rix::Ptr<LocalStatus> notifier(static_cast<LocalStatus*>(rixNotifier()));
  if (!notifier) return;
  visitKeys(notifier->egressStreamTable(), [this](EgressStream const& key) { onEgressStreamTable(key); });
}

void LocalStatus::tablesAre(Shelf::Storage& storage, Shelf::RootPath const& root) {
  ingress_ = std::make_unique<Table<IngressStreamReader>>(storage, root, ingressStreamStatisticsTableName);
  egress_ = std::make_unique<Table<EgressStreamReader>>(storage, root, egressStreamTableName);
}

template <class Reader, class TellAll, class Tell>
bool LocalStatus::pollTable(Table<Reader>& table, TellAll const& tellAll, Tell const& tell) {
  bool more = false;
  guardedRead(table.reader, [&] {
    if (!table.awaited) {
      more = table.reader.poll(tell).more;
      return;
    }
    // A file that turns out corrupt is not tried again; one that the system refuses is.
    table.awaited = false;
    try {
      table.awaited = !table.reader.attach();
    } catch (Vesta::StorageException const&) {
      table.awaited = true;
      throw;
    }
    if (table.awaited) return;
    table.reader.notifying(true);
    tellAll();
  });
  return more;
}

bool LocalStatus::poll() {
  bool const moreIngress = pollTable(
      *ingress_,
      [this] {
        rixNotify<NotifieeConst>(0, [](NotifieeConst& notifiee) { notifiee.onIngressStreamStatisticsTable(); });
      },
      [this](IngressStream const& key) {
        rixNotify<NotifieeConst>(0, [&](NotifieeConst& notifiee) { notifiee.onIngressStreamStatisticsTable(key); });
      });
  bool const moreEgress = pollTable(
      *egress_,
      [this] { rixNotify<NotifieeConst>(1, [](NotifieeConst& notifiee) { notifiee.onEgressStreamTable(); }); },
      [this](EgressStream const& key) {
        rixNotify<NotifieeConst>(1, [&](NotifieeConst& notifiee) { notifiee.onEgressStreamTable(key); });
      });
  return moreIngress || moreEgress;
}

}  // namespace Sonar
