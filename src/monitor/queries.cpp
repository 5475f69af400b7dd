// The host's single-UPS status queries. Each reads its objects in a fixed order, writes what it
// read through the caller's pointers, logs a failure with the SNMP result code and answers 1 only
// when every required value was read.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "powernet.h"
#include "runtime/log_line.h"
#include "runtime/profile.h"
#include "snmp/requests.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr int kNotRead = 99999;
constexpr int kFaultMark = 0x100;
constexpr int kOnBattery = 3;      // upsBasicOutputStatus onBattery(3)
constexpr int32_t kSelfTest = 9;   // upsAdvInputLineFailCause selfTest(9)
constexpr int kShortBattery = 14;  // seconds on battery still worth a line about the cause
constexpr int kSerialFlag = 5;     // of upsBasicStateOutputState: card and UPS talk
constexpr std::size_t kStateFlags = 64;
constexpr int kScgErrorLimit = 30;
constexpr char kNoReading[] = " - -- --- --- --- --  -- - --- -- ---- ---  --- --- ----  - ";

// The input-line classes of GetUpsInputStatusFromSnmp.
constexpr int kInputGood = 1;
constexpr int kInputLost = 2;
constexpr int kInputGoodBatteryLow = 3;
constexpr int kInputHigh = 5;
constexpr int kInputLow = 6;

// One GET with the queries' log flag; the SNMP result.
DWORD Get(const char *ip, const char *oid_text, char letter, int *value, int logflag = 0) {
  int32_t read = 0;
  DWORD result = GetValue(ip, oid_text, letter, &read, sizeof read, logflag);
  if (result == 0) *value = read;
  return result;
}

// upsBasicStateOutputState, cut to its 64 flags, into state (at least 65 bytes), over fill.
DWORD GetStateFlags(const char *ip, char fill, char *state) {
  char text[130];
  std::memset(text, fill, sizeof text);
  if (fill == '\0') text[sizeof text - 1] = '\0';
  DWORD result = GetValue(ip, mib::upsBasicStateOutputState, 's', text, sizeof text - 1, 2);
  text[kStateFlags] = '\0';
  std::memcpy(state, text, kStateFlags + 1);
  return result;
}

// A stored fault of the UPS at ip, or 0.
int StoredFault(const char *ip) {
  if (std::strcmp(ip, UpsIp[0]) == 0 && ups_Falut != 0) return ups_Falut;
  for (int n = 0; n < SNMPLUMI_GROUP_SLOTS; ++n) {
    if (std::strcmp(ip, UpsIpServer[n]) == 0 && ups_Server_Falut[0][n] != 0) {
      return ups_Server_Falut[0][n];
    }
    if (std::strcmp(ip, UpsIpOther[n]) == 0 && ups_Other_Falut[0][n] != 0) {
      return ups_Other_Falut[0][n];
    }
  }
  return 0;
}

// Reads the card's name and writes it back: a card that refuses this manager's SETs is not
// trusted with a status. 0, or the failing result with check 1 when the write failed.
DWORD WriteTest(const char *ip, int *check) {
  char name[130] = {};
  DWORD result = 0;
  for (int attempt = 0; attempt < 4; ++attempt) {
    if (attempt > 0) Sleep(100);
    result = GetValue(ip, mib::upsBasicIdentName, 's', name, sizeof name - 1, 0);
    if (result == 0) break;
  }
  *check = result == 0 ? 1 : 0;
  if (result != 0) return result;
  for (int attempt = 0; attempt < 4; ++attempt) {
    if (attempt > 0) Sleep(400);
    result = SetValue(ip, mib::upsBasicIdentName, 's', name);
    if (result == 0) break;
  }
  return result;
}

}  // namespace
}  // namespace snmplumi

using snmplumi::Get;
namespace mib = snmplumi::mib;
using snmplumi::LogLine;

