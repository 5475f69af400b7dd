// The power-state watch: one pass over every configured UPS keeps the on-battery and power-fail
// bits of the status words, which the event wait reports and the shutdown sequence acts on.
#include "monitor/watch.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "config/status_words.h"
#include "powernet.h"
#include "runtime/log_line.h"
#include "runtime/profile.h"
#include "runtime/ring_log.h"
#include "snmp/requests.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr int kTrapWatchLimit = 5;
constexpr int32_t kSelfTest = 9;  // upsAdvInputLineFailCause selfTest(9)
constexpr int kNoReport = 9999;
constexpr int kLogExchange = 1;

std::atomic<int> g_trap_checker{0};
// Passes do not overlap: the host's periodic pass and the shutdown sequence's refresh would
// otherwise interleave their changes to the same words.
std::mutex g_pass_mutex;

using Watch = std::array<int, 4>;

// The report indexes of each pass, by WatchingCounter; row 0 is chosen from the UPS table. One
// cycle reports the first four main UPSes, the sixteen server slots two a pass, and the other
// group in two descending halves.
constexpr std::array<Watch, 11> kReportSchedule = {{
    {kNoReport, kNoReport, kNoReport, kNoReport},
    {0, 8, kNoReport, kNoReport},
    {1, 9, kNoReport, kNoReport},
    {2, 10, 107, 115},
    {3, 11, 106, 114},
    {4, 12, 105, 113},
    {5, 13, 104, 112},
    {6, 14, 103, 111},
    {7, 15, 102, 110},
    {kNoReport, kNoReport, 101, 109},
    {kNoReport, kNoReport, 100, 108},
}};

enum class Group { kMain, kOther };

bool IsUnused(const char *address) { return std::strcmp(address, kUnusedSlot) == 0; }

bool Read(const char *ip, const char *oid_text, char letter, int logflag, int32_t *value) {
  return GetValue(ip, oid_text, letter, value, sizeof *value, logflag) == 0;
}

// The seconds on battery that count as a power failure; false when the time cannot be read.
// A self-test, or a cause that cannot be read, never counts: the time is taken as 0.
bool SecondsOnBattery(const char *ip, int logflag, uint32_t *seconds) {
  int32_t ticks = 0;
  if (!Read(ip, mib::upsBasicBatteryTimeOnBattery, 't', logflag, &ticks)) return false;
  *seconds = static_cast<uint32_t>(ticks) / 100;
  int32_t cause = 0;
  if (!Read(ip, mib::upsAdvInputLineFailCause, 'i', logflag, &cause) || cause == kSelfTest) {
    *seconds = 0;
  }
  return true;
}

// Moves word's bits by the time on battery. The decision is taken on the printed length of the
// seconds, as it always was: two digits or more is on battery, "0" is back on line, and one to
// nine seconds are a short transfer that changes nothing.
void ApplyTimeOnBattery(Group group, int number, uint32_t seconds, DWORD wait, int &word) {
  const int shown = static_cast<int>(seconds);
  char text[16];
  int length = std::snprintf(text, sizeof text, "%d", shown);
  const bool main = group == Group::kMain;
  if (length > 1) {
    if ((LoadWord(word) & kOnBattery) == 0) {
      // The first notice; the wait is not looked at before the next pass.
      SetBits(word, kOnBattery);
      if (main) {
        LogLine(0, " UPS Battery running [%dsec]!?", shown);
      } else {
        LogLine(0, " UPS[%d] Battery running [%dsec]!?", number, shown);
      }
    } else if (seconds > wait) {
      SetBits(word, kPowerFailWait);
      if (main) {
        LogLine(0, "**** PowerFail[%dsec] TimeOut! -->shutdown ! ****", shown);
      } else {
        LogLine(0, "**** UPS[%d} PowerFail[%dsec] TimeOut! -->shutdown ! ****", number, shown);
      }
    } else if (main) {
      ClearBits(word, kPowerFailWait);  // the other group keeps it until the time reads 0
      LogLine(0, " UPS Battery running [%dsec]", shown);
    } else {
      LogLine(0, " UPS[%d] Battery running [%dsec]", number, shown);
    }
  } else if (text[0] == '0' && (LoadWord(word) & kOnBattery) != 0) {
    ClearBits(word, kOnBattery | kPowerFailWait);
    if (main) {
      LogLine(0, " UPS[%d] is not switched battery", number);
    } else {
      LogLine(0, " other_UPS[%d] is not switched battery", number);
    }
  }
}

