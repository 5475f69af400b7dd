// The shutdown the host orders with "V00": every configured UPS is switched off, put to sleep or
// told to conserve battery, as the off mode and its status words say. Blocks for every retry and
// pause; the status words are those the power-state watch keeps.
#include <cstdint>
#include <cstring>

#include "config/status_words.h"
#include "powernet.h"
#include "runtime/log_line.h"
#include "snmp/requests.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

// The type the scheduled modes pass: the byte 2, not a letter. The SNMP layer refuses the
// variable, so those modes never reach a card; kept so.
constexpr char kTypeByteTwo = 2;
constexpr int kPlainOffCapacity = 200;  // upsAdvConfigMinReturnCapacity asking for off, not sleep

// clang-format off
constexpr std::int32_t kTurnUpsOffGracefully        = 3;  // upsAdvControlUpsOff
constexpr std::int32_t kPutUpsToSleepGracefully     = 3;  // upsAdvControlUpsSleep
constexpr std::int32_t kTurnOffUpsToConserveBattery = 2;  // upsBasicControlConserveBattery
// clang-format on
constexpr std::int32_t kNoSleepTime = 0;  // back as soon as the mains return

constexpr char kSetError[] = " [KavPcShutDown] SnmpSet err (%d) counter=%d";
constexpr char kOffError[] = " [KavPcShutDown] SnmpSet(OID1) err (%d) counter=%d";
constexpr char kSleepError[] = " [KavPcShutDown] SnmpSet(OID2) err (%d) counter=%d";
constexpr char kSleepTimeError[] = " [KavPcShutDown] SnmpSet(OIDS) err (%d) counter=%d";
constexpr char kSleepTimeLine[] = " powerfail retrun sleep time is %dsec";
constexpr char kOffLine[] = "====PowerOff:upsAdvControlUpsOff====";

// An order retried on one UPS: up to SetRetryMax attempts; no-server and no-access give up.
struct Order {
  const char *object;
  char type;
  std::int32_t value;
  const char *attempt_line = nullptr;  // logged before each attempt
  DWORD attempt_code = 0;
  const char *error_line;  // index, counter
  DWORD pause_ms = 0;
  bool pause_on_success = false;  // else after a failed attempt
};
constexpr Order kScheduledSleep{.object = mib::upsAdvControlUpsSleep,
                                .type = kTypeByteTwo,
                                .value = kPutUpsToSleepGracefully,
                                .error_line = kSleepError};
constexpr Order kUnscheduledOff{.object = mib::upsAdvControlUpsOff,
                                .type = kTypeByteTwo,
                                .value = kTurnUpsOffGracefully,
                                .error_line = kSetError,
                                .pause_ms = 500,
                                .pause_on_success = true};
constexpr Order kOff{.object = mib::upsAdvControlUpsOff,
                     .type = 'i',
                     .value = kTurnUpsOffGracefully,
                     .error_line = kOffError,
                     .pause_ms = 1000,
                     .pause_on_success = true};
constexpr Order kPowerFailOff{.object = mib::upsAdvControlUpsOff,
                              .type = 'i',
                              .value = kTurnUpsOffGracefully,
                              .attempt_line = kOffLine,
                              .attempt_code = kTurnUpsOffGracefully,
                              .error_line = kSetError,
                              .pause_ms = 1000,
                              .pause_on_success = true};
constexpr Order kZeroSleepTime{.object = mib::upsAdvConfigUpsSleepTime,
                               .type = 't',
                               .value = kNoSleepTime,
                               .error_line = kSleepTimeError,
                               .pause_ms = 1000};
constexpr Order kZeroSleepTimeForFollower{.object = mib::upsAdvConfigUpsSleepTime,
                                          .type = 't',
                                          .value = kNoSleepTime,
                                          .error_line = kSleepTimeError,
                                          .pause_ms = 500};

