// Shows that the records of a switch follow its kernel: host name and addresses, in namespaces of the test's own.
#include "platform/SwitchRecords.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>

#include "platform/SystemTime.h"
#include "platform/TestNamespace.h"

namespace Platform {
namespace {

void hostNameIs(const std::string& name) {
  if (::sethostname(name.c_str(), name.size()) != 0) throw std::runtime_error("sethostname");
}

bool woken(const HostName& name, int patience) {
  pollfd waiting{name.fd(), POLLPRI, 0};
  return ::poll(&waiting, 1, patience) == 1;
}

TEST(HostName, IsTheOneOfTheNamespaceAndTellsOfAnother) {
  inOwnNamespace([] {
    hostNameIs("before");
    HostName name;
    EXPECT_EQ(name.name(), "before");
    EXPECT_FALSE(woken(name, 0));
    hostNameIs("after-it");
    EXPECT_TRUE(woken(name, 5000));
    EXPECT_TRUE(name.onChange());
    EXPECT_EQ(name.name(), "after-it");
    EXPECT_FALSE(woken(name, 0)) << "a wake-up is acknowledged by polling";
    hostNameIs(std::string(64, 'x'));
    EXPECT_TRUE(woken(name, 5000));
    EXPECT_TRUE(name.onChange());
    EXPECT_EQ(name.name(), std::string(64, 'x'));
  });
}

TEST(HostName, IsNotThatOfAnotherNamespaceThoughThatWakesIt) {
  inOwnNamespace([] {
    hostNameIs("mine");
    HostName name;
    const pid_t other = ::fork();
    if (other == 0) ::_exit(::unshare(CLONE_NEWUTS) == 0 && ::sethostname("other", 5) == 0 ? 0 : 1);
    int status = 0;
    ASSERT_EQ(::waitpid(other, &status, 0), other);
    ASSERT_EQ(status, 0);
    EXPECT_TRUE(woken(name, 5000));
    EXPECT_FALSE(name.onChange());
    EXPECT_EQ(name.name(), "mine");
  });
}

class Records {
 public:
  Records() : use_(activity_) {
    loop_.timersAre([this] { return giveUp_; }, [this] { loop_.stop(), giveUp_ += 1000; });
  }

  // Runs the loop until the condition holds, or until `patience` seconds have passed. Whether it holds.
  template <class Condition>
  bool comes(Condition condition, double patience = 5) {
    giveUp_ = monotonicSeconds() + patience;
    loop_.turnEndIs([&, this] {
      if (condition()) loop_.stop();
    });
    loop_.run();
    return condition();
  }
  std::string address(const char* interface) const {
    const auto* const status = ipStatus->intfStatus(Netkit::IntfId(interface));
    return status ? status->address().stringValue() : "absent";
  }

  Rix::Ptr<Ip::Status> ipStatus = Rix::make<Ip::Status>();
  Rix::Ptr<System::NetConfig> netConfig = Rix::make<System::NetConfig>();

 private:
  SystemTime time_;
  Rix::Activity activity_{time_};
  Rix::Activity::Use use_;
  EventLoop loop_;
  double giveUp_ = 0;

 public:
  std::unique_ptr<SwitchRecords> made = std::make_unique<SwitchRecords>(loop_, activity_, ipStatus, netConfig);
};

TEST(SwitchRecords, HoldWhatThereIsFromTheBeginning) {
  inOwnNamespace([] {
    hostNameIs("switch1");
    run("link set dev lo up");
    run("addr add 10.0.0.7/32 dev lo");
    run("link add name p type veth peer name q");
    const Records records;
    EXPECT_EQ(records.netConfig->hostname(), "switch1");
    EXPECT_EQ(records.address("lo"), "10.0.0.7");
    EXPECT_EQ(records.address("p"), "0.0.0.0") << "an interface without an address is there all the same";
    EXPECT_EQ(records.address("r"), "absent");
  });
}

TEST(SwitchRecords, FollowTheKernel) {
  inOwnNamespace([] {
    hostNameIs("switch1");
    run("link set dev lo up");
    run("addr add 10.0.0.7/32 dev lo");
    Records records;
    run("addr add 10.9.9.9/32 dev lo");
    run("link add name p type veth peer name q");
    run("addr add 10.1.0.1/31 dev p");
    EXPECT_TRUE(records.comes([&] { return records.address("p") == "10.1.0.1"; })) << records.address("p");
    EXPECT_EQ(records.address("lo"), "10.0.0.7") << "the first of them counts";
    run("addr del 10.0.0.7/32 dev lo");
    EXPECT_TRUE(records.comes([&] { return records.address("lo") == "10.9.9.9"; })) << records.address("lo");
    run("addr del 10.9.9.9/32 dev lo");
    EXPECT_TRUE(records.comes([&] { return records.address("lo") == "0.0.0.0"; })) << records.address("lo");
    run("link del dev p");
    EXPECT_TRUE(records.comes([&] { return records.address("p") == "absent"; })) << records.address("p");
    hostNameIs("switch2");
    EXPECT_TRUE(records.comes([&] { return records.netConfig->hostname() == "switch2"; }));
  });
}

TEST(SwitchRecords, LeaveTheLoopWhenTheyGo) {
  inOwnNamespace([] {
    Records records;
    records.made.reset();
    run("link set dev lo up");
    hostNameIs("later");
    EXPECT_FALSE(records.comes([&] { return records.netConfig->hostname() == "later"; }, 0.1));
  });
}

}  // namespace
}  // namespace Platform
