// The transport between agents of one process: frames are copied as over any wire, and wait in a queue until they are
// delivered, each as one piece of input of the activity of the end to which it goes.
//
// Whoever runs the activities (a test, the simulated lab) pumps. Nothing is ever delivered within a call of `send`.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "runtime/Activity.h"
#include "runtime/Transport.h"

namespace Fabric {

class MemoryNetwork {
 public:
  // A switch's way to the centre, and the centre's to all of them. Each belongs to the activity of its agent.
  class Port;

  MemoryNetwork();
  ~MemoryNetwork();
  MemoryNetwork(MemoryNetwork const&) = delete;
  MemoryNetwork& operator=(MemoryNetwork const&) = delete;

  // The one central port. A second call replaces it, when a centre starts anew: the old end must be gone by then.
  Transport& centre(Rix::Activity& activity);
  // A new switch's port. It connects when connectedIs says so, once both ends have their users.
  Transport& addSwitch(Rix::Activity& activity);
  // Brings the link of a switch's port up, also again after an end has closed it, or takes it down. What was under way
  // is lost with a link.
  void connectedIs(Transport& switchPort, bool connected);
  // Takes a port out, before its agent goes.
  void remove(Transport& port);

  // Delivers the oldest that waits, as input of its receiver. False: nothing waits.
  bool deliverOne();
  // Delivers until nothing waits.
  void pump();
  std::size_t waiting() const;
  // Whose input the oldest that waits is. Precondition: something waits.
  Rix::Activity& receiver() const;

  // A wire that loses: true for a frame drops it. From the first such call on, the ends send beats.
  void lossIs(std::function<bool(std::string_view frame)> loses);
  // What is done to each frame on its way: tests damage frames with it.
  void damageIs(std::function<std::string(std::string_view frame)> damage) { damage_ = std::move(damage); }

 private:
  struct End;
  struct Delivery;

  void connectWanted();
  void end(Port& port);

  std::unique_ptr<Port> centre_;
  std::vector<std::unique_ptr<Port>> switches_;
  std::deque<Delivery> queue_;
  std::function<bool(std::string_view)> loses_;
  std::function<std::string(std::string_view)> damage_;
};

}  // namespace Fabric
