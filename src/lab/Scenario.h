// What a scenario says: the fabric, its probes, the faults, what an operator and the platform change meanwhile, and how
// long the run takes. Plain data, filled by `readScenario` and then only read. Names are resolved: nodes and links go
// by their place in the lists.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/Yaml.h"

namespace Lab {

// One end of a link, and at the same time one of its two directions: the one that this end sends.
struct LinkSide {
  std::size_t link = 0;
  std::size_t side = 0;  // 0 or 1

  LinkSide peer() const { return {link, 1 - side}; }
  auto operator<=>(const LinkSide&) const = default;
};

struct Node {
  std::string name;
  std::optional<unsigned> tier;                            // 1 is lowest
  std::map<std::string, std::vector<std::string>> groups;  // group name to the interfaces that probe in it
};

struct Link {
  struct End {
    std::size_t node;
    std::string interface;
  };
  std::array<End, 2> ends;
};

struct Probe {
  std::string name;
  std::string srcGroup;
  std::string dstGroup;
  std::uint16_t rate = 0;     // per second, at least 1
  std::uint8_t distance = 0;  // the largest TTL, 1 to 254
  std::vector<std::uint16_t> ports;
  bool enabled = true;
  bool operator==(const Probe&) const = default;
};

enum class FaultKind { loss, linkDown, powerOff, freeze };

struct Fault {
  FaultKind kind = FaultKind::loss;
  double at = 0;                     // seconds since probing started
  std::optional<double> until;       // none: stays
  LinkSide where;                    // of loss: the side that sends; of linkDown: the side that is taken down
  double share = 1;                  // of loss: above 0, at most 1
  std::vector<std::uint16_t> ports;  // of loss: source ports that are hit; empty: all that is sent
  std::size_t node = 0;              // of powerOff and freeze
};

enum class ChangeKind { probe, group, address, hostname, service, clear, restart, hash };
enum class Restarted { agent, sonar, centre };

// What an operator, the platform or whoever starts the processes does during a run. Configuration is said as it is from
// then on: whoever carries it out needs no other change to know it (Configuration.h holds all of it at one moment).
struct Change {
  ChangeKind kind = ChangeKind::clear;
  double at = 0;                    // seconds since probing started
  std::optional<std::size_t> node;  // of group, address, hostname, hash; of service: none for the centre's; of restart:
                                    // none for the centre
  std::string name;                 // of probe and group: which; of hostname: the new one
  std::optional<Probe> probe;       // of probe: none, it is removed
  std::optional<std::vector<std::string>> interfaces;  // of group: none, it is removed
  std::string interface;                               // of address
  std::optional<std::uint32_t> address;                // of address: host byte order; none, the interface loses its own
  bool enabled = true;                                 // of service
  Restarted restarted = Restarted::agent;              // of restart
  double down = 0;                                     // of restart: seconds until it is there again
  bool planned = false;                                // of restart of sonar: it is asked to stop, and ends its streams
};

struct Scenario {
  std::string name;
  std::vector<Node> nodes;
  std::vector<Link> links;
  std::vector<Probe> probes;
  std::vector<Fault> faults;
  std::vector<Change> changes;  // in the order of their times, and of the file where those are equal
  double duration = 0;          // seconds
  double convergence = 0.2;     // seconds from a visible change to the new routes
  std::optional<std::uint64_t> seed;
  std::vector<std::string> warnings;  // readable and yet hardly meant, each "file:line: ..."

  const Link::End& end(LinkSide side) const { return links[side.link].ends[side.side]; }
  // "leaf1:eth1", as in a scenario.
  std::string endName(LinkSide side) const { return nodes[end(side).node].name + ":" + end(side).interface; }
};

constexpr std::size_t maxNodes = 256;
constexpr std::size_t maxLinks = 4096;
constexpr std::size_t maxProbes = 64;
constexpr std::size_t maxGroups = 64;  // of one node
constexpr std::size_t maxPorts = 256;  // of one probe or fault
constexpr std::size_t maxFaults = 1024;
constexpr std::size_t maxChanges = 1024;
constexpr double maxDuration = 86400;

// Before this time not every switch has told the centre of every stream: what a fault does then is not what it does
// to a fabric that has settled.
constexpr double settled = 8;

// How long what is restarted is away if the scenario does not say.
constexpr double usualDown = 0.5;

// The scenario that `text` holds; `file` is only for the errors. Throws ScenarioError.
Scenario readScenario(std::string_view text, const std::string& file);
// Of a file. Throws ScenarioError, also if the file cannot be read.
Scenario readScenarioFile(const std::string& path);

// "loss", "link-down", "power-off", "freeze", as in a scenario.
std::string_view faultKindName(FaultKind kind);
// "probe", "group" and so on; "agent", "sonar", "centre".
std::string_view changeKindName(ChangeKind kind);
std::string_view restartedName(Restarted restarted);

}  // namespace Lab
