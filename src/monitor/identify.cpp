// Identification and configuration of one registered UPS: its record in "UPS/UPSinfo.ini" keeps
// the card and the UPS it last saw, with their predecessors; a UPS seen for the first time gets
// its group settings and the parameters of its section of "ac_e_net.apc".
#include <arpa/inet.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>

#include "powernet.h"
#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "runtime/profile.h"
#include "snmp/requests.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr char kInfoFile[] = "UPS/UPSinfo.ini";
constexpr char kParameterFile[] = "ac_e_net.apc";
constexpr int kFirstRecord = 1000;
constexpr int kLastRecord = 8999;
constexpr std::size_t kCardTextLimit = 254;
constexpr std::size_t kIdentityLimit = 128;
constexpr std::size_t kSyncInProgress = 31;  // upsBasicStateOutputState flag 32
constexpr int32_t kScgMember = 1;            // upsSCGActiveMembershipStatus enableSCG(1)
constexpr int32_t kScgNotMember = 2;         // disableSCG(2)
constexpr char kDefaultMulticast[] = "224.0.0.100";
constexpr char kNoReading[] = " - -- --- --- --- --  -- - --- -- ---- ---  --- --- ----  - ";

// The parameters of a new UPS, written in this order.
struct Parameter {
  const char *key;
  const char *object;
  char type;
  uint32_t scale;  // seconds in the file, hundredths on the card
  int missing_error;
  int set_error;
};
// clang-format off
constexpr Parameter kParameters[] = {
    {"ShutoffDelay",           mib::upsAdvConfigShutoffDelay,      't', 100, 4,  5},
    {"ReturnDelay",            mib::upsAdvConfigReturnDelay,       't', 100, 6,  7},
    {"HighTransferVolt",       mib::upsAdvConfigHighTransferVolt,  'i', 1,   8,  9},
    {"LowTransferVolt",        mib::upsAdvConfigLowTransferVolt,   'i', 1,   10, 11},
    {"ConfigAlarm",            mib::upsAdvConfigAlarm,             'i', 1,   12, 13},
    {"ConfigAlarmTimer",       mib::upsAdvConfigAlarmTimer,        't', 100, 14, 15},
    {"MinReturnCapacity",      mib::upsAdvConfigMinReturnCapacity, 'i', 1,   16, 17},
    {"Sensitivity",            mib::upsAdvConfigSensitivity,       'i', 1,   18, 19},
    {"LowBatteryRunTime",      mib::upsAdvConfigLowBatteryRunTime, 't', 100, 20, 21},
    {"BattExhaustThresh",      mib::upsAdvConfigBattExhaustThresh, 't', 100, 22, 23},
    {"TestDiagnosticSchedule", mib::upsAdvTestDiagnosticSchedule,  'i', 1,   24, 25},
};
// clang-format on

using Value = char[kConfigValueSize];

bool IsDefault(const char *value) { return std::strcmp(value, kDefaultValue) == 0; }

// "%d" as sscanf reads it (blanks, a sign, digits; the rest ignored), but a number outside 32
// bits is refused instead of being undefined.
bool ParseDecimal(const char *text, int32_t *value, const char **end = nullptr) {
  char *stop = nullptr;
  errno = 0;
  long long number = std::strtoll(text, &stop, 10);
  if (stop == text || errno == ERANGE || number < INT32_MIN || number > INT32_MAX) return false;
  *value = static_cast<int32_t>(number);
  if (end != nullptr) *end = stop;
  return true;
}

// "MB:v3.6.1" gives 30601: a x 10000 + b x 100 + c of the first marker, 0 without one. Parts
// that do not parse count as 0.
int FirmwareRevision(const char *card_text) {
  const char *marker = std::strstr(card_text, "MB:v");
  if (marker == nullptr) marker = std::strstr(card_text, "MB:V");
  if (marker == nullptr) return 0;
  int32_t parts[3] = {};
  const char *cursor = marker + 4;
  for (int32_t &part : parts) {
    if (&part != parts && *cursor++ != '.') break;
    if (!ParseDecimal(cursor, &part, &cursor)) break;
  }
  int64_t revision = int64_t{parts[0]} * 10000 + int64_t{parts[1]} * 100 + parts[2];
  return static_cast<int32_t>(revision);  // wraps like the int it always was
}

