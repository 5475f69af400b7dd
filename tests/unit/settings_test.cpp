#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

class SettingsTest : public ::testing::Test {
 protected:
  void Load(const std::string &snmp_section_lines, const std::string &trace_mode = "") {
    PutFile(home_.data("snmp.apc"), "[Snmp]\n" + snmp_section_lines);
    if (!trace_mode.empty()) PutFile(home_.data("config.apc"), "[Lumi]\nTraceMode=" + trace_mode);
    lib_init();
  }

  TempHome home_;
};

TEST_F(SettingsTest, NoSnmpFileGivesEveryDefault) {
  lib_init();
  for (int slot = 0; slot < 130; ++slot) EXPECT_STREQ(UpsIp[slot], "127.0.0.1") << slot;
  for (int row = 0; row < 16; ++row) {
    EXPECT_STREQ(UpsIpServer[row], "");
    EXPECT_STREQ(ServerIP[row], "");
    EXPECT_STREQ(UpsIpOther[row], "");
  }
  EXPECT_STREQ(UpsCommunity, "kestal");
  EXPECT_STREQ(UpsOffMode, "Sdefault>") << "only the first character is replaced";
  EXPECT_EQ(PowerFailWait, 60u);
  EXPECT_EQ(PowerFailWaitOther, 15u);
  EXPECT_EQ(OtherUpsOnWait, 0u);
  EXPECT_EQ(SnmpTrapInt, 10000u);
  EXPECT_STREQ(DilayTimeCut, "Y");
  EXPECT_EQ(GetRetryMax, 5u);
  EXPECT_EQ(SetRetryMax, 5u);
  EXPECT_STREQ(SecurityName, "<default>");
  EXPECT_EQ(CommunicationPortNo, 0);
  EXPECT_EQ(ArmPortNo, 0);
  EXPECT_STREQ(SendIp, "255.255.255.255");
  EXPECT_EQ(g_bAC_MIBConvertMode, 0);
  EXPECT_EQ(NO_TRAP_SERVICE, 0);
  EXPECT_EQ(g_Auto_Reboot_Org, 0);
  EXPECT_EQ(upsAdvConfigHighTransferVolt, 108);
  EXPECT_EQ(upsAdvConfigLowTransferVolt, 87);
  EXPECT_EQ(upsAdvConfigAlarm, 1);
  EXPECT_EQ(upsAdvConfigAlarmTimer, 0u);
  EXPECT_EQ(upsAdvConfigMinReturnCapacity, 90);
  EXPECT_EQ(upsAdvConfigSensitivity, 1);
  EXPECT_EQ(upsAdvConfigLowBatteryRunTime, 120u);
  EXPECT_EQ(upsAdvConfigBattExhaustThresh, 0u);
  EXPECT_EQ(upsAdvTestDiagnosticSchedule, 5);
  EXPECT_STREQ(upsBasicIdentName, "APC UPS");
  EXPECT_EQ(OffRequestCount, 2);
  EXPECT_EQ(OffRequestInterval, 1);
  EXPECT_EQ(UpscApiSupportLevel, 9612);
  EXPECT_STREQ(LumiPathName, home_.root().c_str());
}

TEST_F(SettingsTest, PowerFailWaitsAreCorrected) {
  Load("UPS_Power_fail_wait=10\n");
  EXPECT_EQ(PowerFailWait, 30u);
  EXPECT_EQ(PowerFailWaitOther, 15u);
}

TEST_F(SettingsTest, OtherWaitMayNotExceedMainWaitBy45) {
  Load("UPS_Power_fail_wait=120\nUPS_Power_fail_wait_other=200\n");
  EXPECT_EQ(PowerFailWaitOther, 75u);
}

TEST_F(SettingsTest, OtherWaitWithinBoundIsKept) {
  Load("UPS_Power_fail_wait=120\nUPS_Power_fail_wait_other=160\n");
  EXPECT_EQ(PowerFailWait, 120u);
  EXPECT_EQ(PowerFailWaitOther, 160u);
}

TEST_F(SettingsTest, TrapIntervalIsAtLeastTwoSecondsInMilliseconds) {
  Load("SNMP_Trap_interval=0\n");
  EXPECT_EQ(SnmpTrapInt, 2000u);
}

TEST_F(SettingsTest, EnumerationsMatchTheirMibNamesExactly) {
  Load(
      "upsAdvConfigAlarm=Never\nupsAdvConfigSensitivity=high\n"
      "upsAdvTestDiagnosticSchedule=atTurnOn\n");
  EXPECT_EQ(upsAdvConfigAlarm, 1) << "capital N is no match";
  EXPECT_EQ(upsAdvConfigSensitivity, 4);
  EXPECT_EQ(upsAdvTestDiagnosticSchedule, 4);
}

