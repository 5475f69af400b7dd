#include "mib.h"

#include <charconv>
#include <map>

namespace upssim {
namespace {

constexpr Type kInteger = Type::kInteger;
constexpr Type kGauge32 = Type::kGauge32;
constexpr Type kTimeTicks = Type::kTimeTicks;
constexpr Type kOctetString = Type::kOctetString;
constexpr Type kIpAddress = Type::kIpAddress;
constexpr Access kReadOnly = Access::kReadOnly;
constexpr Access kReadWrite = Access::kReadWrite;

using namespace powernet_values;

constexpr EnumValue kConserveBattery[] = {
    {1, "noTurnOffUps"},
    {2, "turnOffUpsToConserveBattery"},
};

constexpr EnumValue kUpsOff[] = {
    {1, "noTurnUpsOff"},
    {2, "turnUpsOff"},
    {3, "turnUpsOffGracefully"},
};

constexpr EnumValue kUpsSleep[] = {
    {1, "noPutUpsToSleep"},
    {2, "putUpsToSleep"},
    {3, "putUpsToSleepGracefully"},
};

constexpr EnumValue kTurnOnUps[] = {
    {1, "noTurnOnUPS"},
    {2, "turnOnUPS"},
};

constexpr EnumValue kCommStatus[] = {
    {1, "ok"},
    {2, "noComm"},
};

// Flags of upsBasicStateOutputState, counted from 1 as the MIB does: 2 On Battery, 4 On Line,
// 6 Serial Communication Established.
constexpr char kOutputStateFlags[] =
    "0001010000000000000000000000000000000000000000000000000000000000";
static_assert(sizeof(kOutputStateFlags) == 65);

constexpr char kSysDescr[] =
    "APC Web/SNMP Management Card (MB:v3.6.1 PF:v3.5.5 PN:apc_hw02_aos_355.bin "
    "AF1:v3.5.5 AN1:apc_hw02_sumx_355.bin MN:AP9617 HR:A10 SN: ZA0812034567 MD:02/20/2008) "
    "(Embedded PowerNet SNMP Agent SW v2.2 compatible)";

// Rows in OID order, so that a walk meets them as listed. A card personalises upsBasicIdentName
// and the digits of upsAdvIdentSerialNumber (card.cpp).
// clang-format off
constexpr ObjectDef kObjects[] = {
  // MIB-II system
  {".1.3.6.1.2.1.1.1.0",               "sysDescr",                            kOctetString, kReadOnly,  kSysDescr, {}},
  // upsIdent
  {".1.3.6.1.4.1.318.1.1.1.1.1.1.0",   "upsBasicIdentModel",                  kOctetString, kReadOnly,  "Smart-UPS 1500", {}},
  {".1.3.6.1.4.1.318.1.1.1.1.1.2.0",   "upsBasicIdentName",                   kOctetString, kReadWrite, "UPS_IDEN", {}},
  {".1.3.6.1.4.1.318.1.1.1.1.2.1.0",   "upsAdvIdentFirmwareRevision",         kOctetString, kReadOnly,  "652.18.I", {}},
  {".1.3.6.1.4.1.318.1.1.1.1.2.3.0",   "upsAdvIdentSerialNumber",             kOctetString, kReadOnly,  "AS0812000000    ", {}},
  // upsBattery
  {".1.3.6.1.4.1.318.1.1.1.2.1.2.0",   "upsBasicBatteryTimeOnBattery",        kTimeTicks,   kReadOnly,  "0", {}},
  {".1.3.6.1.4.1.318.1.1.1.2.2.1.0",   "upsAdvBatteryCapacity",               kGauge32,     kReadOnly,  "100", {}},
  {".1.3.6.1.4.1.318.1.1.1.2.2.2.0",   "upsAdvBatteryTemperature",            kGauge32,     kReadOnly,  "29", {}},
  {".1.3.6.1.4.1.318.1.1.1.2.2.3.0",   "upsAdvBatteryRunTimeRemaining",       kTimeTicks,   kReadOnly,  "252000", {}},
  {".1.3.6.1.4.1.318.1.1.1.2.2.4.0",   "upsAdvBatteryReplaceIndicator",       kInteger,     kReadOnly,  "1", kReplaceIndicator},    // noBatteryNeedsReplacing
  {".1.3.6.1.4.1.318.1.1.1.2.2.5.0",   "upsAdvBatteryNumOfBattPacks",         kInteger,     kReadOnly,  "0", {}},
  {".1.3.6.1.4.1.318.1.1.1.2.2.6.0",   "upsAdvBatteryNumOfBadBattPacks",      kInteger,     kReadOnly,  "0", {}},
  // upsInput
  {".1.3.6.1.4.1.318.1.1.1.3.1.1.0",   "upsBasicInputPhase",                  kInteger,     kReadOnly,  "1", {}},
  {".1.3.6.1.4.1.318.1.1.1.3.2.1.0",   "upsAdvInputLineVoltage",              kGauge32,     kReadOnly,  "100", {}},
  {".1.3.6.1.4.1.318.1.1.1.3.2.2.0",   "upsAdvInputMaxLineVoltage",           kGauge32,     kReadOnly,  "102", {}},
  {".1.3.6.1.4.1.318.1.1.1.3.2.3.0",   "upsAdvInputMinLineVoltage",           kGauge32,     kReadOnly,  "98", {}},
  {".1.3.6.1.4.1.318.1.1.1.3.2.4.0",   "upsAdvInputFrequency",                kGauge32,     kReadOnly,  "60", {}},
  {".1.3.6.1.4.1.318.1.1.1.3.2.5.0",   "upsAdvInputLineFailCause",            kInteger,     kReadOnly,  "1", kLineFailCause},       // noTransfer
  // upsOutput
  {".1.3.6.1.4.1.318.1.1.1.4.1.1.0",   "upsBasicOutputStatus",                kInteger,     kReadOnly,  "2", kOutputStatus},        // onLine
  {".1.3.6.1.4.1.318.1.1.1.4.1.2.0",   "upsBasicOutputPhase",                 kInteger,     kReadOnly,  "1", {}},
  {".1.3.6.1.4.1.318.1.1.1.4.2.1.0",   "upsAdvOutputVoltage",                 kGauge32,     kReadOnly,  "100", {}},
  {".1.3.6.1.4.1.318.1.1.1.4.2.2.0",   "upsAdvOutputFrequency",               kGauge32,     kReadOnly,  "60", {}},
  {".1.3.6.1.4.1.318.1.1.1.4.2.3.0",   "upsAdvOutputLoad",                    kGauge32,     kReadOnly,  "23", {}},
  {".1.3.6.1.4.1.318.1.1.1.4.2.4.0",   "upsAdvOutputCurrent",                 kGauge32,     kReadOnly,  "3", {}},
  // upsConfig
  {".1.3.6.1.4.1.318.1.1.1.5.2.2.0",   "upsAdvConfigHighTransferVolt",        kInteger,     kReadWrite, "108", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.3.0",   "upsAdvConfigLowTransferVolt",         kInteger,     kReadWrite, "92", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.4.0",   "upsAdvConfigAlarm",                   kInteger,     kReadWrite, "1", kConfigAlarm},         // timed
  {".1.3.6.1.4.1.318.1.1.1.5.2.5.0",   "upsAdvConfigAlarmTimer",              kTimeTicks,   kReadWrite, "3000", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.6.0",   "upsAdvConfigMinReturnCapacity",       kInteger,     kReadWrite, "0", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.7.0",   "upsAdvConfigSensitivity",             kInteger,     kReadWrite, "4", kSensitivity},         // high
  {".1.3.6.1.4.1.318.1.1.1.5.2.8.0",   "upsAdvConfigLowBatteryRunTime",       kTimeTicks,   kReadWrite, "12000", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.9.0",   "upsAdvConfigReturnDelay",             kTimeTicks,   kReadWrite, "0", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.10.0",  "upsAdvConfigShutoffDelay",            kTimeTicks,   kReadWrite, "9000", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.11.0",  "upsAdvConfigUpsSleepTime",            kTimeTicks,   kReadWrite, "36000", {}},
  {".1.3.6.1.4.1.318.1.1.1.5.2.14.0",  "upsAdvConfigBattExhaustThresh",       kTimeTicks,   kReadWrite, "12000", {}},
  // upsControl: orders; a card reads them back as their idle value
  {".1.3.6.1.4.1.318.1.1.1.6.1.1.0",   "upsBasicControlConserveBattery",      kInteger,     kReadWrite, "1", kConserveBattery},     // noTurnOffUps
  {".1.3.6.1.4.1.318.1.1.1.6.2.1.0",   "upsAdvControlUpsOff",                 kInteger,     kReadWrite, "1", kUpsOff},              // noTurnUpsOff
  {".1.3.6.1.4.1.318.1.1.1.6.2.3.0",   "upsAdvControlUpsSleep",               kInteger,     kReadWrite, "1", kUpsSleep},            // noPutUpsToSleep
  {".1.3.6.1.4.1.318.1.1.1.6.2.6.0",   "upsAdvControlTurnOnUPS",              kInteger,     kReadWrite, "1", kTurnOnUps},           // noTurnOnUPS
  // upsTest
  {".1.3.6.1.4.1.318.1.1.1.7.2.1.0",   "upsAdvTestDiagnosticSchedule",        kInteger,     kReadWrite, "2", kDiagnosticSchedule},  // biweekly
  // upsComm
  {".1.3.6.1.4.1.318.1.1.1.8.1.0",     "upsCommStatus",                       kInteger,     kReadOnly,  "1", kCommStatus},          // ok
  // upsSyncCtrlGroup
  {".1.3.6.1.4.1.318.1.1.1.10.1.1.0",  "upsSCGMembershipGroupNumber",         kInteger,     kReadWrite, "0", {}},
  {".1.3.6.1.4.1.318.1.1.1.10.1.2.0",  "upsSCGActiveMembershipStatus",        kInteger,     kReadWrite, "2", kScgActiveMembership}, // disableSCG
  {".1.3.6.1.4.1.318.1.1.1.10.1.3.0",  "upsSCGPowerSynchronizationDelayTime", kInteger,     kReadWrite, "120", {}},
  {".1.3.6.1.4.1.318.1.1.1.10.1.4.0",  "upsSCGReturnBatteryCapacityOffset",   kInteger,     kReadWrite, "10", {}},
  {".1.3.6.1.4.1.318.1.1.1.10.1.5.0",  "upsSCGMultiCastIP",                   kIpAddress,   kReadWrite, "224.0.0.100", {}},
  {".1.3.6.1.4.1.318.1.1.1.10.2.1.0",  "upsSCGNumOfGroupMembers",             kInteger,     kReadOnly,  "0", {}},
  // upsState
  {".1.3.6.1.4.1.318.1.1.1.11.1.1.0",  "upsBasicStateOutputState",            kOctetString, kReadOnly,  kOutputStateFlags, {}},
};
// clang-format on

struct Index {
  std::vector<Oid> oids;              // parallel to kObjects
  std::map<Oid, std::size_t> by_oid;  // sorted: GETNEXT order
  std::map<std::string_view, std::size_t> by_name;
};

const Index &TheIndex() {
  static const Index index = [] {
    Index built;
    for (std::size_t i = 0; i < std::size(kObjects); ++i) {
      built.oids.push_back(*ParseOid(kObjects[i].oid));
      built.by_oid.emplace(built.oids.back(), i);
      built.by_name.emplace(kObjects[i].name, i);
    }
    return built;
  }();
  return index;
}

}  // namespace

std::span<const ObjectDef> Objects() { return kObjects; }

std::span<const EnumValue> LineFailCauses() { return kLineFailCause; }

std::optional<Oid> ParseOid(std::string_view text) {
  if (!text.empty() && text.front() == '.') text.remove_prefix(1);
  if (text.empty()) return std::nullopt;
  Oid oid;
  while (true) {
    std::uint32_t sub = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), sub);
    if (error != std::errc() || end == text.data()) return std::nullopt;
    oid.push_back(sub);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (text.empty()) break;
    if (text.front() != '.' || text.size() == 1) return std::nullopt;
    text.remove_prefix(1);
  }
  if (oid.size() > 128) return std::nullopt;  // net-snmp's MAX_OID_LEN
  return oid;
}

