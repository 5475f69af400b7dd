#include "config/settings.h"

#include <algorithm>
#include <map>
#include <sstream>

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
  struct Variable {
    const char *name;
    std::string (*value)();
    std::string absent;
  } variables[] = {
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
      {NUMBER(OffRequestCount), "2"},
  };
  // Both columns are "name=value;...": the lines of section [Snmp] ("-": no snmp.apc at all),
  // and the variables that differ from their absent value.
  const std::pair<std::string, std::string> rows[] = {
      {"-", ""},
      {"AC_MIB_Conv=yes;NO_TRAP=Y;NAME=sec;UPS_Off=Sleep mode that is far too long;UPS_Com=" +
           std::string(100, 'c'),
       "g_bAC_MIBConvertMode=1;NO_TRAP_SERVICE=1;SecurityName=sec;UpsOffMode=Sleep mode that;"
       "UpsCommunity=" +
           std::string(63, 'c')},
      {"AC_MIB_Conv=;NO_TRAP=xY;UPS_IP=;UPS_IP0=10.9.9.0;UPS_IP1=10.1.1.1;UPS_IP2=;"
       "UPS_IP129=10.1.1.129;UPS_IP130=10.9.9.9;UPS_IP_S0=10.2.2.0;UPS_IP_S15=10.2.2.15;"
       "UPS_IP_S16=10.9.9.9",
       "UpsIp=0: 1:10.1.1.1 129:10.1.1.129 ;UpsIpServer=0:10.2.2.0 15:10.2.2.15 "},
      {"SNMP_GET_RETRY=3;PORT=70000", "GetRetryMax=3;CommunicationPortNo=4464"},
      // Numbers that do not parse keep what the row before left.
      {"SNMP_GET_RETRY=abc;PORT=x;UPS_Power_fail_wait=29;SNMP_Trap_interval=1;OffRequestCount=11",
       "GetRetryMax=3;CommunicationPortNo=4464;PowerFailWait=30;SnmpTrapInt=2000;"
       "OffRequestCount=10"},
      {"UPS_Power_fail_wait=31;UPS_Power_fail_wait_other=76;SNMP_Trap_interval=3;"
       "OffRequestCount=10",
       "PowerFailWait=31;PowerFailWaitOther=76;SnmpTrapInt=3000;OffRequestCount=10"},
      {"UPS_Power_fail_wait=31;UPS_Power_fail_wait_other=77;SNMP_Trap_interval=-1;"
       "OffRequestCount=-3",
       "PowerFailWait=31;SnmpTrapInt=4294966296;OffRequestCount=-3"},
      {"UPS_Power_fail_wait=120;UPS_Power_fail_wait_other=166",
       "PowerFailWait=120;PowerFailWaitOther=75"},
      {"UPS_Power_fail_wait=100", "PowerFailWait=100;PowerFailWaitOther=55"},
      {"UPS_Power_fail_wait=-5", "PowerFailWait=4294967291;PowerFailWaitOther=4294967246"},
      {"upsAdvTestDiagnosticSchedule=biweekly", "upsAdvTestDiagnosticSchedule=2"},
      {"upsAdvTestDiagnosticSchedule=Weekly", ""},
  };
  for (const auto &[lines, changes] : rows) {
    std::map<std::string, std::string> expected;
    for (const Variable &variable : variables) expected[variable.name] = variable.absent;
    std::istringstream in(changes);
    for (std::string change; std::getline(in, change, ';');) {
      expected[change.substr(0, change.find('='))] = change.substr(change.find('=') + 1);
    }
    ASSERT_EQ(expected.size(), std::size(variables)) << "unknown name in " << changes;
    std::filesystem::remove(home_.data("snmp.apc"));
    std::string file = "[Snmp];" + lines + ";";
    std::replace(file.begin(), file.end(), ';', '\n');
    if (lines != "-") PutFile(home_.data("snmp.apc"), file);
    ReadSettings();
    for (const Variable &variable : variables) {
      EXPECT_EQ(variable.value(), expected[variable.name]) << variable.name << " after " << lines;
    }
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

TEST_F(SettingsTest, LoadClearsStatusAndFaultWords) {
  int *words[] = {&ups_X1[5][1], &ups_Falut, &ups_Other_Falut[0][15], &g_iMutexMode};
  for (int *word : words) *word = 1;
  SignalResponse1 = SignalResponse2 = 9;
  lib_init();
  for (int *word : words) EXPECT_EQ(*word, 0);
  EXPECT_EQ(SignalResponse1 + SignalResponse2, 0u);
  EXPECT_STREQ(LumiPathName, home_.root().c_str());
}

// One log line of each kind lib_init writes, in order; those marked true only in debug mode,
// which takes exactly "ON".
class SettingsLogTest : public SettingsTest, public ::testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(TraceMode, SettingsLogTest, ::testing::Values(true, false),
                         [](const auto &info) { return info.param ? "ON" : "on"; });

TEST_P(SettingsLogTest, LoadAndUnloadLogTheSettingsInOrder) {
  PutFile(home_.data("config.apc"),
          GetParam() ? "[Lumi]\nTraceMode=ON\n" : "[Lumi]\nTraceMode=on\n");
  PutFile(home_.data("snmp.apc"),
          "[Snmp]\nUPS_IP=127.0.1.1\nUPS_Com=public\nUPS_Off=Turn\n"
          "DilayTimeCut=N\nAC_MIB_Conv=Y\nupsAdvConfigAlarm=never\n");
  const std::tuple<bool, unsigned, const char *> lines[] = {
      {true, 0, "[snmplumi] lib_init start"},
      {false, 1, "### [AC_MIB_Conv mode] AC_MIB_Conv = Y"},  // the flag read is the code
      {false, 0, "### [UPS_IP] = (127.0.1.1) Community : (public)"},
      {false, 0, "### Off Mode[UPS_Off] = (T) Sleep/Trun   [DilayTimeCut] = (N) Y/N"},
      {false, 0, "*** [upsAdvConfigAlarm] = (3)"},
      {true, 0, "[snmplumi] lib_init end"},
  };
  lib_init();
  const auto log = LibraryLog(home_);
  EXPECT_EQ(log.size(), GetParam() ? 26u : 19u);
  auto at = log.begin();
  for (const auto &[debug_only, code, message] : lines) {
    const LogRecord record{code, message};
    auto found = std::find(at, log.end(), record);
    EXPECT_EQ(found != log.end(), GetParam() || !debug_only) << message;
    if (found != log.end()) at = found;
  }

  // Unload logs in debug mode only (what, the shared-library test checks), after destroying
  // the logging mutexes, which go back to their load-time state.
  lib_end();
  LumiLocalLog("after unload", 0);
  auto messages = LogMessages(home_);
  EXPECT_EQ(messages.size(), log.size() + (GetParam() ? 3 : 1));
  EXPECT_EQ(messages.back(), "after unload");
}

}  // namespace
}  // namespace snmplumi::testing
