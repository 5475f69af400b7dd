// The unit's timer commands: return and shutdown delays and the power-on time map onto every
// configured UPS's configuration objects (hundredths of a second); the clock, reap counter and
// event log belong to the host's own unit and go through its command channel.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "power/orders.h"
#include "powernet.h"
#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "unit/commands.h"
#include "unit/host_channel.h"

namespace snmplumi {
namespace {

constexpr std::uint32_t kDefaultShutoffDelay = 180;  // seconds, when the card cannot say

// The unit counts delays in minutes, sent as hexadecimal. The product is taken in 16 bits, as
// the unit always did: more than ten minutes wrap (eleven give 464 hundredths).
std::uint32_t DelayTicks(const char *Data) {
  unsigned int minutes = 0;
  if (Data != nullptr) std::sscanf(Data, "%x", &minutes);
  const auto narrow = static_cast<std::uint16_t>(minutes);
  return static_cast<std::uint16_t>(narrow * 6000);
}

// A delay of the first configured UPS in seconds, or false (Data "" / "000").
bool ReadDelay(const char *oid_text, int shown, const char *error_line, char *Data, char *DataLen,
               DWORD *result, std::uint32_t *seconds) {
  const int index = FirstConfiguredUps();
  std::uint32_t ticks = 0;
  *result = GetWithRetries(index, shown < 0 ? index : shown, oid_text, 't', &ticks, sizeof ticks,
                           error_line);
  if (*result != 0) {
    Data[0] = '\0';
    std::strcpy(DataLen, "000");
    return false;
  }
  *seconds = ticks / 100;
  return true;
}

void AnswerMinutes(char *Data, char *DataLen, std::uint32_t minutes) {
  std::snprintf(Data, 9, "%02x", minutes);
  std::strcpy(DataLen, "002");
}

void LogTime(const char *format, const std::tm &time, std::int64_t seconds) {
  LogLine(0, format, time.tm_year, time.tm_mon + 1, time.tm_mday, time.tm_hour, time.tm_min,
          static_cast<unsigned long>(static_cast<std::uint32_t>(seconds)));
}

}  // namespace
}  // namespace snmplumi

using snmplumi::LogLine;

DWORD WriteDPTime(char *Data, char *DataLen) {
  std::uint32_t data_time = snmplumi::DelayTicks(Data);
  LogLine(0, " return delay time is %dsec", static_cast<int>(data_time / 100));
  snmplumi::SetOnEveryUps(snmplumi::mib::upsAdvConfigReturnDelay, 't', &data_time,
                          " [WriteDPTime] SnmpSet err (0) counter=%d",
                          " [WriteDPTime] SnmpSet err (%d) counter=%d");
  if (DataLen != nullptr) std::strcpy(DataLen, "000");
  return 0;  // whatever happened, as the host expects
}

DWORD WriteOffWT(char *Data, char *) {
  std::uint32_t data_time = snmplumi::DelayTicks(Data);
  LogLine(0, " shutdown delay time is %dsec", static_cast<int>(data_time / 100));
  return snmplumi::SetOnEveryUps(snmplumi::mib::upsAdvConfigShutoffDelay, 't', &data_time,
                                 " [WriteOffWT] SnmpSet err (%d) counter=%d",
                                 " [WriteOffWT] SnmpSet err (%d) counter=%d");
}

DWORD ReadDPTime(char *Data, char *DataLen) {
  if (Data == nullptr || DataLen == nullptr) return 0;
  DWORD result = 0;
  std::uint32_t seconds = 0;
  if (!snmplumi::ReadDelay(snmplumi::mib::upsAdvConfigReturnDelay, -1,
                           " [ReadDPTime] SnmpGet err (%d) counter=%d", Data, DataLen, &result,
                           &seconds)) {
    return 0;  // a failed read is reported as success; kept so
  }
  LogLine(0, " [UPS%d]return delay time is %dsec", snmplumi::FirstConfiguredUps(),
          static_cast<int>(seconds));
  snmplumi::AnswerMinutes(Data, DataLen, seconds < 60 ? 0 : seconds / 60);
  return 0;
}

DWORD ReadOffWT(char *Data, char *DataLen) {
  if (Data == nullptr || DataLen == nullptr) return UPS_E_INVALID_PARAM;
  DWORD result = 0;
  std::uint32_t seconds = 0;
  // The error line names slot 0 whatever slot was read; kept so.
  if (!snmplumi::ReadDelay(snmplumi::mib::upsAdvConfigShutoffDelay, 0,
                           " [ReadOffWT] SnmpGet err (%d) counter=%d", Data, DataLen, &result,
                           &seconds)) {
    return result;
  }
  LogLine(0, " [UPS%d]shutdown delay time is %dsec", snmplumi::FirstConfiguredUps(),
          static_cast<int>(seconds));
  // Unlike the return delay, a minute or less answers 1.
  snmplumi::AnswerMinutes(Data, DataLen, seconds > 60 ? seconds / 60 : 1);
  return result;
}

