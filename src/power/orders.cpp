// The host's six direct power orders. They keep no state: each SETs PowerNet objects of the card
// at the address given, logs every step and returns 1 when the card took the order.
#include "power/orders.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "powernet.h"
#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "snmp/requests.h"

namespace snmplumi {
namespace {

constexpr int kLogExchange = 1;  // the reads are logged with their answer
constexpr DWORD kFallbackShutdownDelay = 180;
constexpr DWORD kFallbackLowBatteryRunTime = 120;

// Orders whose value the library chooses.
struct Order {
  const char *object;
  std::int32_t value;
};
// clang-format off
constexpr Order kConserveBattery{mib::upsBasicControlConserveBattery, 2};  // turnOffUpsToConserveBattery
constexpr Order kSleepGracefully{mib::upsAdvControlUpsSleep,          3};  // putUpsToSleepGracefully
// clang-format on

// Orders sent once, with the host's value.
struct SingleOrder {
  const char *object;
  char type;
  const char *request_line;
  const char *success_line;  // nullptr: success is not logged
  const char *error_line;
};
constexpr SingleOrder kTurnOn{.object = mib::upsAdvControlTurnOnUPS,
                              .type = 'i',
                              .request_line = "[%s]SetUpsOnbySnmp(%d)",
                              .success_line = "SetUpsOnbySnmp[%s] success!",
                              .error_line = "SetUpsOnbySnmp[%s] error!"};
constexpr SingleOrder kShutdownDelay{.object = mib::upsAdvConfigShutoffDelay,
                                     .type = 't',
                                     .request_line = "[%s]SetUpsShutdownDelaybySnmp(%d)",
                                     .success_line = "SetUpsShutdownDelaybySnmp[%s] success!",
                                     .error_line = "SetUpsShutdownDelaybySnmp[%s] error!"};
constexpr SingleOrder kSyncActive{.object = mib::upsSCGActiveMembershipStatus,
                                  .type = 'i',
                                  .request_line = "[%s]SetUpsSyncActivebySnmp(%d)",
                                  .success_line = nullptr,
                                  .error_line = "SetUpsSyncActivebySnmp[%s] error!"};

// Orders sent up to OffRequestCount times, OffRequestInterval seconds apart.
struct RepeatedOrder {
  const char *object;
  const char *success_line;
  const char *error_line;
  const char *bad_value_line = nullptr;  // badValue ends the attempts; nullptr: retried
  bool every_attempt = false;            // sent each time, even after the card took it
  bool pause_after_last = false;
};
constexpr RepeatedOrder kOffAttempts{.object = mib::upsAdvControlUpsOff,
                                     .success_line = "SetUpsOffbySnmp[%s] success!",
                                     .error_line = "SetUpsOffbySnmp[%s] error!"};
// The success line names the other order; the log readers know it so.
constexpr RepeatedOrder kSleepAttempts{.object = mib::upsAdvControlUpsSleep,
                                       .success_line = "SetUpsOffbySnmp success!",
                                       .error_line = "SetUpsSleepOffbySnmp[%s] error2!"};
constexpr RepeatedOrder kConserveAttempts{
    .object = kConserveBattery.object,
    .success_line = "SetUpsPowerFailOffbySnmp[%s] success!",
    .error_line = "SetUpsPowerFailOffbySnmp[%s] error!",
    .bad_value_line = "SetUpsPowerFailOffbySnmp[%s] error(UPS_E_INVALID_PARAM)!",
    .pause_after_last = true};
constexpr RepeatedOrder kSleepFallbackAttempts{.object = kSleepGracefully.object,
                                               .success_line = "SetUpsSleepbySnmp[%s] success!",
                                               .error_line = "SetUpsSleepbySnmp[%s] error!",
                                               .every_attempt = true};

// printf would print a null address as "(null)"; say so without relying on it.
const char *Shown(const char *ip) { return ip != nullptr ? ip : "(null)"; }

// The 32 bits a "%d" of the time value printed.
int Low32(std::int64_t value) { return static_cast<std::int32_t>(value); }

// A negative OffRequestInterval (the host may set it) does not pause, rather than for weeks.
void PauseBetweenOrders() {
  constexpr int kLongest = static_cast<int>(std::numeric_limits<DWORD>::max() / 1000);
  Sleep(static_cast<DWORD>(std::clamp(OffRequestInterval, 0, kLongest)) * 1000);
}

DWORD SetInteger(const char *ip, const char *object, std::int32_t value) {
  return SetValue(ip, object, 'i', &value);
}

// result is returned unchanged when no attempt is made (OffRequestCount 0 or less).
DWORD Repeat(const char *ip, const RepeatedOrder &order, std::int32_t value, DWORD result,
             bool &done) {
  const char *shown = Shown(ip);
  const int attempts = OffRequestCount;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    result = SetInteger(ip, order.object, value);
    if (result == 0) {
      done = true;
      LogLine(0, order.success_line, shown);
      if (!order.every_attempt) break;
    } else if (order.bad_value_line != nullptr && result == UPS_E_INVALID_PARAM) {
      LogLine(result, order.bad_value_line, shown);
      break;
    } else {
      LogLine(result, order.error_line, shown);
    }
    if (attempt == attempts - 1 && !order.pause_after_last) break;
    PauseBetweenOrders();
  }
  return result;
}

BOOL SendOnce(const SingleOrder &order, const char *ip, int logged_value, const void *value) {
  const char *shown = Shown(ip);
  LogLine(0, order.request_line, shown, logged_value);
  DWORD result = SetValue(ip, order.object, order.type, value);
  if (result != 0) {
    LogLine(result, order.error_line, shown);
    return 0;
  }
  if (order.success_line != nullptr) LogLine(0, order.success_line, shown);
  return 1;
}

// Whole seconds of a TimeTicks object, or fallback when the card does not give it.
DWORD ReadSeconds(const char *ip, const char *object, DWORD fallback, const char *line) {
  std::uint32_t ticks = 0;
  if (GetValue(ip, object, 't', &ticks, sizeof ticks, kLogExchange) != 0) return fallback;
  LogLine(0, line, Shown(ip), static_cast<int>(ticks / 100));
  return ticks / 100;
}

// ctime's text, line end included, in the caller's buffer (ctime's own is shared by all
// threads). A time it cannot convert prints what printf makes of ctime's null.
const char *CtimeText(std::time_t time, char (&text)[64]) {
  static constexpr char kDays[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  tzset();  // as ctime does: a changed TZ applies
  std::tm parts{};
  if (localtime_r(&time, &parts) == nullptr) return "(null)";
  std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %lld\n", kDays[parts.tm_wday],
                kMonths[parts.tm_mon], parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                parts.tm_year + 1900LL);
  return text;
}

void LogSleepPlan(const char *shown, int mode, std::time_t ontime, const SleepPlan &plan) {
  if (mode > 999) {
    if (plan.note == SleepNote::kTooFar) LogLine(0, "%s", kTooFarLine);
    LogLine(0, "  [%s]set Sleeptime(%d) -> (%e)", shown, Low32(ontime), plan.seconds);
  } else {
    char text[64];
    LogLine(0, "  [%s]set Ontime(%s) %d - %d", shown, CtimeText(ontime, text), Low32(ontime),
            Low32(plan.earliest));
    if (plan.note != SleepNote::kNone) {
      LogLine(0, "%s", plan.note == SleepNote::kPast ? kPastLine : kTooFarLine);
    }
  }
  const DWORD data_time = plan.data_time;
  LogLine(0, " [%s]sleep time is %dsec : %d.%dh", shown, static_cast<int>(data_time / 100),
          static_cast<int>(data_time / 360000), static_cast<int>(data_time % 360000 / 36000));
}

}  // namespace

}  // namespace snmplumi