// A card's text as the record keeps it: up to its first line break, which the profile file would
// read as another line (another key, or another record's header).
void FirstLine(char *text) { text[std::strcspn(text, "\r\n")] = '\0'; }

// The local time as ctime gives it, without the line end.
void TimeText(char (&text)[64]) {
  std::time_t now = CurrentClock().Now();
  if (ctime_r(&now, text) == nullptr) text[0] = '\0';
  text[std::strcspn(text, "\n")] = '\0';
}

class Record {
 public:
  explicit Record(int index) : index_(index) {
    std::snprintf(section_, sizeof section_, "%d", index);
  }

  int index() const { return index_; }
  Value &ip() { return ip_; }
  Value &path() { return path_; }

  void Read(const char *key, Value &value) const {
    ReadConfigFileEx(kInfoFile, section_, key, value);
  }
  void Write(const char *key, const char *value) const {
    WriteConfigFileEx(kInfoFile, section_, key, value);
  }
  // "UPSCheckSnmpRequest error<n>": only 0, 1, 2 and 5 reach the log; the closing report stands
  // for the others.
  void Error(int number, DWORD result) const {
    if (number == 0 || number == 1 || number == 2 || number == 5) {
      LogLine(result, "UPSCheckSnmpRequest error%d:(%d)[%s]", number, index_, ip_);
    }
  }

 private:
  int index_;
  char section_[16];
  Value ip_ = {};
  Value path_ = {};
};

// A UPS as the record keeps it: both texts end in "]]", so a stored value never equals a
// fresh reading that has not been given the same ending.
struct Identity {
  char model[kConfigValueSize] = {};
  char serial[kConfigValueSize] = {};
  bool operator==(const Identity &other) const {
    return std::strcmp(model, other.model) == 0 && std::strcmp(serial, other.serial) == 0;
  }
};

void CheckCard(Record &record) {
  char text[260] = {};
  DWORD result = GetValue(record.ip(), mib::sysDescr, 's', text, sizeof text - 1, 0);
  if (result != 0) {
    record.Error(0, result);
    return;
  }
  text[kCardTextLimit] = '\0';
  FirstLine(text);
  std::strcat(text, "]");
  int revision = FirmwareRevision(text);
  Value stored;
  record.Read("CardInfo", stored);
  if (std::strcmp(stored, text) == 0) return;
  char now[64];
  TimeText(now);
  char number[16];
  std::snprintf(number, sizeof number, "%d", revision);
  record.Write("DATE_card", now);
  record.Write("OLD_CardInfo", stored);
  record.Write("CardInfo", text);
  record.Write("CardMIBrev", number);
  LogLine(static_cast<DWORD>(revision), " * New card [%s]:%.45s", record.ip(), text);
}

// The UPS behind the card, or false when it cannot be read (logged).
bool ReadIdentity(Record &record, Identity *fresh) {
  char serial[130] = {};
  if (DWORD result =
          GetValue(record.ip(), mib::upsAdvIdentSerialNumber, 's', serial, sizeof serial, 0);
      result != 0) {
    record.Error(1, result);
    return false;
  }
  serial[kIdentityLimit] = '\0';
  FirstLine(serial);
  char model[260] = {};
  if (DWORD result = GetValue(record.ip(), mib::upsBasicIdentModel, 's', model, sizeof model, 0);
      result != 0) {
    record.Error(2, result);
    return false;
  }
  model[kIdentityLimit] = '\0';
  FirstLine(model);
  std::snprintf(fresh->model, sizeof fresh->model, "%s]]", model);
  std::snprintf(fresh->serial, sizeof fresh->serial, "%s]]", serial);
  return true;
}

// A number of the UPS's section of ac_e_net.apc times scale; false when the key is missing, or
// when the value is not a number or leaves 32 bits once scaled (logged: the file is the
// installer's, and a typo there must be findable).
bool ReadNumber(Record &record, const char *key, int32_t *number, uint32_t scale = 1) {
  Value text;
  ReadConfigFileEx(kParameterFile, record.path(), key, text);
  if (IsDefault(text)) return false;
  int32_t read = 0;
  bool usable = ParseDecimal(text, &read);
  int64_t scaled = int64_t{read} * scale;
  if (scale != 1) usable = usable && scaled >= 0 && scaled <= UINT32_MAX;
  if (usable) {
    *number = static_cast<int32_t>(static_cast<uint32_t>(scaled));  // TimeTicks keep their bits
    return true;
  }
  LogLine(0, " [UPS%d:%s] %s [%s] %s=%s: not a usable number", record.index(), record.ip(),
          kParameterFile, record.path(), key, text);
  return false;
}

