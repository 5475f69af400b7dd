// Setting up: the host's records in UPS/UPSinfo.ini, the start-up wait, identification, and what
// the library is and read when it was loaded.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <iterator>
#include <string>

#include "decode.h"
#include "host.h"

namespace host {
namespace {

constexpr char kInfoFile[] = "UPS/UPSinfo.ini";
constexpr char kParameterFile[] = "ac_e_net.apc";
constexpr char kMissing[] = "<default>";
constexpr std::size_t kProfileValueSize = 251;

constexpr const char *kExportNames[] = {
#define SNMPLUMI_EXPORT(name) #name,
#include "snmplumi_exports.inc"
#undef SNMPLUMI_EXPORT
};

enum class Kind { kText, kFirstChar, kInt, kUnsigned, kPort };

// A setting the library read from snmp.apc when it was loaded, by its key there.
struct Setting {
  const char *key;
  const char *variable;
  std::size_t size;
  Kind kind;
  const char *unit = "";
  bool pushed = false;  // written to every UPS by the start-up wait
  std::span<const Named> names = {};
};

#define SETTING(key, variable, kind, ...) \
  Setting { key, #variable, sizeof(::variable), Kind::kind, __VA_ARGS__ }

const Setting kSettings[] = {
    SETTING("AC_MIB_Conv", g_bAC_MIBConvertMode, kInt),
    SETTING("NO_TRAP", NO_TRAP_SERVICE, kInt, "(1: no trap listener)"),
    SETTING("UPS_Com", UpsCommunity, kText),
    SETTING("UPS_Off", UpsOffMode, kFirstChar, "(S: by the status words; else: off)"),
    SETTING("UPS_Power_fail_wait", PowerFailWait, kUnsigned, "s"),
    SETTING("UPS_Power_fail_wait_other", PowerFailWaitOther, kUnsigned, "s"),
    SETTING("UPS_other_on_wait", OtherUpsOnWait, kUnsigned, "s"),
    SETTING("SNMP_Trap_interval", SnmpTrapInt, kUnsigned, "ms"),
    SETTING("DilayTimeCut", DilayTimeCut, kFirstChar),
    SETTING("SNMP_GET_RETRY", GetRetryMax, kUnsigned, "tries"),
    SETTING("SNMP_SET_RETRY", SetRetryMax, kUnsigned, "tries"),
    SETTING("NAME", SecurityName, kText),
    SETTING("PORT", CommunicationPortNo, kPort),
    SETTING("ARM_PORT", ArmPortNo, kPort),
    SETTING("SEND_IP", SendIp, kText),
    SETTING("AUTO_REBOOT_ORG", g_Auto_Reboot_Org, kInt),
    SETTING("upsAdvConfigHighTransferVolt", upsAdvConfigHighTransferVolt, kInt, "V", true),
    SETTING("upsAdvConfigLowTransferVolt", upsAdvConfigLowTransferVolt, kInt, "V", true),
    SETTING("upsAdvConfigAlarm", upsAdvConfigAlarm, kInt, "", true, kConfigAlarm),
    SETTING("upsAdvConfigAlarmTimer", upsAdvConfigAlarmTimer, kUnsigned, "s", true),
    SETTING("upsAdvConfigMinReturnCapacity", upsAdvConfigMinReturnCapacity, kInt, "%", true),
    SETTING("upsAdvConfigSensitivity", upsAdvConfigSensitivity, kInt, "", true, kSensitivity),
    SETTING("upsAdvConfigLowBatteryRunTime", upsAdvConfigLowBatteryRunTime, kUnsigned, "s", true),
    SETTING("upsAdvConfigBattExhaustThresh", upsAdvConfigBattExhaustThresh, kUnsigned, "s", true),
    SETTING("upsAdvTestDiagnosticSchedule", upsAdvTestDiagnosticSchedule, kInt, "", true,
            kDiagnosticSchedule),
    SETTING("upsBasicIdentName", upsBasicIdentName, kText),
    SETTING("OffRequestCount", OffRequestCount, kInt, "tries"),
    SETTING("OffRequestInterval", OffRequestInterval, kInt, "s"),
};

#undef SETTING

std::string SettingValue(const Library &library, const Setting &setting) {
  const void *address = library.Symbol(setting.variable);
  std::string value;
  switch (setting.kind) {
    case Kind::kText:
      value.assign(static_cast<const char *>(address),
                   strnlen(static_cast<const char *>(address), setting.size));
      return "\"" + value + "\"";
    case Kind::kFirstChar:
      return std::string(1, *static_cast<const char *>(address));
    case Kind::kInt:
      value = std::to_string(*static_cast<const int *>(address));
      break;
    case Kind::kUnsigned:
      value = std::to_string(*static_cast<const unsigned *>(address));
      break;
    case Kind::kPort:
      value = std::to_string(*static_cast<const unsigned short *>(address));
      break;
  }
  if (!setting.names.empty()) value += std::string(" ") + NameOf(setting.names, std::stoi(value));
  return value;
}

void PrintSetting(const Library &library, const Setting &setting) {
  std::string value = SettingValue(library, setting);
  if (*setting.unit != '\0') value += std::string(" ") + setting.unit;
  Print("  %-30s %s\n", setting.key, value.c_str());
}

// The key of snmp.apc that names the UPS.
std::string Key(const Ups &ups) {
  switch (ups.group) {
    case Group::kMain:
      return ups.row == 0 ? "UPS_IP" : "UPS_IP" + std::to_string(ups.row);
    case Group::kServer:
      return "UPS_IP_S" + std::to_string(ups.row);
    case Group::kOther:
      return "UPS_IP_O" + std::to_string(ups.row);
  }
  return "?";
}

// A value of a profile file of the data directory, "<default>" when it is absent.
std::string ReadProfile(const Library &library, const char *file, const std::string &section,
                        const char *key) {
  char value[kProfileValueSize] = {};
  HOST_CALL(library, ReadConfigFileEx)(file, section.c_str(), key, value);
  return value;
}

// Record numbers name the UPS's section of UPS/UPSinfo.ini and its report log.
long RecordNumber(const std::string &text) {
  return ParseInteger(text, 1000, 8999, "record number");
}

}  // namespace

int Register(const Library &library, Args &args) {
  const std::vector<std::string> &positionals = args.Positionals(3, 3);
  long record = RecordNumber(positionals[0]);
  const std::string &address = positionals[1];
  const std::string &section = positionals[2];
  RequireAddress(address);
  if (section.empty() || section.find_first_of("[]=\r\n") != std::string::npos ||
      section.front() == ' ' || section.back() == ' ') {
    UsageError("bad section name \"" + section + "\" (a name of ac_e_net.apc)");
  }
  if (!IsDirectory(DataDir() + "/UPS")) {
    Failure("no directory " + DataDir() + "/UPS for " + kInfoFile + " (the library makes none)");
  }
  std::string name = std::to_string(record);
  std::string before = ReadProfile(library, kInfoFile, "index", address.c_str());
  auto write = HOST_CALL(library, WriteConfigFileEx);
  write(kInfoFile, "index", address.c_str(), name.c_str());
  write(kInfoFile, name.c_str(), "IP", address.c_str());
  write(kInfoFile, name.c_str(), "path", section.c_str());
  if (ReadProfile(library, kInfoFile, "index", address.c_str()) != name ||
      ReadProfile(library, kInfoFile, name, "IP") != address ||
      ReadProfile(library, kInfoFile, name, "path") != section) {
    Failure(std::string(kInfoFile) + " was not written (see snmplumi.log)");
  }
  Print("record %ld: IP %s, path %s ([index] %s=%ld in data/%s)\n", record, address.c_str(),
        section.c_str(), address.c_str(), record, kInfoFile);
  if (before != kMissing && before != name) {
    Print("  %s was record %s before\n", address.c_str(), before.c_str());
  }
  if (ReadProfile(library, kParameterFile, section, "ShutoffDelay") == kMissing) {
    Print("  note: %s has no ShutoffDelay in [%s]: check identifies the UPS, configures nothing\n",
          kParameterFile, section.c_str());
  }
  return 0;
}

int Startup(const Library &library, Args &args) {
  args.Positionals(0, 0);
  BOOL answered = HOST_CALL(library, WaitDromStartUp)(0);
  Print("WaitDromStartUp: %d\n", answered);
  if (!answered) {
    Print("no card answered: nothing was written\n");
    return kExitFailed;
  }
  Print("a card answered; these parameters of snmp.apc were written to every configured UPS:\n");
  for (const Setting &setting : kSettings) {
    if (setting.pushed) PrintSetting(library, setting);
  }
  return 0;
}

int Check(const Library &library, Args &args) {
  long record = RecordNumber(args.Positionals(1, 1)[0]);
  std::string name = std::to_string(record);
  if (ReadProfile(library, kInfoFile, name, "IP") == kMissing) {
    Failure("record " + name + " is not in " + kInfoFile + " (register it first)");
  }
  constexpr const char *kKeys[] = {"IP",           "path",         "CardInfo", "CardMIBrev",
                                   "DATE_card",    "UPS_type",     "UPS_Sno.", "DATE",
                                   "OLD_UPS_type", "OLD_UPS_Sno.", "OLD_DATE"};
  std::string identity = ReadProfile(library, kInfoFile, name, "UPS_type") +
                         ReadProfile(library, kInfoFile, name, "UPS_Sno.");
  HOST_CALL(library, UPSCheckSnmpRequest)(static_cast<int>(record), 0);
  Print("UPSCheckSnmpRequest(%ld): [%ld] of %s now holds\n", record, record, kInfoFile);
  for (const char *key : kKeys) {
    std::string value = ReadProfile(library, kInfoFile, name, key);
    if (value != kMissing) Print("  %-13s %s\n", key, value.c_str());
  }
  std::string now = ReadProfile(library, kInfoFile, name, "UPS_type") +
                    ReadProfile(library, kInfoFile, name, "UPS_Sno.");
  Print("status report: %s/UPS/UPS%04ld.LOG\n", DataDir().c_str(), record);
  if (now.find(kMissing) != std::string::npos) {
    Print(
        "not identified: the card did not answer, or a parameter of [%s] in %s is missing"
        " (see snmplumi.log)\n",
        ReadProfile(library, kInfoFile, name, "path").c_str(), kParameterFile);
    return kExitFailed;
  }
  if (now != identity) {
    Print("a new UPS: its parameters of %s were written to it\n", kParameterFile);
  } else {
    Print("a known UPS: nothing written\n");
  }
  return 0;
}

int Info(const Library &library, Args &args) {
  args.Positionals(0, 0);
  char version[16] = {};
  HOST_CALL(library, GetDromlumiDllVersion)(version);
  Print("library       %s\n", library.path().c_str());
  Print("version       %s\n", version);
  Print("API level     %d\n", HOST_CALL(library, GetUpscApiSupportLevel)());
  Print("installation  %s (data %s)\n", InstallDir().c_str(), DataDir().c_str());
  Print("debug log     %s (config.apc [Lumi] TraceMode)\n",
        HOST_VAR(library, g_bDebugMode) == 1 ? "on" : "off");
  Print("settings read at load from data/snmp.apc [Snmp]:\n");
  for (const Ups &ups : ConfiguredUps(library)) {
    Print("  %-30s %s (%s)\n", Key(ups).c_str(), ups.address.c_str(), ups.Label().c_str());
  }
  auto &servers = HOST_VAR(library, ServerIP);
  for (int row = 0; row < SNMPLUMI_GROUP_SLOTS; ++row) {
    if (*servers[row] != '\0') Print("  SERVER_IP_%-20d %s\n", row, servers[row]);
  }
  for (const Setting &setting : kSettings) PrintSetting(library, setting);
  char flags[256] = {};
  char length[256] = {};
  DWORD result = HOST_CALL(library, ReadX1x)(flags, length);
  Print("host unit alarm flags (ReadX1x): %s (result %u)\n", *flags != '\0' ? flags : "-", result);
  return 0;
}

int Exports(const Library &library, Args &args) {
  args.Positionals(0, 0);
  int missing = 0;
  Print("%-45s %-9s %s\n", "export", "kind", "size");
  for (const char *name : kExportNames) {
    void *address = dlsym(library.handle(), name);
    Dl_info info{};
    void *entry = nullptr;
    if (address == nullptr || dladdr1(address, &info, &entry, RTLD_DL_SYMENT) == 0 ||
        entry == nullptr) {
      Print("%-45s MISSING\n", name);
      ++missing;
      continue;
    }
    const auto *symbol = static_cast<const ElfW(Sym) *>(entry);
    bool function = (symbol->st_info & 0xf) == STT_FUNC;
    Print("%-45s %-9s %zu\n", name, function ? "function" : "variable",
          static_cast<std::size_t>(symbol->st_size));
  }
  Print("%zu exports, %d missing\n", std::size(kExportNames), missing);
  return missing == 0 ? 0 : kExitFailed;
}

}  // namespace host
