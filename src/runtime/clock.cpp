#include "runtime/clock.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace snmplumi {
namespace {

class SystemClock final : public Clock {
 public:
  std::time_t Now() override { return std::time(nullptr); }

  void SleepSeconds(unsigned int seconds) override { SleepFor(seconds, 0); }

  void SleepMicros(unsigned long micros) override {
    SleepFor(static_cast<std::time_t>(micros / 1000000),
             static_cast<long>(micros % 1000000) * 1000);
  }

 private:
  // Signals must not cut a sleep short: callers pace retries with it.
  static void SleepFor(std::time_t sec, long nsec) {
    timespec want{sec, nsec};
    timespec left{};
    while (nanosleep(&want, &left) == -1 && errno == EINTR) want = left;
  }
};

SystemClock g_system_clock;
std::atomic<Clock *> g_clock{&g_system_clock};

}  // namespace

Clock &CurrentClock() { return *g_clock.load(std::memory_order_acquire); }

void SetClockForTesting(Clock *clock) {
  g_clock.store(clock != nullptr ? clock : &g_system_clock, std::memory_order_release);
}

}  // namespace snmplumi