int32_t NumberOr(Record &record, const char *key, int32_t fallback) {
  int32_t number = fallback;
  return ReadNumber(record, key, &number) ? number : fallback;
}

enum class Next { kParameters, kReport, kPostpone };

// upsBasicStateOutputState, and whether it shows a synchronization in progress (logged).
DWORD ReadSyncState(Record &record, bool *in_progress) {
  char flags[260] = {};
  DWORD result =
      GetValue(record.ip(), mib::upsBasicStateOutputState, 's', flags, sizeof flags - 1, 2);
  *in_progress = result == 0 && flags[kSyncInProgress] == '1';
  if (*in_progress) {
    LogLine(0, "UPSCheckSnmpRequest(OutputState)[%s] now SyncProgress! Sync init stop(next retry)",
            record.ip());
  }
  return result;
}

// One group setting: read, and written only when the card holds another value. An address is
// compared as the four bytes the card holds, and written as text for net-snmp to convert.
struct GroupSetting {
  const char *object;
  char type;
  int32_t wanted;
  const char *address = nullptr;
};

bool Converge(Record &record, const GroupSetting &setting) {
  int32_t current = 0;
  if (GetValue(record.ip(), setting.object, setting.type, &current, sizeof current, 0) != 0) {
    return false;
  }
  if (current == setting.wanted) return true;
  const void *value = setting.type == 'a' ? static_cast<const void *>(setting.address)
                                          : static_cast<const void *>(&setting.wanted);
  return SetValue(record.ip(), setting.object, setting.type, value) == 0;
}

// The configured multicast address. Anything not beginning with "224", or that is no IPv4
// address at all, becomes 224.0.0.100.
in_addr MulticastAddress(Record &record) {
  Value text;
  ReadConfigFileEx(kParameterFile, record.path(), "SCG_MIP", text);
  in_addr address{};
  if (IsDefault(text) || std::strncmp(text, "224", 3) != 0 || inet_aton(text, &address) == 0) {
    inet_aton(kDefaultMulticast, &address);
  }
  return address;
}

Next JoinGroup(Record &record, int32_t group) {
  int32_t delay = NumberOr(record, "SCG_PSD", 120);
  int32_t offset = NumberOr(record, "SCG_RBCO", 10);
  in_addr multicast = MulticastAddress(record);
  char multicast_text[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &multicast, multicast_text, sizeof multicast_text);

  bool in_progress = false;
  if (DWORD result = ReadSyncState(record, &in_progress); result != 0) {
    LogLine(result, "UPSCheckSnmpRequest(OutputState)[%s] error!  Sync init cancel", record.ip());
    return Next::kParameters;
  }
  if (in_progress) return Next::kPostpone;
  int32_t multicast_bits = 0;
  std::memcpy(&multicast_bits, &multicast.s_addr, sizeof multicast_bits);
  const GroupSetting settings[] = {
      {mib::upsSCGPowerSynchronizationDelayTime, 'i', delay},
      {mib::upsSCGReturnBatteryCapacityOffset, 'i', offset},
      {mib::upsSCGMultiCastIP, 'a', multicast_bits, multicast_text},
      {mib::upsSCGMembershipGroupNumber, 'i', group},
  };
  // A failure here leaves the group as it is and still writes the parameters.
  for (const GroupSetting &setting : settings) {
    if (!Converge(record, setting)) return Next::kParameters;
  }
  int32_t active = 0;
  if (GetValue(record.ip(), mib::upsSCGActiveMembershipStatus, 'i', &active, sizeof active, 0) !=
      0) {
    return Next::kParameters;
  }
  if (active != kScgMember && SetUpsSyncActivebySnmp(record.ip(), kScgMember) != 1) {
    return Next::kParameters;
  }
  LogLine(0, " [UPS%d:%s] SCG(%d) act", record.index(), record.ip(), group);
  return Next::kParameters;
}

