// The seam for "now" and "sleep": real time in production, a fake in tests that would otherwise
// wait for seconds.
#pragma once

#include <ctime>

namespace snmplumi {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::time_t Now() = 0;
  virtual void SleepSeconds(unsigned int seconds) = 0;
  virtual void SleepMicros(unsigned long micros) = 0;
};

// The clock every part of the library uses.
Clock &CurrentClock();
// Replaces the clock; nullptr restores real time. Set it before other threads run.
void SetClockForTesting(Clock *clock);

}  // namespace snmplumi
