// The host's fixed entry points beside the unit protocol, and the table of its call-backs. The
// version text and the API level are what the host compares; the reservation and parameter
// calls are accepted and not acted on.
#include <cstring>
#include <iterator>

#include "runtime/log_line.h"
#include "snmplumi.h"

GET_UPS_SIGNALS DromGetUpsSignals;
ISSUE_UPS_COMMAND DromIssueUpsCommand;
ISSUE_UPS_COMMANDAV DromIssueUpsCommandAV;
KAVPC_SHUTDOWN_COMMAND DromShutDownCommand;
DISABLE_PARAMETER_SETTING DromUpsDisableParameterSetting;
ENABLE_PARAMETER_SETTING DromUpsEnableParameterSetting;
SET_UPS_PARAMETER DromUpsSetUpsParameter;
SHUTDOWN_APPROVE DromUpsShutdownApprove;
SHUTDOWN_RESERVE DromUpsShutdownReserve;
KAVPC_GET_INIFILE KavPcGetInifile;
KAVPC_SET_INIFILE KavPcSetInifile;
KAVPC_SET_PARAMETER KavPcSetParameter;
KAVPC_GET_PARAMETER KavPcGetParameter;
KAVPC_SHUTDOWN_DELAY_TIME KavPcShutdownDelayTime;
KAVPC_COMP_SHUTDOWN KavPcCompShutDown;

namespace snmplumi {
namespace {

constexpr char kDllVersion[] = "3.009";

struct InfoRow {
  const void *setting;
  std::size_t size;
};

// KavAcGetInfo's indexes 0 to 12: raw bytes, the variable's whole declared size.
const InfoRow kInfoRows[] = {
    {nullptr, 0},
    {UpsIp[0], sizeof UpsIp[0]},
    {UpsIpServer, sizeof UpsIpServer},
    {UpsIpOther, sizeof UpsIpOther},
    {UpsCommunity, sizeof UpsCommunity},
    {UpsOffMode, sizeof UpsOffMode},
    {&OtherUpsOnWait, sizeof OtherUpsOnWait},
    {&SnmpTrapInt, sizeof SnmpTrapInt},
    {SecurityName, sizeof SecurityName},
    {&CommunicationPortNo, sizeof CommunicationPortNo},
    {&ArmPortNo, sizeof ArmPortNo},
    {SendIp, sizeof SendIp},
    {ServerIP, sizeof ServerIP},
};

}  // namespace
}  // namespace snmplumi

using snmplumi::LogLine;

BOOL GetDromlumiDllVersion(char *Version) {
  LogLine(0, " xxxx GetDromlumiDllVersion xxxx");
  if (Version != nullptr) std::memcpy(Version, snmplumi::kDllVersion, sizeof snmplumi::kDllVersion);
  int group = 0, enabled = 0, delay = 0, offset = 0, members = 0;
  char state[65] = {};
  if (GetUpsDetailStatusFromSnmp3(UpsIp[0], &group, &enabled, &delay, &offset, &members, state) ==
      1) {
    LogLine(0, "----[%s] SCGM[%d] E/D[%d] PSD[%d] RBCO[%d] SCGN[%d]", UpsIp[0], group, enabled,
            delay, offset, members);
    LogLine(0, "----[%s] sts[%s]", UpsIp[0], state);
  }
  return 1;
}

BOOL UpsShutDownReserve(int) {
  LogLine(0, " xxxx UpsShutDownReserve xxxx");
  return 1;
}

BOOL SetOsShutdownReserveTime(DWORD) {
  LogLine(0, " xxxx SetOsShutdownReserveTime xxxx");
  return 1;
}

BOOL GetOsShutdownReserveTime(DWORD *) {
  LogLine(0, " xxxx GetOsShutdownReserveTime xxxx");
  return 1;
}

BOOL SetEventCommandReserveTime(int) { return 1; }
BOOL GetEventCommandReserveTime(int) { return 1; }
BOOL GetPowerFailLastTime(time_t) { return 1; }

int GetUpscApiSupportLevel(void) {
  LogLine(0, " xxxx GetUpscApiSupportLevel xxxx");
  return UpscApiSupportLevel;
}

DWORD ACUpsOsShutdownMode(DWORD, DWORD *) {
  LogLine(0, " xxxx ACUpsOsShutdownMode xxxx");
  return 0;
}

BOOL KavAcLifeReport(void) {
  LogLine(0, " xxxx KavAcLifeReport xxxx");
  return 1;
}

BOOL KavAcGetInfo(char *data, int index) {
  if (data == nullptr || index < 0 || index >= static_cast<int>(std::size(snmplumi::kInfoRows))) {
    return 1;
  }
  const snmplumi::InfoRow &row = snmplumi::kInfoRows[index];
  if (row.size != 0) std::memcpy(data, row.setting, row.size);
  return 1;
}

BOOL UpsDisableParameterSetting(int) { return 0; }
BOOL DisableDromUps(int) { return 0; }
BOOL UpsEnableParameterSetting(void) { return 0; }
BOOL UpsSetUpsParameter(void) { return 0; }
