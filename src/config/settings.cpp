// The settings table: one row per setting, in the order the files are read, with its default,
// its correction and the log line that follows it.
#include "config/settings.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "runtime/log_line.h"
#include "runtime/profile.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr char kConfigFile[] = "config.apc";
constexpr char kConfigSection[] = "Lumi";
constexpr char kSnmpFile[] = "snmp.apc";
constexpr char kSnmpSection[] = "Snmp";
constexpr char kUnusedSlot[] = "127.0.0.1";

enum class Kind { kInt, kDword, kUnsigned, kPort, kText, kAddressTable };

enum class Rule {
  kTraceMode,         // "ON" switches debug output on; absent also clears the main address
  kFlag,              // on when the text starts with 'y' or 'Y'
  kMainAddress,       // absent: "127.0.0.1"; an empty value stays empty
  kFurtherAddresses,  // absent or empty: "127.0.0.1"
  kGroupAddresses,    // absent: ""
  kText,              // absent: the default text, or "<default>" itself when there is none
  kOffMode,           // absent: only the first character becomes 'S'
  kNumber,            // "%d"; a value that does not parse leaves the variable alone
  kAtLeast30,         // PowerFailWait (unsigned comparison)
  kOtherWait,         // PowerFailWaitOther, bounded by PowerFailWait
  kTrapInterval,      // at least 2 seconds (unsigned comparison), stored in milliseconds
  kAtMost10,          // signed comparison
  kEnumeration,       // PowerNet enumeration names, matched exactly
};

enum class LogAfter {
  kNothing,
  kModeText,        // the text read, with the flag as the log code
  kAddressSummary,  // addresses, community, off mode, timers
  kAutoReboot,
  kNumberValue,  // "*** [key] = (%d)"
  kTextValue,    // "*** [key] = (%s)"
  kOffRequests,
};

struct Name {
  const char *text;
  int value;
};

struct Setting {
  int row;
  const char *file;
  const char *section;
  const char *key;  // "%d" in the address table keys stands for the row number
  Kind kind;
  void *target;
  std::size_t size;  // text size, or rows of an address table
  Rule rule;
  long absent;  // number used when the key is absent
  const char *absent_text;
  const Name *names;  // enumeration names, ended by {nullptr, default}
  LogAfter log;
  const char *log_format;
};

// upsAdvConfigAlarm: timed(1), atLowBattery(2), never(3).
constexpr Name kAlarmNames[] = {{"atLowBattery", 2}, {"never", 3}, {nullptr, 1}};
// upsAdvConfigSensitivity: auto(1), low(2), medium(3), high(4).
constexpr Name kSensitivityNames[] = {{"low", 2}, {"medium", 3}, {"high", 4}, {nullptr, 1}};
// upsAdvTestDiagnosticSchedule: unknown(1), biweekly(2), weekly(3), atTurnOn(4), never(5).
constexpr Name kScheduleNames[] = {{"biweekly", 2}, {"weekly", 3}, {"atTurnOn", 4}, {nullptr, 5}};

constexpr const char *S = kSnmpFile;
constexpr const char *N = kSnmpSection;

