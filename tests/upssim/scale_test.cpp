// A run as large as the library ever watches: 130 main + 16 server + 16 other cards.
#include <gtest/gtest.h>

#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

// How fast they start is measured by bench/upssim_start_bench.cpp.
TEST(ScaleTest, StartsOneHundredSixtyTwoCardsAnsweringAndStopsCleanly) {
  constexpr int kCards = 162;
  auto simulator = StartCards(kCards);

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
