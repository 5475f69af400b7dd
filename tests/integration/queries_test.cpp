// The host's status queries, the trap report, the report schedule of the watch and the raw
// settings copies, against simulated cards.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <tuple>

#include "card_test.h"
#include "powernet.h"
#include "runtime/paths.h"

namespace snmplumi::testing {
namespace {

using upssim::Op;

class QueriesTest : public CardTest {
 protected:
  void SetUp() override {
    StartCards({"a"});
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  }
  char *ip() const { return const_cast<char *>(Ip("a")); }
};

TEST_F(QueriesTest, InputStatusClassifiesAtEachLimitAndAnswersStoredFaultsWithoutAsking) {
  upsAdvConfigHighTransferVolt = 250, upsAdvConfigLowTransferVolt = 200;
  upsAdvConfigMinReturnCapacity = 50;
  // The input is tested before the limits, the limits before the capacity.
  const std::tuple<const char *, const char *, int> rows[] = {
      {"0", "0", 2}, {"250", "0", 5}, {"249", "50", 1}, {"201", "49", 3}, {"200", "100", 6}};
  for (auto [volts, capacity, status] : rows) {
    sim_->Set("a", mib::upsAdvInputLineVoltage, 'u', volts);
    sim_->Set("a", mib::upsAdvBatteryCapacity, 'u', capacity);
    int sts = 0;
    EXPECT_EQ(GetUpsInputStatusFromSnmp(ip(), &sts), 1);
    EXPECT_EQ(sts, status) << volts << " V, " << capacity << " %";
  }
  std::strcpy(UpsIp[0], ip());
  std::strcpy(UpsIpOther[4], ip());
  const long before = sim_->Requests("a");
  for (auto [main, other, status] : {std::tuple{7, 0, 0x107}, {0, 4, 0x104}}) {
    ups_Falut = main, ups_Other_Falut[0][4] = other;
    int sts = 0;
    EXPECT_EQ(GetUpsInputStatusFromSnmp(ip(), &sts), 1);
    EXPECT_EQ(sts, status);
  }
  EXPECT_EQ(sim_->Requests("a"), before);
  ups_Falut = ups_Other_Falut[0][4] = 0;
}

TEST_F(QueriesTest, SerialLinkReplaceIndicatorAndGroupSettings) {
  int o[7];
  auto detail2 = [&] {
    return GetUpsDetailStatusFromSnmp2(ip(), &o[0], &o[1], &o[2], &o[3], &o[4], &o[5], &o[6]);
  };
  const std::string no_link = "00000" + std::string(70, '0');
  sim_->Set("a", mib::upsBasicStateOutputState, 's', no_link);
  EXPECT_EQ(detail2(), 0) << "no serial link";
  sim_->Set("a", mib::upsBasicStateOutputState, 's', "000001");
  sim_->Set("a", mib::upsAdvBatteryTemperature, 'u', "31");
  sim_->InjectError("a", mib::upsAdvBatteryReplaceIndicator, Op::kGet, 5);
  EXPECT_EQ(detail2(), 1);
  EXPECT_EQ(o[5], 31) << "a failed replace indicator reports the temperature";

  // The group number may fail 31 times; after that nothing but the state flags is read.
  int g[5];
  char state[65];
  auto detail3 = [&] {
    return GetUpsDetailStatusFromSnmp3(ip(), &g[0], &g[1], &g[2], &g[3], &g[4], state);
  };
  OID2upsSCGMembershipGroupNumberErrorCount = 30;
  sim_->InjectError("a", mib::upsSCGMembershipGroupNumber, Op::kGet, 5);
  EXPECT_EQ(detail3(), 0);
  EXPECT_EQ(LibraryLog(home_).back().message,
            std::string("GetUpsDetailStatusFromSnmp3(MGN)[") + ip() + "] error! Errcount:[31]");
  sim_->ClearErrors("a");
  std::strcpy(state, "stale");
  const long before = sim_->Requests("a");
  EXPECT_EQ(detail3(), 0);
  EXPECT_EQ(sim_->Requests("a") - before, 1);
  EXPECT_STREQ(state, "000001");
  OID2upsSCGMembershipGroupNumberErrorCount = 0;
}

TEST_F(QueriesTest, RecordReportProbesTheCardOnlyWhenAsked) {
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[1001]\nIP=") + ip() + "\n");
  const long before = sim_->Requests("a");
  EXPECT_EQ(UPSCheckSnmpRequest2(1001, 1), 1);
  EXPECT_EQ(sim_->Requests("a"), before);
  EXPECT_EQ(UPSCheckSnmpRequest2(1005, 0), 0);
  EXPECT_EQ(LibraryLog(home_).back(), (LogRecord{0, "not UPSinfo.ini"}));
  sim_->InjectError("a", mib::upsAdvBatteryTemperature, Op::kGet, 5);
  EXPECT_EQ(UPSCheckSnmpRequest2(1001, 0), 0);
  sim_->ClearErrors("a");
  EXPECT_EQ(UPSCheckSnmpRequest2(1001, 0), 1);
  const auto reports = RingRecords(home_.data("UPS/UPS1001.LOG"), 101);
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0].substr(20, 60), kNoReading);
  EXPECT_NE(reports[1].substr(20, 60), kNoReading);
}

