// From the configuration's record to plain orders.
#include "sonar/Orders.h"

#include "model/gen/Sonar.h"

namespace Sonar {

namespace {

// The keys that count: those with the value true.
template <class Key>
std::set<Key> keysOf(Rix::ValueMap<Key, bool> const& map) {
  std::set<Key> keys;
  for (auto const& entry : map) {
    if (entry.value) keys.insert(entry.key);
  }
  return keys;
}

}  // namespace

Orders ordersOf(Config const& config, U64 configuration) {
  Orders orders{.configuration = configuration, .enabled = config.enabled(), .robustness = config.robustness()};
  for (auto const& transmitter : config.transmitterIterator()) {
    TransmitterOrder& order = orders.transmitters[std::string(transmitter->name().view())];
    order.enabled = transmitter->enabled();
    order.sources = keysOf(transmitter->sourceInterfaceIterator());
    order.destinations = keysOf(transmitter->ipDestIterator());
    for (auto const& entry : transmitter->hopsRateIterator()) order.hopsRate.emplace(entry.key, entry.value);
    order.ports = keysOf(transmitter->optionalSourcePortListIterator());
  }
  return orders;
}

}  // namespace Sonar
