// The view of a real namespace, as its addresses, links and routes change.
#include "sonar/NetworkView.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "sonar/TestNamespaces.h"

namespace Sonar {
namespace {

// Reads what the kernel tells until it is so.
void until(Platform::NetworkWatcher& watcher, NetworkView& view, std::function<bool()> const& reached,
           std::string const& what) {
  while (!reached()) {
    pollfd wait{watcher.fd(), POLLIN, 0};
    require(poll(&wait, 1, 5000) > 0, "not within 5 s: " + what);
    watcher.onReadable();
    view.update();
  }
}

TEST(NetworkView, followsTheKernel) {
  EXPECT_EQ(play([] {
              TwoSwitches const switches;
              Platform::NetworkWatcher watcher;
              NetworkView view(watcher);
              Netkit::IntfId const lo("lo");
              Netkit::IntfId const a0("a0");
              until(
                  watcher, view, [&] { return view.linkUp(a0); }, "link up");
              require(!view.linkUp(Netkit::IntfId("none")), "a link that does not exist is up");
              require(view.sourceAddress(lo) == switches.source, "the address of lo");
              require(view.sourceAddress(Netkit::IntfId("none")) == Netkit::IpAddr(), "the address of no interface");
              require(view.isLocal(switches.source) && !view.isLocal(switches.destination), "local addresses");
              require(view.hasRoute(switches.destination) && view.hasRoute(switches.source), "routes");
              require(!view.hasRoute(switches.nowhere), "a route to nowhere");
              auto egress = [&] { return view.egressIntf(switches.source, switches.destination, 20000); };
              require(egress() == a0, "leaves by " + egress().stringValue());
              ip("link set dev a0 down");
              until(
                  watcher, view, [&] { return !view.linkUp(a0); }, "link down");
              require(!view.hasRoute(switches.destination), "a route by a link that is down");
              require(egress().isEmpty(), "leaves by " + egress().stringValue());
              ip("address add 10.0.0.9/32 dev lo");
              ip("address del 10.0.0.1/32 dev lo");
              until(
                  watcher, view, [&] { return view.sourceAddress(lo) == Netkit::IpAddr(0x0a000009); }, "address");
              require(view.isLocal(Netkit::IpAddr(0x0a000009)) && !view.isLocal(switches.source), "local addresses");
            }),
            "");
}

}  // namespace
}  // namespace Sonar
