// Ties the service to the kernel, the shared tables and the records.
#include "sonar/KernelService.h"

#include <sys/epoll.h>

namespace Sonar {

namespace {

// What stands in the table. One that somebody else has spoiled is begun anew.
template <class Row, class Writer>
std::vector<Row> rowsOf(Writer& writer) {
  std::vector<Row> rows;
  try {
    writer.rows([&](Row const& row) { rows.push_back(row); });
  } catch (Vesta::CorruptionDetectedException const&) {
    rows.clear();
    writer.rowDelAll();
  }
  return rows;
}

}  // namespace

KernelService::IngressRows::IngressRows(Shelf::Storage& storage, Options const& options)
    : writer(storage, options.tables, ingressStreamStatisticsTableName, ingressStreamStatisticsTableType,
             {.capacity = options.capacity}) {}

std::vector<IngressStreamStatisticsTableEntry> KernelService::IngressRows::rows() {
  return rowsOf<IngressStreamStatisticsTableEntry>(writer);
}

KernelService::EgressRows::EgressRows(Shelf::Storage& storage, Options const& options)
    : writer(storage, options.tables, egressStreamTableName, egressStreamTableType, {.capacity = options.capacity}) {}

std::vector<EgressStreamTable> KernelService::EgressRows::rows() {
  return rowsOf<EgressStreamTable>(writer);
}

void KernelService::StreamMap::transmittersAre(EgressStream const& stream, std::set<std::string> const& transmitters) {
  activity.post([status = status, stream, transmitters] {
    TransmitterList* const list = status->streamTransmitterMapIs(stream);
    for (auto const& entry : list->transmitterIterator()) {
      if (!transmitters.contains(std::string(entry.key.view()))) list->transmitterDel(Rix::String8(entry.key));
    }
    for (std::string const& name : transmitters) list->transmitterIs(name, true);
  });
}

void KernelService::StreamMap::streamDel(EgressStream const& stream) {
  activity.post([status = status, stream] { status->streamTransmitterMapDel(stream); });
}

KernelService::KernelService(Platform::EventLoop& loop, Rix::Activity& activity, Shelf::Storage& storage,
                             Options const& options, Records records)
    : loop_(loop),
      activity_(activity),
      records_(std::move(records)),
      ingress_(storage, options),
      egress_(storage, options),
      map_(activity, records_.status),
      view_(watcher_),
      packets_(options.tap),
      service_(
          std::make_unique<Service>(options.service, Service::Surroundings{view_, packets_, ingress_, egress_, map_})),
      self_(std::make_shared<KernelService*>(this)) {
  service_->adopt(Platform::monotonicSeconds(), ingress_.rows(), egress_.rows());
  service_->switchChanged(Platform::monotonicSeconds());
  activity_.dispatch([this] { records_.status->runningIs(true); });
  for (int const fd : service_->fds()) {
    loop_.add(fd, EPOLLIN, [this](std::uint32_t) { service_->onReadable(Platform::monotonicSeconds()); });
  }
  loop_.add(watcher_.fd(), EPOLLIN, [this](std::uint32_t) {
    watcher_.onReadable();
    handleNetwork();
  });
  // The log tells that something below the record has changed; what it is, the record itself shows.
  configLog_ = std::make_unique<Rix::AttributeLog>(records_.config, 1, [this] { configChanged_ = true; });
  activity_.flushIs([self = self_] {
    if (*self && (*self)->configChanged_) (*self)->handleConfig();
  });
  handleConfig();
}

KernelService::~KernelService() {
  *self_ = nullptr;
  for (int const fd : service_->fds()) loop_.remove(fd);
  loop_.remove(watcher_.fd());
}

void KernelService::handleConfig() {
  configLog_->record();
  configChanged_ = false;
  service_->ordersAre(Platform::monotonicSeconds(), ordersOf(*records_.config, 1));
}

void KernelService::handleNetwork() {
  view_.update();
  service_->switchChanged(Platform::monotonicSeconds());
}

}  // namespace Sonar
