// What it costs the centre to turn configuration and reports into orders: intake, group builder and publisher, in one
// process, without packets or connections.
//
// Half of the switches are in one group, half in another, each with one address, and every probe goes between the two.
// So each switch has one order for each probe, with every switch of the other half as a destination. The cold start
// finds everything configured and reported, and enables the service: one dispatch, at whose end all orders stand. Then
// come one more switch, one changed rate, one switch that leaves its group, one probe removed, and the disabling.
//
//   bench_configuration                   the whole table
//   bench_configuration SWITCHES PROBES   one row
//
// Each row runs in a process of its own, so that its memory is its own. A row whose orders are not complete ends the
// program with status 1.
#include "Rows.h"
#include "config/ZebConfigMountSm.h"
#include "config/ZebGroupBuilderSm.h"
#include "config/ZebPublisherSm.h"

namespace {

using namespace Zeb;

Fabric::SystemId switchId(U32 number) {
  return Fabric::SystemId(Netkit::EthAddr({2, 0, 0, 0, static_cast<U8>(number >> 8), static_cast<U8>(number)}));
}
char const* groupOf(U32 number) {
  return number % 2 == 0 ? "left" : "right";
}

class Centre {
 public:
  Centre(U32 switches, U32 probes) {
    for (U32 i = 0; i < switches; ++i) switchIs(i);
    for (U32 i = 0; i < probes; ++i) {
      auto const probe = Rix::make<ZebProbeConfig>(probeName(i));
      probe->srcGroupIs("left");
      probe->dstGroupIs("right");
      probe->rateIs(10);
      probe->distanceIs(4);
      for (U16 port = 33434; port < 33438; ++port) probe->portIs(port, true);
      probe->enabledIs(true);
      config->probeConfigAdopt(probe);
    }
  }
  static Rix::Name probeName(U32 number) { return "probe" + std::to_string(number); }

  void switchIs(U32 number) const {
    Rix::Name const name(switchId(number).stringValue());
    auto const report = Rix::make<ClientConfig>();
    report->hostnameIs("switch" + std::to_string(number));
    report->groupIs(groupOf(number))->interfaceIpIs("lo", Netkit::IpAddr(0x0a000001U + number));
    waveConfigDir->entityPtrIs(name, Rix::make<ZebSonarConfigV1>());
    clientConfigDir->entityPtrIs(name, report);
  }
  void leave(U32 number) const {
    Rix::Name const name(switchId(number).stringValue());
    Rix::dynamicCast<ClientConfig>(clientConfigDir->entityPtr(name))->groupDel(groupOf(number));
  }
  void enabledIs(bool enabled) {
    if (enabled) {
      intake_.is(Rix::Ptr<Rix::Dir const>(clientConfigDir), status);
      groupBuilder_.is(Rix::Ptr<ZebConfig const>(config), status);
      publisher_.is(Rix::Ptr<ZebConfig const>(config), Rix::Ptr<ZebStatus const>(status), waveConfigDir);
    } else {
      intake_.del();
      groupBuilder_.del();
      publisher_.del();
    }
  }

  struct Count {
    U64 orders = 0;
    U64 destinations = 0;
    U64 hopsOfRate = 0;
    friend bool operator==(Count const&, Count const&) = default;
  };
  Count count(U16 rate) const {
    Count count;
    for (auto const& [name, entity] : waveConfigDir->entityPtrIterator()) {
      for (auto const& order : dynamic_cast<ZebSonarConfigV1 const&>(*entity).transmitterIterator()) {
        ++count.orders;
        count.destinations += order->ipDests();
        for (auto const& [hop, hopRate] : order->hopsRateIterator()) count.hopsOfRate += hopRate.rate == rate ? 1U : 0U;
      }
    }
    return count;
  }

  Rix::Ptr<ZebConfig> const config = Rix::make<ZebConfig>();
  Rix::Ptr<ZebStatus> const status = Rix::make<ZebStatus>();
  Rix::Ptr<Rix::Dir> const clientConfigDir = Rix::make<Rix::Dir>("configDir");
  Rix::Ptr<Rix::Dir> const waveConfigDir = Rix::make<Rix::Dir>("waveConfigDir");