using snmplumi::Shown;

BOOL SetUpsOffbySnmp(char *ip, int mode) {
  snmplumi::LogLine(0, "[%s]SetUpsOffbySnmp(%d)", Shown(ip), mode);
  bool done = false;
  // No attempt (OffRequestCount 0) leaves code 0 on the error line: no card answered anything.
  DWORD result = snmplumi::Repeat(ip, snmplumi::kOffAttempts, mode, 0, done);
  // The outcome is logged once more; the log readers expect both lines.
  snmplumi::LogLine(result,
                    done ? snmplumi::kOffAttempts.success_line : snmplumi::kOffAttempts.error_line,
                    Shown(ip));
  return done ? 1 : 0;
}

BOOL SetUpsOnbySnmp(char *ip, int mode) {
  std::int32_t value = mode;
  return snmplumi::SendOnce(snmplumi::kTurnOn, ip, mode, &value);
}

BOOL SetUpsShutdownDelaybySnmp(char *ip, DWORD delay) {
  DWORD ticks = snmplumi::Ticks(delay);
  return snmplumi::SendOnce(snmplumi::kShutdownDelay, ip, static_cast<int>(ticks), &ticks);
}

BOOL SetUpsSleepOffbySnmp(char *ip, int mode, time_t ontime) {
  using namespace snmplumi;
  const char *shown = Shown(ip);
  LogLine(0, "[%s]SetUpsSleepOffbySnmp(%d)", shown, mode);
  DWORD delay = ReadSeconds(ip, mib::upsAdvConfigShutoffDelay, kFallbackShutdownDelay,
                            "  [%s]shutdown delay time is %dsec");
  delay += ReadSeconds(ip, mib::upsAdvConfigLowBatteryRunTime, kFallbackLowBatteryRunTime,
                       "  [%s]LowBattery RunTime is %dsec");
  const SleepPlan plan =
      PlanSleep(mode, ontime, delay, CurrentClock().Now(), DilayTimeCut[0] == 'Y');
  LogSleepPlan(shown, mode, ontime, plan);

  DWORD result = SetValue(ip, mib::upsAdvConfigUpsSleepTime, 't', &plan.data_time);
  if (result != 0) {
    LogLine(result, "SetUpsSleepOffbySnmp[%s] error1!", shown);
    return 0;
  }
  PauseBetweenOrders();
  bool done = false;
  result = Repeat(ip, kSleepAttempts, plan.code, result, done);
  if (done) return 1;
  LogLine(result, kSleepAttempts.error_line, shown);
  return 0;
}

