// Who has which side of a link, and how the numbers read as texts.
#include "lab/Topology.h"

#include <arpa/inet.h>

#include <cstdio>

namespace Lab {

Topology::Topology(const Scenario& scenario) : scenario_(scenario), sides_(scenario.nodes.size()) {
  for (std::size_t link = 0; link < scenario.links.size(); ++link)
    for (const std::size_t side : {0u, 1u}) sides_[scenario.links[link].ends[side].node].push_back({link, side});
}

std::uint32_t Topology::address(std::size_t node, const std::string& interface) const {
  if (interface == "lo") return loopback(node);
  for (const LinkSide side : sides_[node])
    if (scenario_.end(side).interface == interface) return address(side);
  return 0;
}

std::string addressText(std::uint32_t address) {
  char text[16];
  std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, address >> 16 & 0xff, address >> 8 & 0xff,
                address & 0xff);
  return text;
}

std::optional<std::uint32_t> addressFromText(const std::string& text) {
  in_addr address{};
  if (::inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  const std::uint32_t value = ntohl(address.s_addr);
  const std::uint32_t network = value >> 24;
  if (network == 0 || network == 127 || network >= 224) return std::nullopt;
  return value;
}

std::string ethernetText(std::uint64_t address) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", static_cast<unsigned>(address >> 40 & 0xff),
                static_cast<unsigned>(address >> 32 & 0xff), static_cast<unsigned>(address >> 24 & 0xff),
                static_cast<unsigned>(address >> 16 & 0xff), static_cast<unsigned>(address >> 8 & 0xff),
                static_cast<unsigned>(address & 0xff));
  return text;
}

}  // namespace Lab
