// What the tests of the switch's machines share: an activity on virtual time, the lines that were traced, and a sink
// that notes the order in which a record was written.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/Activity.h"
#include "runtime/Trace.h"

namespace Zeb::ConfigTest {

class SwitchConfig : public testing::Test {
 protected:
  SwitchConfig() {
    Rix::traceSinkIs([this](Rix::TraceLine const& line) { traces.emplace_back(line.text); });
    Rix::traceLevelsIs("*", ~0U);
  }
  ~SwitchConfig() override {
    Rix::traceLevelsIs("*", 0);
    Rix::traceSinkIs({});
  }

  Rix::VirtualTime time{100};
  Rix::Activity activity{time};
  Rix::Activity::Use use{activity};
  std::vector<std::string> traces;
};

// Takes the notifications of one record and hands each on as the name of its attribute, with the key behind it.
template <class Record>
class Writes {
 public:
  using Told = std::function<void(std::string const&)>;
  Writes(Rix::Ptr<Record> const& record, Told told) : told_(std::move(told)) { observer_.notifierIs(record.get()); }
  Writes(Writes const&) = delete;
  Writes& operator=(Writes const&) = delete;

  void changed(unsigned attribute) { told_(nameOf(attribute)); }
  template <class Key>
  void changed(unsigned attribute, Key const& key) {
    std::ostringstream text;
    text << nameOf(attribute) << ' ' << key;
    told_(text.str());
  }

 private:
  static std::string nameOf(unsigned index) {
    std::string name;
    Record::rixVisit([&](auto const& attribute) {
      if (attribute.index == index) name = attribute.name;
    });
    return name;
  }

  Told told_;
  typename Record::template RixObserver<Writes> observer_{*this};
};

// The same, kept as a list.
template <class Record>
class WriteList {
 public:
  explicit WriteList(Rix::Ptr<Record> const& record)
      : writes_(record, [this](std::string const& write) { list_.push_back(write); }) {}
  // What was written since the last call.
  std::vector<std::string> take() { return std::exchange(list_, {}); }

 private:
  std::vector<std::string> list_;
  Writes<Record> writes_;
};

}  // namespace Zeb::ConfigTest
