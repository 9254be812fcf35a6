// The transport between processes of one machine: a stream socket at a path of the file system.
//
// The centre listens there; a switch connects, and tries again with a growing pause when it cannot or when its link has
// ended. Frames go behind their length. Nothing ever waits: what the kernel does not take at once is queued, and a
// queue that grows beyond its bound ends the link, since a snapshot is cheaper than a backlog. What arrives is input of
// the agent's activity. All of it runs on the process's loop.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/EventLoop.h"
#include "runtime/Activity.h"
#include "runtime/Transport.h"

namespace Platform {

struct LocalTransportLimits {
  std::size_t maxQueuedBytes = std::size_t{128} * 1024 * 1024;  // of one link
  std::size_t maxLinks = 16384;
  double firstPause = 0.1;  // seconds until a switch tries again; doubles with each failure in a row
  double longestPause =
      0.4;  // an attempt on one machine costs next to nothing, and a centre that is anew waits for all
};

// What both sides share: links over connected sockets.
class LocalLinks : public Fabric::Transport {
 public:
  LocalLinks(EventLoop& loop, Rix::Activity& activity, LocalTransportLimits const& limits);
  ~LocalLinks() override;
  LocalLinks(LocalLinks const&) = delete;
  LocalLinks& operator=(LocalLinks const&) = delete;

  void userIs(Fabric::LinkUser* user) override;
  std::size_t links() const { return links_.size(); }

 protected:
  class SocketLink;

  // With a user: begin to connect or to listen. Without: stop it.
  virtual void activeIs(bool active) = 0;
  virtual void linkEnded() {}
  void add(Descriptor socket);

  EventLoop& loop_;
  Rix::Activity& activity_;
  LocalTransportLimits const limits_;

 private:
  void end(SocketLink& link);

  Fabric::LinkUser* user_ = nullptr;
  std::vector<std::shared_ptr<SocketLink>> links_;
};

// The centre's side.
class LocalListener final : public LocalLinks {
 public:
  // A socket that stands at `path` from an earlier process is replaced. A path that cannot be a socket's, and what the
  // kernel refuses: std::system_error from userIs. `loop` and `activity` must outlive this.
  LocalListener(EventLoop& loop, Rix::Activity& activity, std::string path, LocalTransportLimits const& limits = {});
  ~LocalListener() override;

 private:
  void activeIs(bool active) override;
  void handleInput();

  std::string const path_;
  Descriptor socket_;
};

// A switch's side.
class LocalConnector final : public LocalLinks {
 public:
  LocalConnector(EventLoop& loop, Rix::Activity& activity, std::string path, LocalTransportLimits const& limits = {});
  ~LocalConnector() override;

 private:
  class Retry;
  void activeIs(bool active) override;
  void linkEnded() override;
  void connect();
  void later();

  std::string const path_;
  bool active_ = false;
  double pause_;
  double connectedAt_ = 0;
  Rix::Ptr<Retry> retry_;
};

}  // namespace Platform
