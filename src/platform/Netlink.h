// What the kernel tells of one network namespace: its interfaces, their addresses, its routes. The watcher belongs to
// a process's event loop, which calls onReadable(); whoever wants to know gets whole snapshots and never half of a
// change. It only reads: no interface, address or route is ever changed from here.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct nl_sock;

namespace Platform {

struct NetworkInterface {
  int index = 0;  // the kernel's number; never used twice while the namespace stands, unlike the name
  std::string name;
  bool up = false;       // as the operator wants it
  bool carrier = false;  // something answers at the other end; false while it is not up
  // The address in host order: the first one of global scope, in the kernel's order. Whatever is first of a narrower
  // scope, as 127.0.0.1 on lo, is passed over. An interface that is down keeps its address.
  std::optional<std::uint32_t> address;

  bool operator==(const NetworkInterface&) const = default;
};

struct NetworkRoute {
  enum class Kind {
    forward,  // unicast, by one of `interfaces`
    local,    // an address of this namespace
    refuse,   // blackhole, unreachable, prohibit: a route that says no
    skip,     // throw: go on with the next table
  };
  std::uint32_t table = 0;
  std::uint32_t destination = 0;  // in host order
  std::uint8_t length = 0;        // of the prefix, 0 to 32
  std::uint32_t priority = 0;     // smaller goes first
  Kind kind = Kind::forward;
  std::vector<int> interfaces;  // the indexes of its next hops that can be used now, in the kernel's order

  bool operator==(const NetworkRoute&) const = default;
};

// All that holds at one moment. A plain value: copy it, keep it, compare it.
struct NetworkSnapshot {
  std::vector<NetworkInterface> interfaces;  // in order of index
  std::vector<NetworkRoute> routes;          // in the order in which routeTo() tries them

  // Null if there is none. The pointers live as long as the snapshot stands unchanged.
  const NetworkInterface* interface(std::string_view name) const;
  const NetworkInterface* interface(int index) const;

  // The route that a packet to `address` takes, null if none; a local address has one too. Follows the tables local,
  // main and default, as the kernel does where nobody has set rules of his own.
  const NetworkRoute* routeTo(std::uint32_t address) const;
  bool hasRouteTo(std::uint32_t address) const { return routeTo(address) != nullptr; }

  bool operator==(const NetworkSnapshot&) const = default;
};

// A stream of UDP packets as the kernel hashes it onto equal paths; addresses in host order.
struct UdpFlow {
  std::uint32_t source = 0;
  std::uint32_t destination = 0;
  std::uint16_t sourcePort = 0;
  std::uint16_t destinationPort = 0;
};

class NetworkWatcher {
 public:
  using ChangeHandler = std::function<void(const NetworkSnapshot&)>;

  // Watches the namespace that the calling thread is in now, and goes on with that one wherever the thread goes
  // later. The first snapshot is there when this returns. Throws std::runtime_error if the kernel refuses.
  explicit NetworkWatcher(ChangeHandler onChange = {});
  NetworkWatcher(const NetworkWatcher&) = delete;
  NetworkWatcher& operator=(const NetworkWatcher&) = delete;
  ~NetworkWatcher();

  // Poll this for input. It is readable when something may have changed.
  int fd() const;

  // Reads all that waits and then the tables as a whole; calls the handler once if they differ from the last
  // snapshot. Does not wait for input. Throws std::runtime_error if the tables cannot be read; the next call tries
  // again.
  void onReadable();

  const NetworkSnapshot& snapshot() const { return snapshot_; }

  // The index of the interface by which the kernel sends this flow at present; nothing if it would not send it: no
  // route, or a source that is no address of this namespace. One question to the kernel, some microseconds.
  std::optional<int> egressInterface(const UdpFlow& flow);

  // How often the kernel dropped events because nobody read them in time. Nothing is lost by that: the tables are
  // read again.
  std::uint64_t overruns() const { return overruns_; }

  // Asks the kernel for an event buffer of so many bytes.
  void eventBufferSizeIs(int bytes);

 private:
  struct CloseSocket {
    void operator()(nl_sock* socket) const;
  };
  using Socket = std::unique_ptr<nl_sock, CloseSocket>;

  static Socket connect();
  bool drainEvents();
  NetworkSnapshot read();

  Socket events_;   // joined to the kernel's groups, only ever read
  Socket request_;  // questions and their answers
  ChangeHandler onChange_;
  NetworkSnapshot snapshot_;
  std::uint64_t overruns_ = 0;
  bool stale_ = true;
};

}  // namespace Platform
