// Sockets, queues, and trying again.
#include "platform/LocalTransport.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <system_error>
#include <utility>

#include "runtime/Frames.h"
#include "runtime/Reactor.h"
#include "runtime/Trace.h"

namespace Platform {
namespace {

Rix::TraceHandle traceHandle("LocalTransport");

constexpr std::size_t lengthSize = 4;
// What one turn of the loop reads from one link, so that others and timers get theirs.
constexpr std::size_t readAtOnce = std::size_t{256} * 1024;

[[noreturn]] void fail(std::string const& doing) {
  throw std::system_error(errno, std::generic_category(), doing);
}

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    fail("socket path " + path);
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

sockaddr const* generic(sockaddr_un const& address) {
  return reinterpret_cast<sockaddr const*>(&address);
}

Descriptor newSocket() {
  Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!made) fail("socket");
  return made;
}

}  // namespace

class LocalLinks::SocketLink final : public Fabric::Link, public std::enable_shared_from_this<SocketLink> {
 public:
  SocketLink(LocalLinks& links, Descriptor socket) : links_(links), socket_(std::move(socket)) {}
  ~SocketLink() { unwatch(); }

  void watch() {
    links_.loop_.add(socket_.fd(), EPOLLIN, [this](std::uint32_t events) { handleInput(events); });
  }
  // From now on nothing is read or written, and the user hears of the end as the next input.
  void close() override {
    if (closed_) return;
    unwatch();
    closed_ = true;
    links_.activity_.post([self = weak_from_this()] {
      if (auto const link = self.lock()) link->links_.end(*link);
    });
  }
  void send(std::string_view frame) override {
    if (closed_) return;
    if (queuedBytes_ + frame.size() > links_.limits_.maxQueuedBytes) {
      RIX_TRACE(traceHandle, 0, "link ended: " << queuedBytes_ << " bytes wait to be taken");
      return close();
    }
    Rix::ByteWriter length;
    length.fixed(static_cast<U32>(frame.size()));
    std::string bytes = length.take();
    bytes.append(frame);
    queuedBytes_ += bytes.size();
    queue_.push_back(std::move(bytes));
    if (!writing_) write();
  }
  void quietly() {
    unwatch();
    closed_ = true;
  }

 private:
  void unwatch() {
    if (closed_ || !socket_) return;
    links_.loop_.remove(socket_.fd());
    socket_ = Descriptor();
  }

  void handleInput(std::uint32_t events) {
    auto const self = shared_from_this();
    if ((events & EPOLLOUT) != 0) write();
    if (!closed_ && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) read();
  }

  void write() {
    while (!queue_.empty()) {
      std::string const& first = queue_.front();
      ssize_t const sent = ::send(socket_.fd(), first.data() + written_, first.size() - written_, MSG_NOSIGNAL);
      if (sent < 0) {
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return close();
        break;
      }
      written_ += static_cast<std::size_t>(sent);
      if (written_ < first.size()) continue;
      queuedBytes_ -= first.size();
      queue_.pop_front();
      written_ = 0;
    }
    bool const waiting = !queue_.empty();
    if (waiting == writing_) return;
    writing_ = waiting;
    links_.loop_.eventsIs(socket_.fd(), waiting ? EPOLLIN | EPOLLOUT : EPOLLIN);
  }

  void read() {
    std::array<char, std::size_t{64} * 1024> bytes;
    for (std::size_t total = 0; total < readAtOnce && !closed_;) {
      ssize_t const got = ::recv(socket_.fd(), bytes.data(), bytes.size(), 0);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
      if (got <= 0) return close();
      total += static_cast<std::size_t>(got);
      received_.append(bytes.data(), static_cast<std::size_t>(got));
      takeFrames();
    }
  }

  void takeFrames() {
    std::size_t at = 0;
    while (!closed_ && received_.size() - at >= lengthSize) {
      Rix::ByteReader reader(std::string_view(received_).substr(at));
      std::size_t const length = reader.fixed<U32>("length");
      if (length > Rix::maxFrameSize) {
        RIX_TRACE(traceHandle, 0, "link ended: a frame of " << length << " bytes");
        return close();
      }
      if (reader.left() < length) break;
      std::string const frame(reader.raw(length, "frame"));
      at += lengthSize + length;
      links_.activity_.dispatch([&] {
        if (links_.user_ && !closed_) links_.user_->linkReceived(*this, frame);
      });
    }
    received_.erase(0, at);
  }