BOOL GetUpsStatusFromSnmp(char *ip, int *sts) {
  if (ip == nullptr || sts == nullptr) return 0;
  DWORD result = Get(ip, mib::upsBasicOutputStatus, 'i', sts);
  if (result != 0) {
    LogLine(result, "GetUpsStatusFromSnmp[%s] error!", ip);
    return 0;
  }
  LogLine(0, "GetUpsStatusFromSnmp[%s] success!", ip);
  return 1;
}

BOOL GetUpsInputStatusFromSnmp(char *ip, int *sts) {
  using namespace snmplumi;
  if (ip == nullptr || sts == nullptr) return 0;
  if (int fault = StoredFault(ip); fault != 0) {
    *sts = fault | kFaultMark;
    return 1;
  }
  int volts = 0;
  if (DWORD result = Get(ip, mib::upsAdvInputLineVoltage, 'u', &volts); result != 0) {
    LogLine(result, "GetUpsInputStatusFromSnmp(1)[%s] error!", ip);
    return 0;
  }
  if (volts == 0) {
    *sts = kInputLost;
  } else if (volts >= upsAdvConfigHighTransferVolt) {
    *sts = kInputHigh;
  } else if (volts <= upsAdvConfigLowTransferVolt) {
    *sts = kInputLow;
  } else {
    int capacity = 0;
    if (DWORD result = Get(ip, mib::upsAdvBatteryCapacity, 'u', &capacity); result != 0) {
      LogLine(result, "GetUpsInputStatusFromSnmp(2)[%s] error!", ip);
      return 0;
    }
    *sts = capacity < upsAdvConfigMinReturnCapacity ? kInputGoodBatteryLow : kInputGood;
  }
  return 1;
}

BOOL GetUpsDetailStatusFromSnmp(char *ip, int *outsts, int *involt, int *charge, int *Battrun,
                                int *BatteryCause) {
  using namespace snmplumi;
  if (ip == nullptr || outsts == nullptr || involt == nullptr || charge == nullptr ||
      Battrun == nullptr || BatteryCause == nullptr) {
    return 0;
  }
  for (int *output : {outsts, involt, charge, Battrun, BatteryCause}) *output = kNotRead;
  int check = 0;
  if (DWORD result = WriteTest(ip, &check); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp(outsts)[%s] name error! check=%d", ip, check);
    return 0;
  }
  if (DWORD result = Get(ip, mib::upsBasicOutputStatus, 'i', outsts); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp(outsts)[%s] error!", ip);
    return 0;
  }
  int ticks = 0;
  if (DWORD result = Get(ip, mib::upsBasicBatteryTimeOnBattery, 't', &ticks); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp(Battrun)[%s] error!", ip);
    return 0;
  }
  *Battrun = static_cast<int>(static_cast<uint32_t>(ticks) / 100);
  if (*outsts == kOnBattery) {
    int cause = 0;
    if (DWORD result = Get(ip, mib::upsAdvInputLineFailCause, 'i', &cause); result != 0) {
      LogLine(result, "GetUpsDetailStatusFromSnmp(InputLineFailCause)[%s] error!", ip);
    } else {
      *BatteryCause = cause;
      if (cause == kSelfTest) {
        LogLine(0, "[%s] self-test!!", ip);
      } else if (*Battrun <= kShortBattery) {
        LogLine(0, " [%s] is OnBattery. Input is (%d)!", ip, cause);
      }
    }
  }
  if (DWORD result = Get(ip, mib::upsAdvBatteryCapacity, 'u', charge); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp(charge)[%s] error!", ip);
    return 0;
  }
  if (DWORD result = Get(ip, mib::upsAdvInputLineVoltage, 'u', involt); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp(involt)[%s] error!", ip);
    return 0;
  }
  return 1;
}

