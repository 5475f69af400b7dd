#include <cstdint>
#include <ctime>
#include <limits>

#include "power/orders.h"
#include "unit_test.h"

namespace snmplumi::testing {
namespace {

// The corners a 32-bit time_t or an unsigned sum would wrap at.
TEST(SleepTimeTest, ArithmeticNeitherWrapsNorOverflows) {
  constexpr std::time_t kMax32 = std::numeric_limits<std::int32_t>::max();
  constexpr DWORD kMaxDword = std::numeric_limits<DWORD>::max();
  // Mode, on time, now, delay, delay cut; the sleep time and the note planned.
  const std::tuple<int, std::time_t, std::time_t, DWORD, bool, DWORD, SleepNote> rows[] = {
      {1002, kMax32, 0, 300, false, 3153600000u, SleepNote::kTooFar},
      {1000, 31536330, 0, 300, false, 3153600000u, SleepNote::kNone},
      {1000, 31536331, 0, 300, false, 3153600000u, SleepNote::kTooFar},
      {1002, -5, 0, 300, false, 0, SleepNote::kNone},
      {1002, kMax32, 0, kMaxDword, false, 0, SleepNote::kNone},
      {2, kMax32, kMax32 - 10, 300, false, 60000, SleepNote::kPast},
      {2, 100000000, 0, 0, false, 4294967200u, SleepNote::kNone},  // about 497 days at most
      {2, 100000000, 0, 0, true, 4294944000u, SleepNote::kNone},
  };
  for (const auto &[mode, ontime, now, delay, cut, data_time, note] : rows) {
    SleepPlan plan = PlanSleep(mode, ontime, delay, now, cut);
    EXPECT_EQ(plan.data_time, data_time) << ontime << " " << delay;
    EXPECT_EQ(plan.note, note) << ontime << " " << delay;
  }
  // A power-on command's off time stops at the last second a time_t holds (2038 in 32 bits).
  constexpr std::time_t kLast = std::numeric_limits<std::time_t>::max();
  EXPECT_EQ(OffTime(kLast - 100, 300), kLast);
}

}  // namespace
}  // namespace snmplumi::testing