  LocalLinks& links_;
  Descriptor socket_;
  bool closed_ = false;
  bool writing_ = false;  // waits for the kernel to take more
  std::deque<std::string> queue_;
  std::size_t queuedBytes_ = 0;
  std::size_t written_ = 0;  // of the first
  std::string received_;     // less than one frame, between two reads
};

LocalLinks::LocalLinks(EventLoop& loop, Rix::Activity& activity, LocalTransportLimits const& limits)
    : loop_(loop), activity_(activity), limits_(limits) {}

LocalLinks::~LocalLinks() = default;

void LocalLinks::userIs(Fabric::LinkUser* user) {
  user_ = user;
  if (!user) {
    for (auto const& link : links_) link->quietly();
    links_.clear();
  }
  activeIs(user != nullptr);
}

void LocalLinks::add(Descriptor socket) {
  links_.push_back(std::make_shared<SocketLink>(*this, std::move(socket)));
  links_.back()->watch();
  activity_.post([this, weak = std::weak_ptr(links_.back())] {
    auto const link = weak.lock();
    if (link && user_) user_->linkConnected(*link);
  });
}

void LocalLinks::end(SocketLink& link) {
  if (user_) user_->linkDisconnected(link);
  std::erase_if(links_, [&link](auto const& each) { return each.get() == &link; });
  linkEnded();
}

LocalListener::LocalListener(EventLoop& loop, Rix::Activity& activity, std::string path,
                             LocalTransportLimits const& limits)
    : LocalLinks(loop, activity, limits), path_(std::move(path)) {}

LocalListener::~LocalListener() {
  userIs(nullptr);
}

void LocalListener::activeIs(bool active) {
  if (active == static_cast<bool>(socket_)) return;
  if (!active) {
    loop_.remove(socket_.fd());
    socket_ = Descriptor();
    ::unlink(path_.c_str());
    return;
  }
  sockaddr_un const address = addressOf(path_);
  Descriptor made = newSocket();
  ::unlink(path_.c_str());
  if (::bind(made.fd(), generic(address), sizeof address) != 0) fail("bind " + path_);
  if (::listen(made.fd(), SOMAXCONN) != 0) fail("listen " + path_);
  socket_ = std::move(made);
  loop_.add(socket_.fd(), EPOLLIN, [this](std::uint32_t) { handleInput(); });
}

void LocalListener::handleInput() {
  Descriptor accepted(::accept4(socket_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!accepted) return;
  if (links() >= limits_.maxLinks) {
    RIX_TRACE(traceHandle, 0, "link refused: there are " << links());
    return;
  }
  add(std::move(accepted));
}

// The timer of the next attempt.
class LocalConnector::Retry : public Rix::Reactor<LocalConnector::Retry> {
 public:
  explicit Retry(LocalConnector& connector) : connector_(connector) {
    clock_.notifierIs(Rix::ActivityManagerConfig::clock());
  }
  void timeIs(Rix::Seconds time) { clock_.timeMinIs(time); }
  template <class F>
  void rixParts(F&& f) {
    f(clock_);
  }

 private:
  struct RixClock : Rix::Watch<RixClock, Rix::Clock, Retry> {
    using Watch::Watch;
    void onTime() override { owner().connector_.connect(); }
  };
  LocalConnector& connector_;
  RixClock clock_{this};
};

LocalConnector::LocalConnector(EventLoop& loop, Rix::Activity& activity, std::string path,
                               LocalTransportLimits const& limits)
    : LocalLinks(loop, activity, limits), path_(std::move(path)), pause_(limits.firstPause) {
  Rix::Activity::Use use(activity_);
  retry_ = Rix::make<Retry>(*this);
}

LocalConnector::~LocalConnector() {
  userIs(nullptr);
  Rix::Activity::Use use(activity_);
  retry_ = nullptr;
}

void LocalConnector::activeIs(bool active) {
  active_ = active;
  if (active) {
    connect();
  } else {
    retry_->timeIs(Rix::never);
  }
}

void LocalConnector::connect() {
  if (!active_ || links() != 0) return;
  sockaddr_un const address = addressOf(path_);
  Descriptor made = newSocket();
  if (::connect(made.fd(), generic(address), sizeof address) != 0) return later();
  connectedAt_ = activity_.now();
  add(std::move(made));
}

void LocalConnector::linkEnded() {
  // One that stood for a while was a good one; one that is refused each time is not asked for ever faster.
  if (activity_.now() - connectedAt_ >= limits_.longestPause) pause_ = limits_.firstPause;
  if (active_) later();
}

void LocalConnector::later() {
  retry_->timeIs(activity_.now() + pause_);
  pause_ = std::min(2 * pause_, limits_.longestPause);
}

}  // namespace Platform
