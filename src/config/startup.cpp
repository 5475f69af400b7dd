// The host's start-up call: forget every status bit, find out which cards answer, and when one
// does, push the UPS parameters of snmp.apc to every configured card.
#include <cstdint>
#include <cstring>
#include <ctime>

#include "config/status_words.h"
#include "monitor/watch.h"
#include "powernet.h"
#include "runtime/log_line.h"
#include "snmp/requests.h"
#include "snmplumi.h"
#include "unit/event_wait.h"

namespace snmplumi {

namespace {

constexpr int32_t kCommunicationOk = 1;  // upsCommStatus ok(1)
constexpr DWORD kRetryPause = 1000;      // milliseconds

// One parameter the start-up wait writes. TimeTicks rows hold seconds and are written in
// hundredths.
struct Push {
  const char *object;
  const int *integer = nullptr;     // 'i'
  const DWORD *seconds = nullptr;   // 't', times 100
  DWORD error_code;                 // logged when the write fails
  bool retried_while_busy = false;  // tried again while the card answers with an error status
};
// clang-format off
constexpr Push kPushes[] = {
    {.object = mib::upsAdvConfigHighTransferVolt,  .integer = &upsAdvConfigHighTransferVolt,  .error_code = 2, .retried_while_busy = true},
    {.object = mib::upsAdvConfigLowTransferVolt,   .integer = &upsAdvConfigLowTransferVolt,   .error_code = 3},
    {.object = mib::upsAdvConfigAlarm,             .integer = &upsAdvConfigAlarm,             .error_code = 4},
    {.object = mib::upsAdvConfigAlarmTimer,        .seconds = &upsAdvConfigAlarmTimer,        .error_code = 5},
    {.object = mib::upsAdvConfigMinReturnCapacity, .integer = &upsAdvConfigMinReturnCapacity, .error_code = 6},
    {.object = mib::upsAdvConfigSensitivity,       .integer = &upsAdvConfigSensitivity,       .error_code = 7},
    {.object = mib::upsAdvConfigLowBatteryRunTime, .seconds = &upsAdvConfigLowBatteryRunTime, .error_code = 8},
    {.object = mib::upsAdvConfigBattExhaustThresh, .seconds = &upsAdvConfigBattExhaustThresh, .error_code = 14},
    {.object = mib::upsAdvTestDiagnosticSchedule,  .integer = &upsAdvTestDiagnosticSchedule,  .error_code = 101},
};
// clang-format on

bool IsUnused(int slot) { return std::strcmp(UpsIp[slot], kUnusedSlot) == 0; }

// A card that cannot be reached (no session, or no answer through all of net-snmp's own
// retransmissions) is given up at once; one that answers badly is asked again a second later.
bool Answers(int slot) {
  const char *ip = UpsIp[slot];
  for (unsigned int attempt = 0; attempt < GetRetryMax; ++attempt) {
    int32_t status = 0;
    DWORD result = GetValue(ip, mib::upsCommStatus, 'i', &status, sizeof status, 0);
    if (result == 0 && status == kCommunicationOk) return true;
    if (result == UPS_E_NO_SERVER) return false;
    Sleep(kRetryPause);
  }
  return false;
}

DWORD Write(int slot, const Push &push) {
  if (push.integer != nullptr) {
    int32_t value = *push.integer;
    return SetValue(UpsIp[slot], push.object, 'i', &value);
  }
  uint32_t ticks = *push.seconds * 100;
  return SetValue(UpsIp[slot], push.object, 't', &ticks);
}

void PushParameters(int slot) {
  for (const Push &push : kPushes) {
    unsigned int tries = push.retried_while_busy ? SetRetryMax : 1;
    DWORD result = 0;
    for (unsigned int attempt = 0; attempt < tries; ++attempt) {
      if (attempt > 0) Sleep(kRetryPause);
      result = Write(slot, push);
      if (result != UPS_E_CANT_ACCESS) break;
    }
    if (result != 0) LogLine(push.error_code, "  UPS parameter set error");
  }
}

}  // namespace
}  // namespace snmplumi

BOOL WaitDromStartUp(time_t WaitTime) {
  using namespace snmplumi;
  (void)WaitTime;  // accepted for the host's sake; the wait is bounded by the retry counts
  ForgetTrapSession();
  LogLine(0, "WaitDromStartUp...");
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (g_bDebugMode == 1) LogLine(static_cast<DWORD>(slot), "UpsIp[%d][0] =%s", slot, UpsIp[slot]);
    StoreWord(ups_X1[slot][0], 0);
    StoreWord(ups_X1[slot][1], 0);
    if (IsUnused(slot)) SetBits(ups_X1[slot][1], kOutOfService);
  }
  LogLine(SNMPLUMI_UPS_SLOTS, "initialize work memory end...");

  int connected = 0;
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (IsUnused(slot) || !Answers(slot)) continue;
    ++connected;
    LogLine(0, " **** UPS[%d] SNMP is connection ****", slot);
  }
  if (connected == 0) {
    LogLine(0, " xxxx UPS SNMP is not connection xxxx");
    return 0;
  }
  ResetTrapChecker();
  // Cards that did not answer get the parameters too: they may have come up meanwhile.
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (!IsUnused(slot)) PushParameters(slot);
  }
  return 1;
}