// The first character of the data selects a scheduled mode; any other runs the sequence by state.
struct ScheduledMode {
  char code;
  const char *line;  // logged with the UPS index as code
  const Order &order;
};
constexpr ScheduledMode kScheduledModes[] = {
    {'3', "===Schedule PowerOff:putUpsToSleepGracefully====", kScheduledSleep},
    {'4', "===No Schedule:upsAdvControlUpsOff====", kUnscheduledOff},
};

bool GivesUp(DWORD result) { return result == UPS_E_NO_SERVER || result == UPS_E_CANT_ACCESS; }

bool IsUnused(int index) {
  return std::strncmp(UpsIp[index], kUnusedSlot, sizeof UpsIp[index]) == 0;
}

DWORD Send(int index, const char *object, char type, std::int32_t value) {
  // With the type byte 2 the value's own bytes are its text: "\x03", ended by its zero bytes.
  return SetValue(UpsIp[index], object, type, &value);
}

// counter is left where the attempts ended: a caller goes on counting from it. No attempt
// (SetRetryMax 0) leaves 1, the value the loop starts from.
DWORD Retry(int index, const Order &order, unsigned &counter) {
  DWORD ret = 1;
  counter = 0;
  while (ret != 0 && counter < SetRetryMax) {
    if (order.attempt_line != nullptr) LogLine(order.attempt_code, "%s", order.attempt_line);
    ret = Send(index, order.object, order.type, order.value);
    if (GivesUp(ret)) {
      LogLine(ret, order.error_line, index, static_cast<int>(counter));
      break;
    }
    if (order.pause_ms != 0 && (ret == 0) == order.pause_on_success) Sleep(order.pause_ms);
    ++counter;
  }
  return ret;
}

DWORD RunScheduled(const ScheduledMode &mode) {
  DWORD ret = 0;  // no UPS configured: nothing was asked, nothing failed
  for (int index = 0; index < SNMPLUMI_UPS_SLOTS; ++index) {
    if (IsUnused(index)) continue;
    LogLine(static_cast<DWORD>(index), "%s", mode.line);
    unsigned counter;
    ret = Retry(index, mode.order, counter);
  }
  return ret;
}

// Word 0 of an eligible UPS, logged; -1 for a slot that takes no part.
int EligibleWord(int index) {
  const int word1 = LoadWord(ups_X1[index][1]);
  if (IsUnused(index) || (word1 & kOutOfService) != 0) return -1;
  const int word0 = LoadWord(ups_X1[index][0]);
  LogLine(0, " ups_X1[%d]  [0] : %02x [1] : %02x ", index, word0, word1);
  return word0;
}

// The bits may be older than the last watch pass: one more pass once any UPS is on battery.
void RefreshPowerState() {
  for (int index = 0; index < SNMPLUMI_UPS_SLOTS; ++index) {
    const int word0 = EligibleWord(index);
    if (word0 < 0 || (word0 & kOnBattery) == 0) continue;
    LogLine(0, "KavAcSnmpCheck Start");
    KavAcSnmpCheck();
    LogLine(0, "KavAcSnmpCheck End");
    return;
  }
}

bool AnyPowerFailWaitOver() {
  for (int index = 0; index < SNMPLUMI_UPS_SLOTS; ++index) {
    if ((LoadWord(ups_X1[index][0]) & kPowerFailWait) != 0 &&
        (LoadWord(ups_X1[index][1]) & kOutOfService) == 0) {
      return true;
    }
  }
  return false;
}

