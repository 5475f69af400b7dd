// The sleep-time arithmetic of the power orders, apart from the network so that it builds and is
// tested on its own, in 32 bits too.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "power/orders.h"

namespace snmplumi {
namespace {

static_assert(sizeof(std::time_t) <= sizeof(std::int64_t), "time arithmetic runs in 64 bits");

constexpr std::int64_t kLeadSeconds = 30;
constexpr std::int64_t kYear = 31536000;
constexpr double kFallbackSleep = 600;
constexpr DWORD kTenthOfAnHour = 36000;  // hundredths
constexpr DWORD kMaxWholeSeconds = std::numeric_limits<DWORD>::max() / 100;

// now plus the lead, held at the largest value rather than overflowing.
std::int64_t OffBy(std::time_t now, DWORD delay) {
  const std::int64_t at = now;
  const std::int64_t lead = std::int64_t{delay} + kLeadSeconds;
  return at > std::numeric_limits<std::int64_t>::max() - lead
             ? std::numeric_limits<std::int64_t>::max()
             : at + lead;
}

}  // namespace

// Past what 32 bits carry (about 497 days) the longest whole-second value is sent, never one
// wrapped round to a shorter time.
DWORD Ticks(DWORD seconds) {
  return (seconds > kMaxWholeSeconds ? kMaxWholeSeconds : seconds) * 100;
}

// Past what time_t carries (a 32-bit one ends in January 2038) the sum would wrap round to 1901.
std::time_t OffTime(std::time_t now, DWORD delay) {
  return static_cast<std::time_t>(
      std::min<std::int64_t>(OffBy(now, delay), std::numeric_limits<std::time_t>::max()));
}

SleepPlan PlanSleep(int mode, std::time_t ontime, DWORD delay, std::time_t now, bool cut) {
  SleepPlan plan{.code = mode};
  const std::int64_t on = ontime;
  const std::int64_t lead = std::int64_t{delay} + kLeadSeconds;
  if (mode > 999) {
    plan.code = mode - 1000;
    std::int64_t seconds = on < lead ? 0 : on - lead;
    if (seconds > kYear) {
      seconds = kYear;
      plan.note = SleepNote::kTooFar;
    }
    plan.seconds = static_cast<double>(seconds);
  } else {
    plan.earliest = OffBy(now, delay);
    if (on < plan.earliest) {
      plan.seconds = kFallbackSleep;
      plan.note = SleepNote::kPast;
    } else if (delay > kYear) {
      // The delay, not the sleep time, is held against the year here; kept so.
      plan.seconds = kFallbackSleep;
      plan.note = SleepNote::kTooFar;
    } else {
      // The distance fits 64 unsigned bits whatever the two times are.
      plan.seconds = static_cast<double>(static_cast<std::uint64_t>(on) -
                                         static_cast<std::uint64_t>(plan.earliest));
    }
  }
  const DWORD whole =
      plan.seconds >= kMaxWholeSeconds ? kMaxWholeSeconds : static_cast<DWORD>(plan.seconds);
  plan.data_time = Ticks(whole);
  if (cut) plan.data_time -= plan.data_time % kTenthOfAnHour;
  return plan;
}

}  // namespace snmplumi