TEST_F(SettingsTest, EnumerationNamesGiveTheirValues) {
  Load(
      "upsAdvConfigAlarm=never\nupsAdvConfigSensitivity=low\n"
      "upsAdvTestDiagnosticSchedule=weekly\n");
  EXPECT_EQ(upsAdvConfigAlarm, 3);
  EXPECT_EQ(upsAdvConfigSensitivity, 2);
  EXPECT_EQ(upsAdvTestDiagnosticSchedule, 3);
}

TEST_F(SettingsTest, OffRequestsAreCappedAtTenOnlyFromAbove) {
  Load("OffRequestCount=25\nOffRequestInterval=-3\n");
  EXPECT_EQ(OffRequestCount, 10);
  EXPECT_EQ(OffRequestInterval, -3);
}

TEST_F(SettingsTest, AddressesFillTheirTables) {
  Load(
      "UPS_IP=\nUPS_IP1=10.1.1.1\nUPS_IP2=\nUPS_IP129=10.1.1.129\nUPS_IP130=10.9.9.9\n"
      "UPS_IP_S0=10.2.2.0\nUPS_IP_S15=10.2.2.15\nSERVER_IP_3=10.3.3.3\nUPS_IP_O7=10.4.4.7\n");
  EXPECT_STREQ(UpsIp[0], "") << "an empty main address stays empty";
  EXPECT_STREQ(UpsIp[1], "10.1.1.1");
  EXPECT_STREQ(UpsIp[2], "127.0.0.1") << "an empty further address marks an unused slot";
  EXPECT_STREQ(UpsIp[129], "10.1.1.129");
  EXPECT_STREQ(UpsIpServer[0], "10.2.2.0");
  EXPECT_STREQ(UpsIpServer[15], "10.2.2.15");
  EXPECT_STREQ(ServerIP[3], "10.3.3.3");
  EXPECT_STREQ(UpsIpOther[7], "10.4.4.7");
  EXPECT_STREQ(UpsIpOther[6], "");
}

TEST_F(SettingsTest, ValuesAreCutToTheirVariables) {
  std::string long_community(100, 'c');
  Load("UPS_Com=" + long_community + "\nUPS_Off=Sleep mode that is far too long\nPORT=70000\n");
  EXPECT_EQ(std::string(UpsCommunity), std::string(63, 'c'));
  EXPECT_STREQ(UpsOffMode, "Sleep mode that");
  EXPECT_EQ(CommunicationPortNo, 70000 % 65536) << "the low 16 bits";
  EXPECT_STREQ(DilayTimeCut, "Y") << "the neighbour of UpsOffMode is untouched";
}

TEST_F(SettingsTest, FlagsAndUnparsableNumbers) {
  Load("AC_MIB_Conv=yes\nNO_TRAP=Y\nAUTO_REBOOT_ORG=no\nSNMP_GET_RETRY=abc\nSNMP_SET_RETRY=3\n");
  EXPECT_EQ(g_bAC_MIBConvertMode, 1);
  EXPECT_EQ(NO_TRAP_SERVICE, 1);
  EXPECT_EQ(g_Auto_Reboot_Org, 0);
  EXPECT_EQ(GetRetryMax, 0u) << "a number that does not parse leaves the value from load";
  EXPECT_EQ(SetRetryMax, 3u);
}

TEST_F(SettingsTest, DebugSwitchNeedsExactlyOn) {
  PutFile(home_.data("config.apc"), "[Lumi]\nTraceMode=on\n");
  std::strcpy(UpsIp[0], "10.0.0.1");
  DebugModeCheck();
  EXPECT_EQ(g_bDebugMode, 0);
  EXPECT_STREQ(UpsIp[0], "10.0.0.1");

  PutFile(home_.data("config.apc"), "[Lumi]\nTraceMode=ON\n");
  DebugModeCheck();
  EXPECT_EQ(g_bDebugMode, 1);

  std::filesystem::remove(home_.data("config.apc"));
  DebugModeCheck();
  EXPECT_EQ(g_bDebugMode, 1) << "absent leaves the switch alone";
  EXPECT_STREQ(UpsIp[0], "127.0.0.1") << "and marks the main slot unused";
}