std::string FormatOid(std::span<const std::uint32_t> oid) {
  std::string text;
  for (std::uint32_t sub : oid) text += "." + std::to_string(sub);
  return text;
}

std::optional<std::size_t> FindObject(std::string_view oid_or_name) {
  const Index &index = TheIndex();
  if (auto oid = ParseOid(oid_or_name)) return FindObject(*oid);
  std::string_view name = oid_or_name;
  if (name.ends_with(".0")) name.remove_suffix(2);  // "upsCommStatus.0" reads as the instance
  auto found = index.by_name.find(name);
  if (found == index.by_name.end()) return std::nullopt;
  return found->second;
}

std::optional<std::size_t> FindObject(const Oid &oid) {
  const Index &index = TheIndex();
  auto found = index.by_oid.find(oid);
  if (found == index.by_oid.end()) return std::nullopt;
  return found->second;
}

std::optional<std::size_t> NextObject(const Oid &oid) {
  const Index &index = TheIndex();
  auto found = index.by_oid.upper_bound(oid);
  if (found == index.by_oid.end()) return std::nullopt;
  return found->second;
}

const Oid &ObjectOid(std::size_t object) { return TheIndex().oids.at(object); }

std::optional<int> EnumLookup(std::span<const EnumValue> values, std::string_view text) {
  for (const EnumValue &value : values) {
    if (value.name == text) return value.value;
  }
  int number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  for (const EnumValue &value : values) {
    if (value.value == number) return number;
  }
  return std::nullopt;
}

std::string_view EnumName(std::span<const EnumValue> values, long value) {
  for (const EnumValue &entry : values) {
    if (entry.value == value) return entry.name;
  }
  return {};
}

}  // namespace upssim
