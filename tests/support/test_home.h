// Test support: a throw-away installation directory and a clock the test controls.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/clock.h"

namespace snmplumi::testing {

// "<tmp>/snmplumi-XXXXXX" with data/, data/UPS and data/snmptrap, as SNMPLUMI_HOME until the end.
// Where the trap report asks unless a test names a simulated card: nothing answers there.
inline constexpr char kQuietTrapReportIp[] = "127.0.0.9";

class TempHome {
 public:
  TempHome();
  ~TempHome();

  const std::string &root() const { return root_; }
  std::string data(const std::string &relative = "") const {
    return relative.empty() ? root_ + "/data" : root_ + "/data/" + relative;
  }

 private:
  std::string root_;
};

// Wall-clock time that moves only when the code sleeps; sleeps holds each sleep in microseconds.
class FakeClock : public Clock {
 public:
  explicit FakeClock(std::time_t now) : now_(now) { SetClockForTesting(this); }
  ~FakeClock() override { SetClockForTesting(nullptr); }
  std::time_t Now() override { return now_; }
  void SleepSeconds(unsigned int seconds) override { SleepMicros(seconds * 1000000UL); }
  void SleepMicros(unsigned long micros) override;
  std::vector<unsigned long> sleeps;

 private:
  std::time_t now_;
  unsigned long micros_ = 0;
};

inline std::string FileText(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
inline void PutFile(const std::string &path, const std::string &content) {
  std::ofstream(path, std::ios::binary) << content;
}
inline bool FileExists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }
// The records of a ring log, in file order, without their trailing newline.
std::vector<std::string> RingRecords(const std::string &path, std::size_t record_size);

struct LogRecord {
  unsigned code;
  std::string message;  // padding removed
  bool operator==(const LogRecord &) const = default;
  friend void PrintTo(const LogRecord &record, std::ostream *out) {
    *out << '{' << record.code << ", \"" << record.message << "\"}";
  }
};
// A log of coded records (the library log, a trap log), in file order (the tests never write
// enough to wrap it).
std::vector<LogRecord> CodedLog(const std::string &path);
inline std::vector<LogRecord> LibraryLog(const TempHome &home) {
  return CodedLog(home.data("snmplumi.log"));
}
std::vector<std::string> LogMessages(const TempHome &home);

// 2026-11-22 23:28:00 UTC; tests that look at record times run with TZ=UTC.
inline constexpr std::time_t kSomeTime = 1795390080;
inline void UseUtc() {
  setenv("TZ", "UTC", 1);
  tzset();
}

}  // namespace snmplumi::testing
