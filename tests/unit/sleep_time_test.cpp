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
  struct Row {
    int mode;
    std::time_t ontime, now;
    DWORD delay;
    bool cut;
    DWORD data_time;
    SleepNote note;
  };
  const Row rows[] = {
      {1002, kMax32, 0, 300, false, 3153600000u, SleepNote::kTooFar},
      {1000, 31536330, 0, 300, false, 3153600000u, SleepNote::kNone},
      {1000, 31536331, 0, 300, false, 3153600000u, SleepNote::kTooFar},
      {1002, -5, 0, 300, false, 0, SleepNote::kNone},
      {1002, kMax32, 0, kMaxDword, false, 0, SleepNote::kNone},
      {2, kMax32, kMax32 - 10, 300, false, 60000, SleepNote::kPast},
      {2, 100000000, 0, 0, false, 4294967200u, SleepNote::kNone},  // about 497 days at most
      {2, 100000000, 0, 0, true, 4294944000u, SleepNote::kNone},
  };
  for (const Row &row : rows) {
    SleepPlan plan = PlanSleep(row.mode, row.ontime, row.delay, row.now, row.cut);
    EXPECT_EQ(plan.data_time, row.data_time) << row.ontime << " " << row.delay;
    EXPECT_EQ(plan.note, row.note) << row.ontime << " " << row.delay;
  }
  // A power-on command's off time stops at the last second a time_t holds (2038 in 32 bits).
  constexpr std::time_t kLast = std::numeric_limits<std::time_t>::max();
  EXPECT_EQ(OffTime(kLast - 100, 300), kLast);
}

}  // namespace
}  // namespace snmplumi::testing