BOOL GetUpsDetailStatusFromSnmp2(char *ip, int *outsts, int *involt, int *charge, int *Battrun,
                                 int *temp, int *BatteryNeeds, int *BatteryCause) {
  using namespace snmplumi;
  if (ip == nullptr || outsts == nullptr || involt == nullptr || charge == nullptr ||
      Battrun == nullptr || temp == nullptr || BatteryNeeds == nullptr || BatteryCause == nullptr) {
    return 0;
  }
  for (int *output : {outsts, involt, charge, Battrun, BatteryCause}) *output = kNotRead;
  char flags[kStateFlags + 1];
  // A card that cannot say is taken as talking to its UPS.
  if (GetStateFlags(ip, '0', flags) == 0 && flags[kSerialFlag] != '1') {
    LogLine(0, "not Serial Communication(%s)=[%s]", ip, flags);
    return 0;
  }
  if (DWORD result = Get(ip, mib::upsAdvBatteryTemperature, 'u', temp); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp2(temp)[%s] error!", ip);
    return 0;
  }
  // A replace indicator that cannot be read leaves the temperature in its place; kept so.
  int needs = *temp;
  if (DWORD result = Get(ip, mib::upsAdvBatteryReplaceIndicator, 'i', &needs); result != 0) {
    LogLine(result, "intValue no Status2");
  }
  *BatteryNeeds = needs;
  return GetUpsDetailStatusFromSnmp(ip, outsts, involt, charge, Battrun, BatteryCause) == 1 ? 1 : 0;
}

BOOL GetUpsDetailStatusFromSnmp3(char *ip, int *MGN, int *SCGonoff, int *PSD, int *RBCO, int *SCGN,
                                 char *SyncSts) {
  using namespace snmplumi;
  if (ip == nullptr || MGN == nullptr || SCGonoff == nullptr || PSD == nullptr || RBCO == nullptr ||
      SCGN == nullptr || SyncSts == nullptr) {
    return 0;
  }
  if (GetStateFlags(ip, '\0', SyncSts) != 0) return 0;
  // After 31 failed group-number reads the group is not asked about again until reload.
  std::atomic_ref<int> errors(OID2upsSCGMembershipGroupNumberErrorCount);
  if (errors.load() > kScgErrorLimit) return 0;
  if (DWORD result = Get(ip, mib::upsSCGMembershipGroupNumber, 'i', MGN); result != 0) {
    LogLine(result, "GetUpsDetailStatusFromSnmp3(MGN)[%s] error! Errcount:[%d]", ip,
            errors.fetch_add(1) + 1);
    return 0;
  }
  struct Setting {
    const char *oid;
    int *output;
    const char *failure;
  };
  const Setting settings[] = {
      {mib::upsSCGActiveMembershipStatus, SCGonoff,
       "GetUpsDetailStatusFromSnmp3(SCGonoff)[%s] error!"},
      {mib::upsSCGPowerSynchronizationDelayTime, PSD,
       "GetUpsDetailStatusFromSnmp3(PSD)[%s] error!"},
      {mib::upsSCGReturnBatteryCapacityOffset, RBCO,
       "GetUpsDetailStatusFromSnmp3(RBCO)[%s] error!"},
      {mib::upsSCGNumOfGroupMembers, SCGN, "GetUpsDetailStatusFromSnmp3(SCGN)[%s] error!"},
  };
  for (const Setting &setting : settings) {
    if (DWORD result = Get(ip, setting.oid, 'i', setting.output); result != 0) {
      LogLine(result, setting.failure, ip);
      return 0;
    }
  }
  return 1;
}

BOOL UPSCheckSnmpRequest2(int index, int flag) {
  using namespace snmplumi;
  char section[16];
  std::snprintf(section, sizeof section, "%d", index);
  char address[kConfigValueSize] = {};
  ReadConfigFileEx("UPS/UPSinfo.ini", section, "IP", address);
  if (std::strcmp(address, kDefaultValue) == 0) {
    LogLine(0, "not UPSinfo.ini");
    return 0;
  }
  if (flag != 0) return 1;
  char report[160];
  int temperature = 0;
  DWORD probe = Get(address, mib::upsAdvBatteryTemperature, 'u', &temperature);
  if (probe != 0) {
    LogLine(probe, "UPSCheckSnmpRequest2 [%s] upsAdvBatteryTemperature error!", address);
    std::memcpy(report, kNoReading, sizeof kNoReading);
  } else {
    SnmpGetReport(index, report);
  }
  ReportLog(index, report);
  return probe != 0 ? 0 : 1;
}