DWORD WriteOnTime(char *Data, char *) {
  using namespace snmplumi;
  const int index = FirstConfiguredUps();
  std::int32_t ticks = 0;
  std::uint32_t delay = kDefaultShutoffDelay;
  if (GetWithRetries(index, index, mib::upsAdvConfigShutoffDelay, 'i', &ticks, sizeof ticks,
                     " [WriteOnTime] SnmpGet err (%d) counter=%d") == 0) {
    delay = static_cast<std::uint32_t>(ticks) / 100;
    LogLine(0, "  [UPS%d]shutdown delay time is %dsec", index, static_cast<int>(delay));
  }
  const std::time_t now = CurrentClock().Now();
  const std::time_t off_time = OffTime(now, delay);
  std::tm now_time{};
  localtime_r(&off_time, &now_time);
  std::tm set_time = now_time;
  unsigned int month = 0, day = 0, hour = 0, minute = 0;
  if (Data != nullptr) std::sscanf(Data, "%2x%2x%2x%2x", &month, &day, &hour, &minute);
  set_time.tm_mon = static_cast<int>(month) - 1;
  if (set_time.tm_mon < now_time.tm_mon) ++set_time.tm_year;  // a month gone by is next year's
  set_time.tm_mday = static_cast<int>(day);
  set_time.tm_hour = static_cast<int>(hour);
  set_time.tm_min = static_cast<int>(minute);
  set_time.tm_sec = 0;
  LogTime(" OFF Time: %02d/%02d/%02d %02d:%02d %lu", now_time, off_time);
  const std::time_t on_time = std::mktime(&set_time);
  LogTime(" ON  Time: %02d/%02d/%02d %02d:%02d %lu", set_time, on_time);

  // The calendar sleep time of the power orders: 600 s for a time already past or a delay of
  // over a year.
  SleepPlan plan = PlanSleep(0, on_time, delay, now, DilayTimeCut[0] == 'Y');
  if (plan.note != SleepNote::kNone) {
    LogLine(0, "%s", plan.note == SleepNote::kPast ? kPastLine : kTooFarLine);
  }
  std::uint32_t data_time = plan.data_time;
  LogLine(0, " sleep time is %dsec : %d.%dh", static_cast<int>(data_time / 100),
          static_cast<int>(data_time / 360000), static_cast<int>(data_time % 360000 / 36000));
  return SetOnEveryUps(mib::upsAdvConfigUpsSleepTime, 't', &data_time,
                       " [WriteOnTime] SnmpSet err (0) counter=%d",
                       " [WriteOnTime] SnmpSet err (%d) counter=%d");
}

DWORD ReadOnTime(char *Data, char *DataLen) {
  if (Data != nullptr) std::strcpy(Data, "00000000");
  if (DataLen != nullptr) std::strcpy(DataLen, "000");
  return 0;
}

DWORD ReadClock(char *Data, char *DataLen) {
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kReadClock, response);
  if (Data != nullptr) {
    int fields[6] = {};
    if (result == 0) {
      std::sscanf(response + snmplumi::kChannelDataStart, "%2d%2d%2d%2d%2d%2d", &fields[0],
                  &fields[1], &fields[2], &fields[3], &fields[4], &fields[5]);
      std::snprintf(Data, 13, "%02x%02x%02x%02x%02x%02x", fields[0] & 0xff, fields[1] & 0xff,
                    fields[2] & 0xff, fields[3] & 0xff, fields[4] & 0xff, fields[5] & 0xff);
    } else {
      std::strcpy(Data, "000000000000");
    }
  }
  if (DataLen != nullptr) std::strcpy(DataLen, "00C");
  return result;
}

DWORD ReadReap(char *Data, char *DataLen) {
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kReadReap, response);
  if (Data == nullptr || DataLen == nullptr) return result;
  if (result == 0) {
    int count = 0;
    std::sscanf(response + snmplumi::kChannelDataStart, "%1d", &count);
    std::snprintf(Data, 3, "%02d", count);
    std::strcpy(DataLen, "002");
  } else {
    // The unit answered a failure with a malformed "%00" format: nothing.
    Data[0] = '\0';
    std::strcpy(DataLen, "000");
  }
  return result;
}

DWORD ReadLog(char *Data, char *DataLen) {
  int number = 0;
  if (Data != nullptr) std::sscanf(Data, "%2d", &number);
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kReadLog, response, number);
  if (Data != nullptr) {
    if (result == 0) {
      std::snprintf(Data, 16, "%.15s", response + snmplumi::kChannelDataStart);
    } else {
      std::strcpy(Data, "ZZZZZZZZZZZZZZZ");
    }
  }
  if (DataLen != nullptr) std::strcpy(DataLen, "00F");
  return 0;  // the host reads a failure from the Z's
}