Next LeaveGroup(Record &record) {
  bool in_progress = false;
  // Unlike a member, a UPS whose state cannot be read gets no parameters: kept so.
  if (ReadSyncState(record, &in_progress) != 0) return Next::kReport;
  if (in_progress) return Next::kPostpone;
  int32_t active = 0;
  if (GetValue(record.ip(), mib::upsSCGActiveMembershipStatus, 'i', &active, sizeof active, 0) ==
          0 &&
      active != kScgNotMember && SetUpsSyncActivebySnmp(record.ip(), kScgNotMember) != 1) {
    return Next::kReport;
  }
  LogLine(0, " [UPS%d:%s] SCG not_act", record.index(), record.ip());
  return Next::kParameters;
}

// True when every parameter was written; a missing one or a refused SET ends the run there.
bool WriteParameters(Record &record) {
  for (const Parameter &parameter : kParameters) {
    int32_t value = 0;  // 't' is read as the unsigned 32 bits of the same word
    if (!ReadNumber(record, parameter.key, &value, parameter.scale)) {
      record.Error(parameter.missing_error, 0);
      return false;
    }
    DWORD result = SetValue(record.ip(), parameter.object, parameter.type, &value);
    if (result != 0) {
      record.Error(parameter.set_error, result);
      return false;
    }
  }
  return true;
}

void RecordIdentity(Record &record, const Identity &stored, const Identity &fresh) {
  record.Write("OLD_UPS_type", stored.model);
  record.Write("OLD_UPS_Sno.", stored.serial);
  record.Write("UPS_type", fresh.model);
  record.Write("UPS_Sno.", fresh.serial);
  Value previous;
  record.Read("DATE", previous);
  if (!IsDefault(previous)) record.Write("OLD_DATE", previous);
  char now[64];
  TimeText(now);
  record.Write("DATE", now);
}

// Identifies and, when the UPS is new, configures it. The outcome for the closing report (0:
// build it), or nothing when the call ends without one.
std::optional<DWORD> Check(Record &record) {
  CheckCard(record);
  Identity fresh;
  if (!ReadIdentity(record, &fresh)) return 1;
  Identity stored;
  record.Read("UPS_type", stored.model);
  record.Read("UPS_Sno.", stored.serial);
  if (stored == fresh) return 0;

  record.Read("path", record.path());
  if (IsDefault(record.path())) {
    record.Error(3, 0);
    if (g_bDebugMode == 1) LogLine(0, " [UPS%d:%s] no path", record.index(), record.ip());
    return std::nullopt;
  }
  int32_t membership = NumberOr(record, "SCGonoff", 2);
  int32_t group = NumberOr(record, "SCG_MGN", 0);
  Next next =
      membership == kScgMember && group != 0 ? JoinGroup(record, group) : LeaveGroup(record);
  if (next == Next::kPostpone) return std::nullopt;
  if (next == Next::kReport) return 0;

  // The identity is recorded last: until every parameter is on the UPS, each call tries again.
  if (!WriteParameters(record)) return 0;
  RecordIdentity(record, stored, fresh);
  LogLine(0, " [UPS%d:%s] ConfigData Set:OK================", record.index(), record.ip());
  return 0;
}

}  // namespace
}  // namespace snmplumi

void UPSCheckSnmpRequest(int index, int flag) {
  using namespace snmplumi;
  // The record number also names the report log; outside its range it would name another UPS's.
  if (index < kFirstRecord || index > kLastRecord) {
    LogLine(0, "UPSCheckSnmpRequest(%d) record number not in 1000..8999", index);
    return;
  }
  Record record(index);
  record.Read("IP", record.ip());
  if (IsDefault(record.ip())) {
    if (g_bDebugMode == 1) LogLine(0, " [UPS%d] no IP", index);
    return;
  }
  std::optional<DWORD> outcome = 1;
  if (flag != 1) outcome = Check(record);
  if (!outcome) return;
  char report[160];
  if (*outcome != 0 || SnmpGetReport(index, report) != 1) {
    std::memcpy(report, kNoReading, sizeof kNoReading);
  }
  ReportLog(index, report);
}