BOOL SetUpsPowerFailOffbySnmp(char *ip) {
  using namespace snmplumi;
  const char *shown = Shown(ip);
  LogLine(0, "[%s]SetUpsPowerFailOffbySnmp", shown);
  const DWORD no_sleep = 0;  // back as soon as the mains return
  LogLine(0, " [%s]powerfail retrun sleep time is %dsec", shown, static_cast<int>(no_sleep));
  DWORD result = SetValue(ip, mib::upsAdvConfigUpsSleepTime, 't', &no_sleep);
  if (result != 0) {
    LogLine(result, " powerfail retrun sleep time set error (%d)", static_cast<int>(result));
  }

  PauseBetweenOrders();
  LogLine(0, "[%s] PowerOff:upsBasicControlConserveBattery(%d)====", shown, kConserveBattery.value);
  bool done = false;
  result = Repeat(ip, kConserveAttempts, kConserveBattery.value, result, done);
  // A card that refused to conserve battery (on line, say) is put to sleep instead.
  if (result != 0 && result != UPS_E_NO_SERVER) {
    PauseBetweenOrders();
    LogLine(0, "[%s] PowerOff:upsAdvControlUpsSleep(%d)====", shown, kSleepGracefully.value);
    done = false;
    result = Repeat(ip, kSleepFallbackAttempts, kSleepGracefully.value, result, done);
  }
  if (done) return 1;
  LogLine(result, "SetUpsSleepOffbySnmp[%s] error!", shown);
  return 0;
}

BOOL SetUpsSyncActivebySnmp(char *ip, int val) {
  std::int32_t value = val;
  return snmplumi::SendOnce(snmplumi::kSyncActive, ip, val, &value);
}
