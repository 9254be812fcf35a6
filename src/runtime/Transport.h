// Fabric::Transport: what carries frames between a switch and the centre, whichever way that is done.
//
// An end gives its transport a LinkUser and hears of links that come, of what they bring, and of their end: always as
// input of its own activity, never nested in a call of the other end or in its own call of `send`. Links come again by
// themselves: a transport on the side of a switch tries until it succeeds.
#pragma once

#include <string_view>

namespace Fabric {

// One connection, as one end holds it. It stands from linkConnected until linkDisconnected has returned.
class Link {
 public:
  // Takes one frame, and never waits. What cannot be kept for sending ends the link.
  virtual void send(std::string_view frame) = 0;
  // Ends the link; linkDisconnected follows. What was sent may be lost.
  virtual void close() = 0;

 protected:
  ~Link() = default;
};

class LinkUser {
 public:
  virtual void linkConnected(Link& link) = 0;
  virtual void linkReceived(Link& link, std::string_view frame) = 0;
  virtual void linkDisconnected(Link& link) = 0;

 protected:
  ~LinkUser() = default;
};

class Transport {
 public:
  virtual ~Transport() = default;
  // Who hears of the links, from now on; null for nobody. Must be null before the user goes.
  virtual void userIs(LinkUser* user) = 0;
  // Whether a frame may get lost while its link stands: then the ends send beats, which show it.
  virtual bool mayLose() const { return false; }
};

}  // namespace Fabric
