// The host's direct power orders: the sleep-time arithmetic, apart from the network so that its
// corners can be checked on their own.
#pragma once

#include <cstdint>
#include <ctime>

#include "snmplumi.h"

namespace snmplumi {

enum class SleepNote { kNone, kPast, kTooFar };

// The notes' log lines, in EUC-JP as the log readers expect them.
// "  未来過ぎ..." (too far in the future).
inline constexpr char kTooFarLine[] = "  \xcc\xa4\xcd\xe8\xb2\xe1\xa4\xae...";
// "  過去？" (in the past?).
inline constexpr char kPastLine[] = "  \xb2\xe1\xb5\xee\xa1\xa9";

struct SleepPlan {
  int code = 0;               // written to upsAdvControlUpsSleep
  std::int64_t earliest = 0;  // calendar time the UPS can be asleep by (calendar mode only)
  double seconds = 0;         // how long the UPS sleeps
  SleepNote note = SleepNote::kNone;
  DWORD data_time = 0;  // upsAdvConfigUpsSleepTime, hundredths of a second
};

// mode above 999: ontime is a duration from now and mode - 1000 the code; otherwise ontime is a
// calendar time. delay: the UPS's shutdown delay plus its low-battery run time, in seconds. cut:
// data_time is rounded down to whole tenths of an hour.
SleepPlan PlanSleep(int mode, std::time_t ontime, DWORD delay, std::time_t now, bool cut);

// Seconds as TimeTicks (hundredths).
DWORD Ticks(DWORD seconds);

// now plus the UPS's delay and the lead before it is off: the calendar time a power-on time is
// counted from; at most the largest time_t.
std::time_t OffTime(std::time_t now, DWORD delay);

}  // namespace snmplumi