 private:
  Rix::Owned<ZebConfigMountSm> intake_;
  Rix::Owned<ZebGroupBuilderSm> groupBuilder_;
  Rix::Owned<ZebPublisherSm> publisher_;
};

void expect(Centre::Count const& found, Centre::Count const& expected, char const* when) {
  if (found == expected) return;
  std::fprintf(stderr,
               "bench_configuration: after %s: %llu orders, %llu destinations and %llu hops, expected %llu, "
               "%llu and %llu\n",
               when, static_cast<unsigned long long>(found.orders), static_cast<unsigned long long>(found.destinations),
               static_cast<unsigned long long>(found.hopsOfRate), static_cast<unsigned long long>(expected.orders),
               static_cast<unsigned long long>(expected.destinations),
               static_cast<unsigned long long>(expected.hopsOfRate));
  std::exit(1);
}

template <class Action>
double milliseconds(Action const& action) {
  return Rows::seconds(action) * 1e3;
}

void row(U32 switches, U32 probes) {
  Centre centre(switches, probes);
  std::size_t const before = Rows::usedMemory();
  double const start = milliseconds([&] { centre.enabledIs(true); });
  auto const memory = static_cast<double>(Rows::usedMemory() - before);

  // With l switches on the left and r on the right, each probe has l + r orders and 2 l r destinations.
  U64 left = (switches + 1) / 2;
  U64 right = switches / 2;
  auto const all = [&](U64 each) { return Centre::Count{each * (left + right), each * 2 * left * right, 0}; };
  expect(centre.count(20), all(probes), "the start");
  auto const destinations = static_cast<double>(all(probes).destinations);

  double const more = milliseconds([&] { centre.switchIs(switches); });
  (switches % 2 == 0 ? left : right) += 1;
  expect(centre.count(20), all(probes), "one more switch");

  double const rate = milliseconds([&] { centre.config->probeConfig(Centre::probeName(0))->rateIs(20); });
  auto expected = all(probes);
  expected.hopsOfRate = 4 * (left + right);
  expect(centre.count(20), expected, "a changed rate");

  double const leave = milliseconds([&] { centre.leave(0); });
  left -= 1;
  expected = all(probes);
  expected.hopsOfRate = 4 * (left + right);
  expect(centre.count(20), expected, "a removed group");

  double const remove = milliseconds([&] { centre.config->probeConfigDel(Centre::probeName(0)); });
  expect(centre.count(20), all(probes - 1), "a removed probe");
  double const disable = milliseconds([&] { centre.enabledIs(false); });
  expect(centre.count(20), {}, "the end");

  std::printf("%8u %6u %7u %12.0f %10.1f %9.1f %6.0f %9.3f %9.3f %9.3f %9.2f %9.1f\n", switches, probes,
              switches * probes, destinations, start, memory / (1 << 20), memory / destinations, more, rate, leave,
              remove, disable);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 1 && argc != 3) {
    std::fprintf(stderr, "usage: bench_configuration [SWITCHES PROBES]\n");
    return 2;
  }
  std::printf("%8s %6s %7s %12s %10s %9s %6s %9s %9s %9s %9s %9s\n", "switches", "probes", "orders", "destinations",
              "start", "memory", "each", "switch+", "rate", "group-", "probe-", "disable");
  std::printf("%8s %6s %7s %12s %10s %9s %6s %9s %9s %9s %9s %9s\n", "", "", "", "", "ms", "MiB", "bytes", "ms", "ms",
              "ms", "ms", "ms");
  std::fflush(stdout);
  if (argc == 3) {
    row(Rows::number("bench_configuration", argv[1], 1, 10'000), Rows::number("bench_configuration", argv[2], 1, 100));
    return 0;
  }
  for (U32 const probes : {1U, 10U}) {
    for (U32 const switches : {10U, 100U, 300U, 1000U}) {
      Rows::inItsOwnProcess([=] { row(switches, probes); });
    }
  }
  return 0;
}