TEST_F(SettingsTest, LoadClearsStatusAndFaultWords) {
  ups_X1[5][1] = 0x80;
  ups_Other_X1[0][3] = 0x10;
  ups_Falut = 7;
  ups_Server_Falut[0][2] = 1;
  ups_Other_Falut[0][15] = 1;
  OID2upsSCGMembershipGroupNumberErrorCount = 31;
  SignalResponse1 = SignalResponse2 = 9;
  g_iMutexMode = 1;
  lib_init();
  EXPECT_EQ(ups_X1[5][1], 0);
  EXPECT_EQ(ups_Other_X1[0][3], 0);
  EXPECT_EQ(ups_Falut, 0);
  EXPECT_EQ(ups_Server_Falut[0][2], 0);
  EXPECT_EQ(ups_Other_Falut[0][15], 0);
  EXPECT_EQ(OID2upsSCGMembershipGroupNumberErrorCount, 0);
  EXPECT_EQ(SignalResponse1 + SignalResponse2, 0u);
  EXPECT_EQ(g_iMutexMode, 0);
}

TEST_F(SettingsTest, DebugLoadLogsEverySettingInOrder) {
  Load(
      "UPS_IP=127.0.1.1\nUPS_IP4=127.0.1.5\nUPS_Com=public\nUPS_Off=Turn\nDilayTimeCut=N\n"
      "UPS_Power_fail_wait=90\nUPS_Power_fail_wait_other=40\nSNMP_Trap_interval=5\n"
      "UPS_other_on_wait=7\nAC_MIB_Conv=Y\nAUTO_REBOOT_ORG=y\nupsAdvConfigAlarm=never\n",
      "ON");
  std::vector<LogRecord> expected = {
      {0, "[snmplumi] lib_init start"},
      {0, "### [AC_MIB_Conv mode] AC_MIB_Conv = Y"},
      {0, "### [TRAP mode] NO_TRAP = <default>"},
      {0, "### [UPS_IP] = (127.0.1.1) Community : (public)"},
      {0, "### [UPS_IP4] = (127.0.1.5)"},
      {0, "### Off Mode[UPS_Off] = (T) Sleep/Trun   [DilayTimeCut] = (N) Y/N"},
      {0, "### SNMP watch timer[UPS_Power_fail_wait]= (90sec)  [_other]= (40sec)"},
      {0, "### SNMP Trap Interval timer[SNMP_Trap_interval] sec= (5)"},
      {0, "### SNMP watch timer[UPS_other_on_wait]= (7sec)"},
      {0, "g_Auto_Reboot_Org (1)"},
      {0, "*** [upsAdvConfigHighTransferVolt] = (108)"},
      {0, "*** [upsAdvConfigLowTransferVolt] = (87)"},
      {0, "*** [upsAdvConfigAlarm] = (3)"},
      {0, "*** [upsAdvConfigAlarmTimer] = (0)"},
      {0, "*** [upsAdvConfigMinReturnCapacity] = (90)"},
      {0, "*** [upsAdvConfigSensitivity] = (1)"},
      {0, "*** [upsAdvConfigLowBatteryRunTime] = (120)"},
      {0, "*** [upsAdvConfigBattExhaustThresh] = (0)"},
      {0, "*** [upsAdvTestDiagnosticSchedule] = (5)"},
      {0, "*** [upsBasicIdentName] = (APC UPS)"},
      {0, " OffRequestCount=2 OffRequestInterval=1"},
      {0, "[snmplumi] g_hMutexTovLumiStopControl ok"},
      {0, "[snmplumi] g_hLocalLoggingMutex ok"},
      {0, "[snmplumi] g_hLocalLogging2Mutex ok"},
      {0, "[snmplumi] g_hLocalLogging3Mutex ok"},
      {0, "[snmplumi] INI File Mutex ok"},
      {0, "[snmplumi] lib_init end"},
  };
  expected[1].code = 1;  // the flag read is the code of its line
  EXPECT_EQ(LibraryLog(home_), expected);
}

TEST_F(SettingsTest, QuietLoadLogsOnlyTheSettings) {
  Load("", "OFF");
  auto messages = LogMessages(home_);
  ASSERT_EQ(messages.size(), 19u);
  EXPECT_EQ(messages.front(), "### [AC_MIB_Conv mode] AC_MIB_Conv = <default>");
  EXPECT_EQ(messages.back(), " OffRequestCount=2 OffRequestInterval=1");
}

TEST_F(SettingsTest, UnloadLogsAfterDestroyingTheLoggingMutexes) {
  Load("", "ON");
  lib_end();
  auto messages = LogMessages(home_);
  ASSERT_GE(messages.size(), 2u);
  EXPECT_EQ(messages[messages.size() - 2], "[snmplumi] lib_end start");
  EXPECT_EQ(messages.back().rfind("[snmplumi] lib_end end : ", 0), 0u);
  LumiLocalLog("after unload", 0);  // the mutex is back in its load-time state
  EXPECT_EQ(LogMessages(home_).back(), "after unload");
}

}  // namespace
}  // namespace snmplumi::testing
