// A run as large as the library ever watches: 130 main + 16 server + 16 other cards.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using Clock = std::chrono::steady_clock;

TEST(ScaleTest, StartsOneHundredSixtyTwoCardsInUnderASecondAndStopsCleanly) {
  constexpr int kCards = 162;
  Clock::time_point start = Clock::now();
  auto simulator = StartCards(kCards);
  auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  RecordProperty("start_ms", static_cast<int>(took.count()));
  std::printf("162 cards ready in %lld ms\n", static_cast<long long>(took.count()));
  EXPECT_LT(took.count(), 1000);

  std::set<std::string> addresses;
  for (int i = 0; i < kCards; ++i) {
    std::string name = "ups" + std::to_string(i);
    addresses.insert(simulator->Address(name));
    EXPECT_EQ(Read(CardTarget(*simulator, name), oid::kIdentName).octets, name);
  }
  EXPECT_EQ(addresses.size(), static_cast<std::size_t>(kCards));

  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);
}

}  // namespace
}  // namespace upssim::testing
