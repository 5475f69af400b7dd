#include "config/settings.h"

#include <algorithm>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

using SettingsTest = HomeTest;

// The rows of an address table that hold something else than unused, as "row:address ...".
template <std::size_t N>
std::string UsedRows(const char (&table)[N][64], const char *unused) {
  std::string used;
  for (std::size_t row = 0; row < N; ++row) {
    if (std::strcmp(table[row], unused) != 0) used += std::to_string(row) + ":" + table[row] + " ";
  }
  return used;
}

#define NUMBER(v) #v, [] { return std::to_string(v); }
#define TEXT(v) #v, [] { return std::string(v); }

// One setting for each rule and kind of variable of the settings table.
TEST_F(SettingsTest, EachRuleCorrectsItsSetting) {
  // Each variable with its value when snmp.apc is absent.
  const std::tuple<const char *, std::string (*)(), std::string> variables[] = {
      {NUMBER(g_bAC_MIBConvertMode), "0"},
      {NUMBER(NO_TRAP_SERVICE), "0"},
      {"UpsIp", [] { return UsedRows(UpsIp, "127.0.0.1"); }, ""},
      {"UpsIpServer", [] { return UsedRows(UpsIpServer, ""); }, ""},
      {TEXT(UpsCommunity), "kestal"},
      {TEXT(UpsOffMode), "Sdefault>"},
      {NUMBER(PowerFailWait), "60"},
      {NUMBER(PowerFailWaitOther), "15"},
      {NUMBER(SnmpTrapInt), "10000"},
      {NUMBER(GetRetryMax), "5"},
      {TEXT(SecurityName), "<default>"},
      {NUMBER(CommunicationPortNo), "0"},
      {NUMBER(upsAdvTestDiagnosticSchedule), "5"},
      {NUMBER(OffRequestInterval), "1"},
  };
  // The lines of section [Snmp] ("-": no snmp.apc at all), and the variables that differ from
  // their absent value, in the order above, as "name=value;...".
  const std::pair<std::string, std::string> rows[] = {
      {"-", ""},
      {"AC_MIB_Conv=yes;NO_TRAP=Y;NAME=sec;UPS_Off=Sleep mode that is far too long;UPS_Com=" +
           std::string(100, 'c'),
       "g_bAC_MIBConvertMode=1;NO_TRAP_SERVICE=1;UpsCommunity=" + std::string(63, 'c') +
           ";UpsOffMode=Sleep mode that;SecurityName=sec;"},
      {"AC_MIB_Conv=;NO_TRAP=xY;UPS_IP=;UPS_IP0=10.9.9.0;UPS_IP1=10.1.1.1;UPS_IP2=;"
       "UPS_IP129=10.1.1.129;UPS_IP130=10.9.9.9;UPS_IP_S0=10.2.2.0;UPS_IP_S15=10.2.2.15;"
       "UPS_IP_S16=10.9.9.9",
       "UpsIp=0: 1:10.1.1.1 129:10.1.1.129 ;UpsIpServer=0:10.2.2.0 15:10.2.2.15 ;"},
      {"SNMP_GET_RETRY=3;PORT=70000", "GetRetryMax=3;CommunicationPortNo=4464;"},
      // Numbers that do not parse keep what the row before left.
      {"SNMP_GET_RETRY=abc;PORT=x;UPS_Power_fail_wait=29;SNMP_Trap_interval=1;"
       "OffRequestInterval=11",
       "PowerFailWait=30;SnmpTrapInt=2000;GetRetryMax=3;CommunicationPortNo=4464;"
       "OffRequestInterval=10;"},
      {"UPS_Power_fail_wait=31;UPS_Power_fail_wait_other=76;SNMP_Trap_interval=3;"
       "OffRequestInterval=10",
       "PowerFailWait=31;PowerFailWaitOther=76;SnmpTrapInt=3000;OffRequestInterval=10;"},
      {"UPS_Power_fail_wait=31;UPS_Power_fail_wait_other=77;SNMP_Trap_interval=-1;"
       "OffRequestInterval=-3",
       "PowerFailWait=31;SnmpTrapInt=4294966296;OffRequestInterval=-3;"},
      {"UPS_Power_fail_wait=-5", "PowerFailWait=4294967291;PowerFailWaitOther=4294967246;"},
      {"upsAdvTestDiagnosticSchedule=biweekly", "upsAdvTestDiagnosticSchedule=2;"},
      {"upsAdvTestDiagnosticSchedule=Weekly", ""},
  };
  for (const auto &[lines, changes] : rows) {
    std::filesystem::remove(home_.data("snmp.apc"));
    std::string file = "[Snmp];" + lines + ";";
    std::replace(file.begin(), file.end(), ';', '\n');
    if (lines != "-") PutFile(home_.data("snmp.apc"), file);
    ReadSettings();
    std::string changed;
    for (const auto &[name, value, absent] : variables) {
      if (value() != absent) changed += std::string(name) + "=" + value() + ";";
    }
    EXPECT_EQ(changed, changes) << lines;
  }
}

// Without a TraceMode the switch stays as it was, and the main slot is marked unused.
TEST_F(SettingsTest, AbsentDebugSwitchMarksTheMainSlotUnused) {
  g_bDebugMode = 1;
  std::strcpy(UpsIp[0], "10.0.0.1");
  DebugModeCheck();
  EXPECT_EQ(g_bDebugMode, 1);
  EXPECT_STREQ(UpsIp[0], "127.0.0.1");
}

// Loading logs the settings, with debug lines only for exactly "ON", and clears
// the status and fault words; unloading logs in debug mode only, and logging still works after.
class SettingsLoadTest : public SettingsTest, public ::testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(TraceMode, SettingsLoadTest, ::testing::Values(true, false),
                         [](const auto &info) { return info.param ? "ON" : "on"; });

TEST_P(SettingsLoadTest, LoadAndUnloadLogTheSettingsAndClearTheStatus) {
  PutFile(home_.data("config.apc"),
          GetParam() ? "[Lumi]\nTraceMode=ON\n" : "[Lumi]\nTraceMode=on\n");
  PutFile(home_.data("snmp.apc"), "[Snmp]\nUPS_IP=127.0.1.1\n");
  int *words[] = {&ups_X1[5][1], &ups_Falut, &ups_Other_Falut[0][15], &g_iMutexMode};
  for (int *word : words) *word = 1;
  SignalResponse1 = SignalResponse2 = 9;
  lib_init();
  for (int *word : words) EXPECT_EQ(*word, 0);
  EXPECT_EQ(SignalResponse1 + SignalResponse2, 0u);
  EXPECT_STREQ(LumiPathName, home_.root().c_str());
  const std::size_t logged = LogMessages(home_).size();
  EXPECT_EQ(logged, GetParam() ? 26u : 19u);
  lib_end();
  LumiLocalLog("after unload", 0);
  EXPECT_EQ(LogMessages(home_).size(), logged + (GetParam() ? 3 : 1));
}

}  // namespace
}  // namespace snmplumi::testing