void WatchMainUps(int index) {
  const char *ip = UpsIp[index];
  int32_t volts = 0;
  if (Read(ip, mib::upsAdvOutputVoltage, 'u', kLogExchange, &volts)) {
    if (volts == 0) {
      SetBits(ups_X1[index][1], kOutOfService);
    } else {
      ClearBits(ups_X1[index][1], kOutOfService);
    }
  }
  uint32_t seconds = 0;
  if (!SecondsOnBattery(ip, kLogExchange, &seconds)) return;
  ApplyTimeOnBattery(Group::kMain, index, seconds, PowerFailWait, ups_X1[index][0]);
}

void WatchOtherUps(int k) {
  uint32_t seconds = 0;
  if (!SecondsOnBattery(UpsIpOther[k], 0, &seconds)) return;
  ApplyTimeOnBattery(Group::kOther, 100 + k, seconds, PowerFailWaitOther, ups_Other_X1[0][k]);
}

// When the first UPS is registered in the UPS information file, its record's reports are the
// identification check's business, and the first pass of the cycle reports nothing.
Watch FirstPassReports() {
  char value[kConfigValueSize];
  ReadConfigFileEx("UPS/UPSinfo.ini", "index", UpsIp[0], value);
  int record = 0;
  if (std::strcmp(value, kDefaultValue) != 0 && std::sscanf(value, "%d", &record) == 1 &&
      record >= 1000 && record <= 8999) {
    return kReportSchedule[0];
  }
  Watch watch;
  for (int j = 0; j < 4; ++j) watch[j] = IsUnused(UpsIp[j]) ? kNoReport : 9000 + j;
  return watch;
}

Watch NextReports() {
  auto position = static_cast<unsigned int>(WatchingCounter);
  if (position >= kReportSchedule.size()) {
    WatchingCounter = 0;
    return kReportSchedule[0];
  }
  Watch watch = position == 0 ? FirstPassReports() : kReportSchedule[position];
  WatchingCounter = static_cast<int>((position + 1) % kReportSchedule.size());
  return watch;
}

}  // namespace

void ResetTrapChecker() { g_trap_checker = 0; }
int TrapCheckerForTesting() { return g_trap_checker; }

}  // namespace snmplumi

BOOL KavAcSnmpCheck(void) {
  using namespace snmplumi;
  std::lock_guard<std::mutex> one_pass(g_pass_mutex);
  LibraryLogBatch batch;
  int checked = ++g_trap_checker;
  if (checked > kTrapWatchLimit && !IsUnused(UpsIp[0])) {
    LogLine(static_cast<DWORD>(checked), "!!!!!! what! Trap watcher is STOP!? !!!!!!");
    g_trap_checker = 0;
  }
  for (int i = 0; i < SNMPLUMI_UPS_SLOTS; ++i) {
    if (!IsUnused(UpsIp[i])) WatchMainUps(i);
  }
  for (int k = 0; k < SNMPLUMI_GROUP_SLOTS; ++k) {
    if (UpsIpOther[k][0] != '\0') WatchOtherUps(k);
  }
  int summary = 0;
  for (int &word : ups_Other_X1[0]) summary |= LoadWord(word);
  StoreWord(ups_Other_X1_t, summary);

  for (int index : NextReports()) {
    if (index == kNoReport) continue;
    char report[160];
    if (SnmpGetReport(index, report) == 1) ReportLog(index, report);
  }
  return 1;
}