// clang-format off
const std::array<Setting, 34> kSettings = {{
  { 1, kConfigFile, kConfigSection, "TraceMode", Kind::kInt, &g_bDebugMode, 0, Rule::kTraceMode, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  { 2, S, N, "AC_MIB_Conv", Kind::kInt, &g_bAC_MIBConvertMode, 0, Rule::kFlag, 0, nullptr, nullptr, LogAfter::kModeText, "### [AC_MIB_Conv mode] AC_MIB_Conv = %s"},
  { 3, S, N, "NO_TRAP", Kind::kInt, &NO_TRAP_SERVICE, 0, Rule::kFlag, 0, nullptr, nullptr, LogAfter::kModeText, "### [TRAP mode] NO_TRAP = %s"},
  { 4, S, N, "UPS_IP", Kind::kText, UpsIp[0], sizeof UpsIp[0], Rule::kMainAddress, 0, kUnusedSlot, nullptr, LogAfter::kNothing, nullptr},
  { 5, S, N, "UPS_IP%d", Kind::kAddressTable, UpsIp, 130, Rule::kFurtherAddresses, 0, kUnusedSlot, nullptr, LogAfter::kNothing, nullptr},
  { 6, S, N, "UPS_IP_S%d", Kind::kAddressTable, UpsIpServer, 16, Rule::kGroupAddresses, 0, "", nullptr, LogAfter::kNothing, nullptr},
  { 7, S, N, "SERVER_IP_%d", Kind::kAddressTable, ServerIP, 16, Rule::kGroupAddresses, 0, "", nullptr, LogAfter::kNothing, nullptr},
  { 8, S, N, "UPS_IP_O%d", Kind::kAddressTable, UpsIpOther, 16, Rule::kGroupAddresses, 0, "", nullptr, LogAfter::kNothing, nullptr},
  { 9, S, N, "UPS_Com", Kind::kText, UpsCommunity, sizeof UpsCommunity, Rule::kText, 0, "kestal", nullptr, LogAfter::kNothing, nullptr},
  {10, S, N, "UPS_Off", Kind::kText, UpsOffMode, sizeof UpsOffMode, Rule::kOffMode, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {11, S, N, "UPS_Power_fail_wait", Kind::kDword, &PowerFailWait, 0, Rule::kAtLeast30, 60, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {12, S, N, "UPS_Power_fail_wait_other", Kind::kDword, &PowerFailWaitOther, 0, Rule::kOtherWait, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {13, S, N, "UPS_other_on_wait", Kind::kDword, &OtherUpsOnWait, 0, Rule::kNumber, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {14, S, N, "SNMP_Trap_interval", Kind::kDword, &SnmpTrapInt, 0, Rule::kTrapInterval, 10, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {15, S, N, "DilayTimeCut", Kind::kText, DilayTimeCut, sizeof DilayTimeCut, Rule::kText, 0, "Y", nullptr, LogAfter::kNothing, nullptr},
  {16, S, N, "SNMP_GET_RETRY", Kind::kUnsigned, &GetRetryMax, 0, Rule::kNumber, 5, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {17, S, N, "SNMP_SET_RETRY", Kind::kUnsigned, &SetRetryMax, 0, Rule::kNumber, 5, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {18, S, N, "NAME", Kind::kText, SecurityName, sizeof SecurityName, Rule::kText, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {19, S, N, "PORT", Kind::kPort, &CommunicationPortNo, 0, Rule::kNumber, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {20, S, N, "ARM_PORT", Kind::kPort, &ArmPortNo, 0, Rule::kNumber, 0, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {21, S, N, "SEND_IP", Kind::kText, SendIp, sizeof SendIp, Rule::kText, 0, "255.255.255.255", nullptr, LogAfter::kAddressSummary, nullptr},
  {22, S, N, "AUTO_REBOOT_ORG", Kind::kInt, &g_Auto_Reboot_Org, 0, Rule::kFlag, 0, nullptr, nullptr, LogAfter::kAutoReboot, "g_Auto_Reboot_Org (%d)"},
  {23, S, N, "upsAdvConfigHighTransferVolt", Kind::kInt, &upsAdvConfigHighTransferVolt, 0, Rule::kNumber, 108, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {24, S, N, "upsAdvConfigLowTransferVolt", Kind::kInt, &upsAdvConfigLowTransferVolt, 0, Rule::kNumber, 87, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {25, S, N, "upsAdvConfigAlarm", Kind::kInt, &upsAdvConfigAlarm, 0, Rule::kEnumeration, 1, nullptr, kAlarmNames, LogAfter::kNumberValue, nullptr},
  {26, S, N, "upsAdvConfigAlarmTimer", Kind::kDword, &upsAdvConfigAlarmTimer, 0, Rule::kNumber, 0, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {27, S, N, "upsAdvConfigMinReturnCapacity", Kind::kInt, &upsAdvConfigMinReturnCapacity, 0, Rule::kNumber, 90, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {28, S, N, "upsAdvConfigSensitivity", Kind::kInt, &upsAdvConfigSensitivity, 0, Rule::kEnumeration, 1, nullptr, kSensitivityNames, LogAfter::kNumberValue, nullptr},
  {29, S, N, "upsAdvConfigLowBatteryRunTime", Kind::kDword, &upsAdvConfigLowBatteryRunTime, 0, Rule::kNumber, 120, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {30, S, N, "upsAdvConfigBattExhaustThresh", Kind::kDword, &upsAdvConfigBattExhaustThresh, 0, Rule::kNumber, 0, nullptr, nullptr, LogAfter::kNumberValue, nullptr},
  {31, S, N, "upsAdvTestDiagnosticSchedule", Kind::kInt, &upsAdvTestDiagnosticSchedule, 0, Rule::kEnumeration, 5, nullptr, kScheduleNames, LogAfter::kNumberValue, nullptr},
  {32, S, N, "upsBasicIdentName", Kind::kText, upsBasicIdentName, sizeof upsBasicIdentName, Rule::kText, 0, "APC UPS", nullptr, LogAfter::kTextValue, nullptr},
  {33, S, N, "OffRequestCount", Kind::kInt, &OffRequestCount, 0, Rule::kAtMost10, 2, nullptr, nullptr, LogAfter::kNothing, nullptr},
  {34, S, N, "OffRequestInterval", Kind::kInt, &OffRequestInterval, 0, Rule::kAtMost10, 1, nullptr, nullptr, LogAfter::kOffRequests, nullptr},
}};
// clang-format on

bool Absent(const char *value) { return std::strcmp(value, kDefaultValue) == 0; }

// A value longer than its variable is cut to fit; it never runs into the variable behind it.
void CopyText(char *target, std::size_t size, const char *text) {
  std::size_t length = strnlen(text, size - 1);
  std::memcpy(target, text, length);
  target[length] = '\0';
}

long ReadNumber(const Setting &setting) {
  switch (setting.kind) {
    case Kind::kInt:
      return *static_cast<int *>(setting.target);
    case Kind::kDword:
      return static_cast<long>(*static_cast<DWORD *>(setting.target));
    case Kind::kUnsigned:
      return static_cast<long>(*static_cast<unsigned *>(setting.target));
    case Kind::kPort:
      return *static_cast<unsigned short *>(setting.target);
    default:
      return 0;
  }
}

// Stores a "%d" number: unsigned variables take the int's bits, the ports its low 16 bits.
void StoreNumber(const Setting &setting, long value) {
  switch (setting.kind) {
    case Kind::kInt:
      *static_cast<int *>(setting.target) = static_cast<int>(value);
      break;
    case Kind::kDword:
      *static_cast<DWORD *>(setting.target) = static_cast<DWORD>(value);
      break;
    case Kind::kUnsigned:
      *static_cast<unsigned *>(setting.target) = static_cast<unsigned>(value);
      break;
    case Kind::kPort:
      *static_cast<unsigned short *>(setting.target) = static_cast<unsigned short>(value);
      break;
    default:
      break;
  }
}

// "%d" of the text; nothing is stored when it does not parse.
void ParseNumberInto(const Setting &setting, const char *value) {
  int number;
  if (std::sscanf(value, "%d", &number) == 1) StoreNumber(setting, number);
}

int Enumerate(const Name *names, const char *value) {
  for (; names->text != nullptr; ++names) {
    if (std::strcmp(names->text, value) == 0) return names->value;
  }
  return names->value;
}

// snmp.apc is read once and its keys answered from memory; config.apc holds one key.
const ProfileSnapshot *g_snmp_file = nullptr;

void ReadValue(const Setting &setting, const char *key, char *value) {
  if (g_snmp_file != nullptr && setting.file == kSnmpFile) {
    g_snmp_file->Read(setting.section, key, value);
  } else {
    ReadConfigFileEx(setting.file, setting.section, key, value);
  }
}

void ReadAddressTable(const Setting &setting) {
  auto *rows = static_cast<char(*)[64]>(setting.target);
  int first = setting.rule == Rule::kFurtherAddresses ? 1 : 0;
  for (int row = first; row < static_cast<int>(setting.size); ++row) {
    char key[32];
    std::snprintf(key, sizeof key, setting.key, row);
    char value[kConfigValueSize];
    ReadValue(setting, key, value);
    bool absent = Absent(value) || (setting.rule == Rule::kFurtherAddresses && value[0] == '\0');
    CopyText(rows[row], sizeof rows[row], absent ? setting.absent_text : value);
  }
}

void Apply(const Setting &setting, const char *value) {
  const bool absent = Absent(value);
  switch (setting.rule) {
    case Rule::kTraceMode:
      if (absent) {
        CopyText(UpsIp[0], sizeof UpsIp[0], kUnusedSlot);  // the table read next may fill it again
      } else {
        g_bDebugMode = std::strcmp(value, "ON") == 0 ? 1 : 0;
      }
      break;
    case Rule::kFlag:
      StoreNumber(setting, !absent && (value[0] == 'y' || value[0] == 'Y') ? 1 : 0);
      break;
    case Rule::kMainAddress:
    case Rule::kText:
      if (!absent) {
        CopyText(static_cast<char *>(setting.target), setting.size, value);
      } else {
        // With no default the text "<default>" itself stays in the variable.
        CopyText(static_cast<char *>(setting.target), setting.size,
                 setting.absent_text != nullptr ? setting.absent_text : value);
      }
      break;
    case Rule::kOffMode:
      CopyText(static_cast<char *>(setting.target), setting.size, value);
      if (absent) UpsOffMode[0] = 'S';  // "Sdefault>": only the first character is ever read
      break;
    case Rule::kNumber:
    case Rule::kAtLeast30:
    case Rule::kTrapInterval:
    case Rule::kAtMost10:
      if (absent) {
        StoreNumber(setting, setting.absent);
      } else {
        ParseNumberInto(setting, value);
      }
      if (setting.rule == Rule::kAtLeast30 && PowerFailWait < 30) PowerFailWait = 30;
      if (setting.rule == Rule::kTrapInterval) {
        if (SnmpTrapInt < 2) SnmpTrapInt = 2;
        SnmpTrapInt *= 1000;
      }
      if (setting.rule == Rule::kAtMost10 && ReadNumber(setting) > 10) StoreNumber(setting, 10);
      break;
    case Rule::kOtherWait: {
      DWORD bounded = PowerFailWait >= 60 ? PowerFailWait - 45 : 15;
      if (!absent) ParseNumberInto(setting, value);
      if (absent || PowerFailWaitOther > PowerFailWait + 45) PowerFailWaitOther = bounded;
      break;
    }
    case Rule::kEnumeration:
      StoreNumber(setting, absent ? setting.absent : Enumerate(setting.names, value));
      break;
    case Rule::kFurtherAddresses:
    case Rule::kGroupAddresses:
      break;  // read row by row
  }
}

void LogAddressSummary() {
  LogLine(0, "### [UPS_IP] = (%s) Community : (%s)", UpsIp[0], UpsCommunity);
  for (int slot = 1; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (std::strcmp(UpsIp[slot], kUnusedSlot) != 0) {
      LogLine(0, "### [UPS_IP%d] = (%s)", slot, UpsIp[slot]);
    }
  }
  LogLine(0, "### Off Mode[UPS_Off] = (%c) Sleep/Trun   [DilayTimeCut] = (%c) Y/N", UpsOffMode[0],
          DilayTimeCut[0]);
  LogLine(0, "### SNMP watch timer[UPS_Power_fail_wait]= (%dsec)  [_other]= (%dsec)",
          static_cast<int>(PowerFailWait), static_cast<int>(PowerFailWaitOther));
  LogLine(0, "### SNMP Trap Interval timer[SNMP_Trap_interval] sec= (%d)",
          static_cast<int>(SnmpTrapInt / 1000));
  LogLine(0, "### SNMP watch timer[UPS_other_on_wait]= (%dsec)", static_cast<int>(OtherUpsOnWait));
}

void LogAfterRow(const Setting &setting, const char *value) {
  switch (setting.log) {
    case LogAfter::kNothing:
      break;
    case LogAfter::kModeText:
      LogLine(static_cast<DWORD>(ReadNumber(setting)), setting.log_format, value);
      break;
    case LogAfter::kAddressSummary:
      LogAddressSummary();
      break;
    case LogAfter::kAutoReboot:
      LogLine(0, setting.log_format, g_Auto_Reboot_Org);
      break;
    case LogAfter::kNumberValue:
      LogLine(0, "*** [%s] = (%d)", setting.key, static_cast<int>(ReadNumber(setting)));
      break;
    case LogAfter::kTextValue:
      LogLine(0, "*** [%s] = (%s)", setting.key, static_cast<const char *>(setting.target));
      break;
    case LogAfter::kOffRequests:
      LogLine(0, " OffRequestCount=%d OffRequestInterval=%d", OffRequestCount, OffRequestInterval);
      break;
  }
}

void ReadSetting(const Setting &setting) {
  if (setting.kind == Kind::kAddressTable) {
    ReadAddressTable(setting);
    return;
  }
  // Read through a buffer that holds whatever the profile read may store.
  char value[kConfigValueSize];
  ReadValue(setting, setting.key, value);
  Apply(setting, value);
  LogAfterRow(setting, value);
}

}  // namespace

void ReadDebugSwitch() { ReadSetting(kSettings.front()); }

void ReadSettings() {
  ProfileSnapshot snmp_file(kSnmpFile);
  g_snmp_file = &snmp_file;
  for (std::size_t i = 1; i < kSettings.size(); ++i) ReadSetting(kSettings[i]);
  g_snmp_file = nullptr;
}

}  // namespace snmplumi
