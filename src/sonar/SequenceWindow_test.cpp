// Lost, late and doubled numbers told apart, also beside a count that forgets nothing.
#include "sonar/SequenceWindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

namespace Sonar {
namespace {

using Arrival = SequenceWindow::Arrival;

TEST(SequenceWindow, aMissingNumberIsLostWhenItLeavesTheWindow) {
  SequenceWindow window(10);
  EXPECT_EQ(window.take(12).lost, 0U);
  for (U64 sequence = 13; sequence < 19; ++sequence) EXPECT_EQ(window.take(sequence).lost, 0U) << sequence;
  EXPECT_EQ(window.take(19).lost, 1U);
  EXPECT_EQ(window.take(20).lost, 0U);
}

TEST(SequenceWindow, aNumberThatComesWithinTheWindowIsMisorderedAndNotLost) {
  SequenceWindow window(10);
  window.take(12);
  for (U64 sequence = 13; sequence < 19; ++sequence) window.take(sequence);
  EXPECT_EQ(window.take(11).arrival, Arrival::misordered);
  EXPECT_EQ(window.take(19).lost, 0U);
}

TEST(SequenceWindow, aNumberThatComesBehindTheWindowStaysLost) {
  SequenceWindow window(10);
  U64 lost = 0;
  for (U64 sequence = 12; sequence < 21; ++sequence) lost += window.take(sequence).lost;
  EXPECT_EQ(lost, 1U);
  EXPECT_EQ(window.take(11).arrival, Arrival::stale);
}

TEST(SequenceWindow, aCopyIsADuplicateOnceAndAfterThatStale) {
  SequenceWindow window(10);
  EXPECT_EQ(window.take(10).arrival, Arrival::duplicate);
  EXPECT_EQ(window.take(10).arrival, Arrival::stale);
  window.take(11);
  EXPECT_EQ(window.take(10).arrival, Arrival::stale);
  EXPECT_EQ(window.take(11).arrival, Arrival::duplicate);
}

TEST(SequenceWindow, whatIsBeforeTheFirstNumberIsNeverLost) {
  SequenceWindow window(1000);
  EXPECT_EQ(window.take(999).arrival, Arrival::misordered);
  U64 lost = 0;
  for (U64 sequence = 1001; sequence < 1020; ++sequence) lost += window.take(sequence).lost;
  EXPECT_EQ(lost, 0U);
}

TEST(SequenceWindow, aJumpLosesAllThatItPassesOver) {
  SequenceWindow window(10);
  // 11 to 992 are gone; 993 to 999 may still come.
  EXPECT_EQ(window.take(1000).lost, 982U);
  EXPECT_EQ(window.take(2000).lost, 7U + 992U);
}

TEST(SequenceWindow, aJumpOfTheWholeRangeIsCounted) {
  SequenceWindow window(1);
  constexpr U64 top = ~U64{0};
  EXPECT_EQ(window.take(top).lost, top - 1 - 8);
  EXPECT_EQ(window.take(top).arrival, Arrival::duplicate);
}

TEST(SequenceWindow, afterASilenceTheGapIsNotLostButWhatWasMissingBeforeIs) {
  SequenceWindow window(10);
  window.take(12);  // 11 is missing
  EXPECT_EQ(window.takeAfterSilence(500).lost, 1U);
  U64 lost = 0;
  for (U64 sequence = 501; sequence < 520; ++sequence) lost += window.take(sequence).lost;
  EXPECT_EQ(lost, 0U);
}

TEST(SequenceWindow, aSilenceDoesNotForgetWhatHasCome) {
  SequenceWindow window(10);
  window.takeAfterSilence(12);
  EXPECT_EQ(window.take(10).arrival, Arrival::duplicate);
  EXPECT_EQ(window.take(11).arrival, Arrival::misordered);
}

// Beside a count that keeps every number: probes that are dropped, doubled and moved by less than the window.
TEST(SequenceWindow, agreesWithACountThatKeepsEveryNumber) {
  for (unsigned seed = 1; seed <= 200; ++seed) {
    std::mt19937 random(seed);
    std::vector<std::pair<U64, U64>> arrivals;  // place, number
    std::set<U64> sent;
    U64 dropped = 0;
    U64 duplicates = 0;
    constexpr U64 count = 300;
    for (U64 number = 1; number <= count; ++number) {
      bool const inner = number > 1 && number <= count - SequenceWindow::width;
      if (inner && random() % 10 == 0) {
        ++dropped;
        continue;
      }
      // Moved by up to six places: never out of the window.
      arrivals.emplace_back(number + (inner ? random() % 7 : 0), number);
      if (inner && random() % 20 == 0) {
        arrivals.emplace_back(number, number);
        ++duplicates;
      }
    }
    std::stable_sort(arrivals.begin(), arrivals.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
    ASSERT_EQ(arrivals.front().second, 1U);
    SequenceWindow window(1);
    U64 lost = 0;
    U64 copies = 0;
    for (std::size_t i = 1; i < arrivals.size(); ++i) {
      auto const result = window.take(arrivals[i].second);
      lost += result.lost;
      copies += result.arrival == Arrival::duplicate ? 1 : 0;
      ASSERT_NE(result.arrival, Arrival::stale) << "seed " << seed;
    }
    EXPECT_EQ(lost, dropped) << "seed " << seed;
    EXPECT_EQ(copies, duplicates) << "seed " << seed;
  }
}

}  // namespace
}  // namespace Sonar