// Every request of the trap report goes to the one address the environment names.
TEST_F(QueriesTest, TrapReportWritesEightLinesFromTheReportAddress) {
  setenv(kTrapReportAddressEnv, ip(), 1);
  LoadEnvironment();
  std::strcpy(UpsIpServer[2], "10.0.0.2");  // never asked
  sim_->InjectError("a", mib::upsBasicInputPhase, Op::kGet, 5);
  sim_->InjectError("a", mib::upsAdvBatteryRunTimeRemaining, Op::kGet, 5);
  const long before = sim_->Requests("a");
  EXPECT_EQ(GetTrapReport(9002), 1u);
  EXPECT_EQ(sim_->Requests("a") - before, 16);
  const auto lines = CodedLog(home_.data("snmptrap/snmp9002.log"));
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_TRUE(lines[0].message.starts_with(" InputPhase:-  InputLineFailCause:"))
      << lines[0].message;
  EXPECT_TRUE(lines[7].message.starts_with("BatteryRunTimeRemaining=----  Battery"))
      << lines[7].message;
  for (int index : {9000, 9130, 2, 102, 16, 8999}) {
    EXPECT_EQ(GetTrapReport(index), 0u) << index;
  }
  EXPECT_EQ(sim_->Requests("a") - before, 16);
  setenv(kTrapReportAddressEnv, kQuietTrapReportIp, 1);
  LoadEnvironment();
}

// Eleven passes report every slot once; the first waits for nothing when the UPS information
// file holds the first UPS.
TEST_F(QueriesTest, WatchReportsEverySlotOnceInElevenPasses) {
  for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  for (int n = 0; n < 16; ++n) {
    std::strcpy(UpsIpServer[n], ip()), std::strcpy(UpsIpOther[n], ip());
    if (n < 4) std::strcpy(UpsIp[n], ip());
  }
  auto reported = [&] {
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(home_.data("UPS")))
      files.insert(entry.path().filename());
    return files;
  };
  // The report files of each pass: MYUPS*.LOG for 9000 + n, UPSnnn.LOG for the others.
  const char *passes[] = {"MYUPS MYUPS_1 MYUPS_2 MYUPS_3",
                          "000 008",
                          "001 009",
                          "002 010 107 115",
                          "003 011 106 114",
                          "004 012 105 113",
                          "005 013 104 112",
                          "006 014 103 111",
                          "007 015 102 110",
                          "101 109",
                          "100 108"};
  WatchingCounter = 0;
  for (const char *pass : passes) {
    std::set<std::string> expected = reported();
    std::istringstream names(pass);
    for (std::string name; names >> name;)
      expected.insert((isdigit(name[0]) ? "UPS" : "") + name + ".LOG");
    KavAcSnmpCheck();
    EXPECT_EQ(reported(), expected) << pass;
  }
  std::filesystem::remove_all(home_.data("UPS"));
  std::filesystem::create_directory(home_.data("UPS"));
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[index]\n") + ip() + "=1001\n");
  KavAcSnmpCheck();
  EXPECT_EQ(reported(), std::set<std::string>{"UPSinfo.ini"});
}

TEST_F(QueriesTest, RawCopiesTakeTheWholeVariable) {
  const std::tuple<int, const void *, std::size_t> rows[] = {
      {1, UpsIp[0], 64},     {2, UpsIpServer, 1024}, {3, UpsIpOther, 1024},
      {4, UpsCommunity, 64}, {5, UpsOffMode, 16},    {6, &OtherUpsOnWait, 4},
      {7, &SnmpTrapInt, 4},  {8, SecurityName, 16},  {9, &CommunicationPortNo, 2},
      {10, &ArmPortNo, 2},   {11, SendIp, 64},       {12, ServerIP, 1024},
      {0, nullptr, 0},       {13, nullptr, 0},       {-1, nullptr, 0}};
  for (auto [index, variable, size] : rows) {
    std::vector<char> data(1100, '\x5a');
    EXPECT_EQ(KavAcGetInfo(data.data(), index), 1) << index;
    if (size > 0) {
      EXPECT_EQ(std::memcmp(data.data(), variable, size), 0) << index;
    }
    EXPECT_EQ(std::count(data.begin() + size, data.end(), '\x5a'), 1100 - size) << index;
  }
}

}  // namespace
}  // namespace snmplumi::testing