// Past its wait: no sleep time, then conserve battery. A card that refuses (on line, say) is put
// to sleep in the same attempt; one that does not answer is asked again, so the conserve order
// has no give-up of its own.
DWORD ConserveBattery(int index) {
  LogLine(0, kSleepTimeLine, kNoSleepTime);
  unsigned counter;
  Retry(index, kZeroSleepTime, counter);  // the order goes on whatever came of it
  DWORD ret = 1;
  counter = 0;
  while (ret != 0 && counter < SetRetryMax) {
    LogLine(kTurnOffUpsToConserveBattery, "====PowerOff:upsBasicControlConserveBattery====");
    ret = Send(index, mib::upsBasicControlConserveBattery, 'i', kTurnOffUpsToConserveBattery);
    if (ret != 0 && ret != UPS_E_NO_SERVER) {
      LogLine(kPutUpsToSleepGracefully, "====PowerOff:putUpsToSleepGracefully====");
      ret = Send(index, mib::upsAdvControlUpsSleep, 'i', kPutUpsToSleepGracefully);
      if (GivesUp(ret)) {
        LogLine(ret, kSleepError, index, static_cast<int>(counter));
        break;
      }
    }
    if (ret != 0) Sleep(1000);
    ++counter;
  }
  return ret;
}

// Within its wait: goes down with the others once any UPS in service ran out of its wait.
// The sleep-time retry restarts the shared counter and leaves it at its own count, as it always
// did. Then a card that takes the sleep time at once but keeps refusing the sleep order would be
// asked for ever (the counter never gets past 2); the attempts are also held to SetRetryMax.
DWORD FollowPowerFail(int index) {
  DWORD ret = 1;
  unsigned counter = 0;
  for (unsigned attempt = 0; ret != 0 && counter < SetRetryMax && attempt < SetRetryMax;
       ++attempt) {
    if (!AnyPowerFailWaitOver()) return 0;
    if (upsAdvConfigMinReturnCapacity == kPlainOffCapacity) {
      LogLine(kTurnUpsOffGracefully, "====PowerOff:upsAdvControlUpsOff 2====");
      ret = Send(index, mib::upsAdvControlUpsOff, 'i', kTurnUpsOffGracefully);
      if (ret == 0) Sleep(500);
    } else {
      LogLine(0, kSleepTimeLine, kNoSleepTime);
      Retry(index, kZeroSleepTimeForFollower, counter);
      LogLine(kPutUpsToSleepGracefully, "====PowerOff:putUpsToSleepGracefully 2====");
      ret = Send(index, mib::upsAdvControlUpsSleep, 'i', kPutUpsToSleepGracefully);
      if (GivesUp(ret)) {
        LogLine(ret, kSleepError, index, static_cast<int>(counter));
        return ret;
      }
      if (ret != 0) Sleep(500);
    }
    if (GivesUp(ret)) {
      LogLine(ret, kSetError, index, static_cast<int>(counter));
      return ret;
    }
    ++counter;
  }
  return ret;
}

DWORD RunByState() {
  const bool sleep_mode = UpsOffMode[0] == 'S';
  if (g_Auto_Reboot_Org == 0 && sleep_mode) RefreshPowerState();
  DWORD ret = 0;  // no UPS served: nothing was asked, nothing failed
  for (int index = 0; index < SNMPLUMI_UPS_SLOTS; ++index) {
    unsigned counter;
    if (!sleep_mode) {
      if (IsUnused(index) || (LoadWord(ups_X1[index][1]) & kOutOfService) != 0) continue;
      LogLine(kTurnUpsOffGracefully, "%s", kOffLine);
      ret = Retry(index, kOff, counter);
      continue;
    }
    const int word0 = EligibleWord(index);
    if (word0 < 0) continue;
    if ((word0 & kPowerFailWait) == 0) {
      ret = FollowPowerFail(index);
    } else if (upsAdvConfigMinReturnCapacity == kPlainOffCapacity) {
      ret = Retry(index, kPowerFailOff, counter);
    } else {
      ret = ConserveBattery(index);
    }
  }
  return ret;
}

}  // namespace
}  // namespace snmplumi

DWORD KavPcShutDown(char *Data, char * /*DataLen*/) {
  // No data at all reads as the empty data of a "V00" that carries none: the sequence by state.
  const char mode = Data != nullptr ? Data[0] : '\0';
  for (const snmplumi::ScheduledMode &scheduled : snmplumi::kScheduledModes) {
    if (scheduled.code == mode) return snmplumi::RunScheduled(scheduled);
  }
  return snmplumi::RunByState();
}
