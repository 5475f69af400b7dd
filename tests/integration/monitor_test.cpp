// The power-state watch, the status queries and the reports against simulated cards.
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "card_test.h"
#include "monitor/watch.h"
#include "powernet.h"
#include "runtime/paths.h"

namespace snmplumi::testing {
namespace {

using upssim::Op;

class MonitorTest : public CardTest {
 protected:
  void SetUp() override {
    StartCards({"a", "b"});
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  }

  // The library log since the last call, without the GET exchanges.
  std::vector<LogRecord> NewEvents() {
    auto log = LibraryLog(home_);
    std::vector<LogRecord> events(log.begin() + seen_, log.end());
    seen_ = log.size();
    std::erase_if(events, [](const LogRecord &record) {
      return record.message.starts_with(" get [") || record.message.starts_with("get = ");
    });
    return events;
  }
  std::size_t Reports(const std::string &file) {
    return RingRecords(home_.data("UPS/" + file), 101).size();
  }

  // Every object of the reports answers genErr: a line of placeholders.
  void FailEveryRead(const std::string &card) {
    for (const char *oid_text :
         {mib::upsBasicInputPhase, mib::upsAdvInputLineFailCause, mib::upsAdvInputLineVoltage,
          mib::upsAdvInputMaxLineVoltage, mib::upsAdvInputMinLineVoltage, mib::upsAdvInputFrequency,
          mib::upsBasicOutputStatus, mib::upsBasicOutputPhase, mib::upsAdvOutputVoltage,
          mib::upsAdvOutputFrequency, mib::upsAdvOutputLoad, mib::upsAdvOutputCurrent,
          mib::upsAdvBatteryCapacity, mib::upsAdvBatteryTemperature,
          mib::upsAdvBatteryRunTimeRemaining, mib::upsAdvBatteryReplaceIndicator}) {
      sim_->InjectError(card, oid_text, Op::kGet, 5);
    }
  }

  std::size_t seen_ = 0;
};

TEST_F(MonitorTest, WatchFollowsAMainUpsThroughAPowerFailure) {
  std::strcpy(UpsIp[0], Ip("a"));
  sim_->PowerFailure("a", true);
  struct Step {
    const char *ticks;
    const char *cause;  // nullptr: the cause cannot be read
    DWORD wait;
    int word0;
    std::vector<LogRecord> events;
  };
  const LogRecord cleared{0, " UPS[0] is not switched battery"};
  const LogRecord noticed{0, " UPS Battery running [12sec]!?"};
  const Step steps[] = {
      {"500", "3", 10, 0, {}},             // five seconds: a short transfer
      {"1200", "3", 10, 0x10, {noticed}},  // the wait is not looked at on the first notice
      {"1500", "3", 10, 0x18, {{0, "**** PowerFail[15sec] TimeOut! -->shutdown ! ****"}}},
      {"6000", "3", 60, 0x10, {{0, " UPS Battery running [60sec]"}}},  // back at the wait
      {"6100", "3", 60, 0x18, {{0, "**** PowerFail[61sec] TimeOut! -->shutdown ! ****"}}},
      {"3000", "9", 60, 0, {{6, "!!!!!! what! Trap watcher is STOP!? !!!!!!"}, cleared}},
      {"1200", "3", 60, 0x10, {noticed}},  // after a self-test, which never counts
      {"5000", nullptr, 60, 0, {cleared}},
      {"1200", "3", 60, 0x10, {noticed}},
      {"0", "3", 60, 0, {cleared}},
  };
  for (const Step &step : steps) {
    SCOPED_TRACE(step.ticks);
    PowerFailWait = step.wait;
    sim_->ClearErrors("a");
    if (step.cause == nullptr) {
      sim_->InjectError("a", mib::upsAdvInputLineFailCause, Op::kGet, 5);
    } else {
      sim_->Set("a", mib::upsAdvInputLineFailCause, 'i', step.cause);
    }
    sim_->Set("a", mib::upsBasicBatteryTimeOnBattery, 't', step.ticks);
    EXPECT_EQ(KavAcSnmpCheck(), 1);
    EXPECT_EQ(ups_X1[0][0], step.word0);
    EXPECT_EQ(NewEvents(), step.events);
  }
  // Output voltage 0 takes the slot out of service; a failed read changes nothing.
  for (auto [volts, fails, word1] :
       {std::tuple{"0", false, 0x80}, {"230", true, 0x80}, {"230", false, 0}}) {
    sim_->ClearErrors("a");
    sim_->Set("a", mib::upsAdvOutputVoltage, 'u', volts);
    if (fails) sim_->InjectError("a", mib::upsAdvOutputVoltage, Op::kGet, 5);
    KavAcSnmpCheck();
    EXPECT_EQ(ups_X1[0][1], word1) << volts << fails;
  }
  // A silent card costs its output voltage and its time on battery, and nothing more.
  sim_->Silent("a", true);
  long before = sim_->Requests("a");
  WatchingCounter = 4;  // a pass that reports nothing here
  KavAcSnmpCheck();
  EXPECT_EQ(sim_->Requests("a") - before, 2 * (sim_->ClientRetries() + 1));
}

TEST_F(MonitorTest, OtherGroupKeepsItsTimeOutUntilTheTimeReadsZero) {
  std::strcpy(UpsIpOther[2], Ip("b"));
  PowerFailWaitOther = 15;
  sim_->PowerFailure("b", true);
  for (auto [ticks, word, event] :
       {std::tuple{"1200", 0x10, " UPS[102] Battery running [12sec]!?"},
        {"1600", 0x18, "**** UPS[102} PowerFail[16sec] TimeOut! -->shutdown ! ****"},
        {"1000", 0x18, " UPS[102] Battery running [10sec]"},
        {"0", 0, " other_UPS[102] is not switched battery"}}) {
    sim_->Set("b", mib::upsBasicBatteryTimeOnBattery, 't', ticks);
    KavAcSnmpCheck();
    EXPECT_EQ(ups_Other_X1[0][2], word) << ticks;
    EXPECT_EQ(ups_Other_X1_t, word) << "the summary of the group";
    EXPECT_EQ(NewEvents(), (std::vector<LogRecord>{{0, event}}));
  }
}

TEST_F(MonitorTest, ReportScheduleCoversEveryGroupInElevenPasses) {
  std::strcpy(UpsIp[0], Ip("a"));
  std::strcpy(UpsIp[2], Ip("b"));
  std::strcpy(UpsIpServer[0], Ip("a"));
  std::strcpy(UpsIpServer[9], Ip("b"));
  std::strcpy(UpsIpOther[7], Ip("a"));
  std::strcpy(UpsIpOther[8], Ip("b"));
  // Each file and the pass that writes its one report.
  const std::pair<const char *, int> files[] = {{"MYUPS.LOG", 0},  {"MYUPS_2.LOG", 0},
                                                {"UPS000.LOG", 1}, {"UPS009.LOG", 2},
                                                {"UPS107.LOG", 3}, {"UPS108.LOG", 10}};
  for (int pass = 0; pass < 11; ++pass) {
    KavAcSnmpCheck();
    for (auto [file, when] : files)
      EXPECT_EQ(Reports(file), pass >= when ? 1u : 0u) << file << pass;
  }
  EXPECT_EQ(WatchingCounter, 0);
  // A first UPS registered in the UPS information file leaves pass 0 to the identification.
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[index]\n") + Ip("a") + "=1001\n");
  KavAcSnmpCheck();
  EXPECT_EQ(Reports("MYUPS.LOG"), 1u);
  WatchingCounter = -1;
  KavAcSnmpCheck();
  EXPECT_EQ(WatchingCounter, 0) << "an unknown position restarts the cycle";
  EXPECT_EQ(Reports("MYUPS.LOG") + Reports("UPS000.LOG"), 2u);
}

TEST_F(MonitorTest, StatusReportColumnsAndRanges) {
  std::strcpy(UpsIp[0], "127.0.0.1");
  std::strcpy(UpsIpServer[3], Ip("a"));
  sim_->Set("a", mib::upsAdvBatteryRunTimeRemaining, 't', "123456");
  char line[160];
  ASSERT_EQ(SnmpGetReport(3, line), 1u);
  EXPECT_NE(std::string(line).find(" 1234  "), std::string::npos) << "seconds" << line;
  for (int index : {-1, 16, 99, 116, 999, 9000, 9005, 1000}) {
    EXPECT_EQ(SnmpGetReport(index, line), 0u) << index;
    EXPECT_EQ(std::string(line), std::string(52, '-'));
  }
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[1001]\nIP=") + Ip("b") +
                                             "\nUPS_type=Symmetra LX\n[1002]\nIP=" + Ip("b") +
                                             "\nUPS_type=Smart-UPS\n");
  sim_->Set("b", mib::upsAdvBatteryNumOfBattPacks, 'i', "4");
  sim_->Set("b", mib::upsAdvBatteryNumOfBadBattPacks, 'i', "0");
  ASSERT_EQ(SnmpGetReport(1001, line), 1u);
  EXPECT_TRUE(std::string(line).ends_with("[4 0] ")) << line;
  ASSERT_EQ(SnmpGetReport(1002, line), 1u);
  EXPECT_EQ(std::string(line).find('['), std::string::npos) << line;
  FailEveryRead("b");
  long before = sim_->Requests("b");
  ASSERT_EQ(SnmpGetReport(1002, line), 1u);
  EXPECT_EQ(std::string(line), kNoReading);
  EXPECT_EQ(sim_->Requests("b") - before, 16) << "every column is tried, once";
  // A record whose address cannot be used reads as a card that never answers.
  PutFile(home_.data("UPS/UPSinfo.ini"), "[1003]\nIP=127.0.2.9:70000\n");
  ASSERT_EQ(SnmpGetReport(1003, line), 1u);
  EXPECT_EQ(std::string(line), kNoReading);
}

TEST_F(MonitorTest, TrapReportReadsTheTestCardWhateverTheIndex) {
  setenv("SNMPLUMI_TRAP_REPORT_IP", Ip("b"), 1);
  LoadEnvironment();
  std::strcpy(UpsIpServer[3], Ip("a"));
  for (int index : {3, 9004, 9116, 9120}) EXPECT_EQ(GetTrapReport(index), 0u) << index;
  FailEveryRead("b");
  ASSERT_EQ(GetTrapReport(9003), 1u);
  auto lines = RingRecords(home_.data("snmptrap/snmp9003.log"), 112);
  ASSERT_EQ(lines.size(), 8u);
  EXPECT_EQ(lines[0].substr(31, 58), " InputPhase:-  InputLineFailCause:-- InputLineVoltage=--- ");
  EXPECT_EQ(lines[7].substr(31, 56), "BatteryRunTimeRemaining=----  BatteryReplaceIndicator=- ");
  EXPECT_EQ(LogMessages(home_),
            (std::vector<std::string>{std::string("  GetTrapReport ip=") + Ip("b")}));
}

TEST_F(MonitorTest, InputStatusClassesAtEachLimit) {
  upsAdvConfigHighTransferVolt = 253;
  upsAdvConfigLowTransferVolt = 196;
  upsAdvConfigMinReturnCapacity = 50;
  const int rows[][3] = {{0, 10, 2},    {253, 100, 5}, {252, 100, 1},
                         {196, 100, 6}, {197, 50, 1},  {197, 49, 3}};
  for (const auto &[volts, capacity, expected] : rows) {
    sim_->Set("a", mib::upsAdvInputLineVoltage, 'u', std::to_string(volts));
    sim_->Set("a", mib::upsAdvBatteryCapacity, 'u', std::to_string(capacity));
    int sts = -1;
    EXPECT_EQ(GetUpsInputStatusFromSnmp(const_cast<char *>(Ip("a")), &sts), 1);
    EXPECT_EQ(sts, expected) << volts << " V, " << capacity << " %";
  }
  // A stored fault answers at once: the silent card would have failed any request.
  sim_->Silent("a", true);
  std::strcpy(UpsIp[0], Ip("a"));
  std::strcpy(UpsIpOther[3], Ip("b"));
  ups_Falut = 4;
  ups_Other_Falut[0][3] = 7;
  int sts = 0;
  EXPECT_EQ(GetUpsInputStatusFromSnmp(UpsIp[0], &sts), 1);
  EXPECT_EQ(sts, 0x104);
  EXPECT_EQ(GetUpsInputStatusFromSnmp(UpsIpOther[3], &sts), 1);
  EXPECT_EQ(sts, 0x107);
  ups_Falut = 0;
  EXPECT_EQ(GetUpsInputStatusFromSnmp(UpsIp[0], &sts), 0);
  EXPECT_EQ(NewEvents().back(), (LogRecord{UPS_E_NO_SERVER, "GetUpsInputStatusFromSnmp(1)[" +
                                                                sim_->Address("a") + "] error!"}));
}

TEST_F(MonitorTest, DetailQueriesTrustOnlyACardThatTakesTheirWrite) {
  FakeClock clock(kSomeTime);
  char *ip = const_cast<char *>(Ip("a"));
  int o[8];
  auto detail = [&] { return GetUpsDetailStatusFromSnmp(ip, &o[0], &o[1], &o[2], &o[3], &o[4]); };
  auto detail2 = [&] {
    return GetUpsDetailStatusFromSnmp2(ip, &o[0], &o[1], &o[2], &o[3], &o[5], &o[6], &o[4]);
  };
  sim_->InjectError("a", mib::upsBasicIdentName, Op::kSet, 4);
  EXPECT_EQ(detail(), 0);
  EXPECT_EQ(std::vector<int>(o, o + 5), std::vector<int>(5, 99999));
  EXPECT_EQ(sim_->Journal().size(), 4u) << "four attempts at the write";
  EXPECT_EQ(clock.sleeps, (std::vector<unsigned long>{400000, 400000, 400000}));
  EXPECT_EQ(NewEvents().back(),
            (LogRecord{UPS_E_CANT_ACCESS, std::string("GetUpsDetailStatusFromSnmp(outsts)[") + ip +
                                              "] name error! check=1"}));
  sim_->ClearErrors("a");
  sim_->Oversize("a", mib::upsBasicIdentName, 300);  // written back as far as the buffer holds
  EXPECT_EQ(detail(), 1);
  EXPECT_EQ(Applied().back().value.size(), 129u);
  sim_->PowerFailure("a", true, 4);
  for (auto [ticks, line] : {std::pair{"1500", false}, {"1400", true}}) {
    sim_->Set("a", mib::upsBasicBatteryTimeOnBattery, 't', ticks);
    EXPECT_EQ(detail(), 1);
    EXPECT_EQ(o[0], 3);
    EXPECT_EQ(o[4], 4) << "the cause of the transfer";
    EXPECT_EQ(NewEvents().size(), line ? 1u : 0u) << ticks;
  }
  sim_->Set("a", mib::upsBasicStateOutputState, 's', std::string(64, '0'));
  EXPECT_EQ(detail2(), 0);
  EXPECT_EQ(NewEvents().back().message.rfind("not Serial Communication(", 0), 0u);
  sim_->Set("a", mib::upsBasicStateOutputState, 's', "000001" + std::string(58, '0'));
  sim_->Set("a", mib::upsAdvBatteryTemperature, 'u', "31");
  sim_->InjectError("a", mib::upsAdvBatteryReplaceIndicator, Op::kGet, 5);
  EXPECT_EQ(detail2(), 1);
  EXPECT_EQ(o[6], 31) << "an unread replace indicator leaves the temperature in its place";
}

TEST_F(MonitorTest, GroupQueryStopsAskingAfterThirtyOneFailures) {
  char *ip = const_cast<char *>(Ip("a"));
  sim_->InjectError("a", mib::upsSCGMembershipGroupNumber, Op::kGet, 2);
  int v[5];
  char flags[65];
  for (int i = 1; i <= 32; ++i) {
    std::memset(flags, 'x', sizeof flags);
    EXPECT_EQ(GetUpsDetailStatusFromSnmp3(ip, &v[0], &v[1], &v[2], &v[3], &v[4], flags), 0);
    EXPECT_EQ(std::strlen(flags), 64u) << "the state flags are copied whatever follows";
  }
  EXPECT_EQ(OID2upsSCGMembershipGroupNumberErrorCount, 31);
  auto events = NewEvents();
  ASSERT_EQ(events.size(), 31u) << "the 32nd call asks nothing";
  EXPECT_EQ(events.back().message,
            "GetUpsDetailStatusFromSnmp3(MGN)[" + sim_->Address("a") + "] error! Errcount:[31]");
}

TEST_F(MonitorTest, RecordReportNeedsARecordAndAnAnswer) {
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[1001]\nIP=") + Ip("a") + "\n");
  sim_->Silent("a", true);
  EXPECT_EQ(UPSCheckSnmpRequest2(1001, 1), 1) << "only looks for the record";
  EXPECT_EQ(UPSCheckSnmpRequest2(1002, 0), 0);
  EXPECT_EQ(UPSCheckSnmpRequest2(1001, 0), 0);
  EXPECT_EQ(NewEvents().front().message, "not UPSinfo.ini");
  auto reports = RingRecords(home_.data("UPS/UPS1001.LOG"), 101);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].substr(20, std::strlen(kNoReading)), kNoReading);
}

TEST_F(MonitorTest, HostInformationLogsTheFirstCardAndCopiesSettings) {
  std::strcpy(UpsIp[0], Ip("a"));
  char version[8] = {};
  EXPECT_EQ(GetDromlumiDllVersion(version), 1);
  auto events = NewEvents();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[1].message.rfind("----[" + sim_->Address("a") + "] SCGM[", 0), 0u);
  sim_->Silent("a", true);
  EXPECT_EQ(GetDromlumiDllVersion(version), 1);
  EXPECT_EQ(NewEvents().size(), 1u) << "no status lines of a silent card";

  // Each index fills as many bytes as its item holds; the ends and past them.
  std::strcpy(UpsCommunity, "lumi");
  char data[1025];
  const std::pair<int, std::size_t> sizes[] = {{0, 0},     {4, 64}, {6, 4},
                                               {12, 1024}, {13, 0}, {-1, 0}};
  for (auto [index, size] : sizes) {
    std::memset(data, '#', sizeof data);
    EXPECT_EQ(KavAcGetInfo(data, index), 1);
    EXPECT_EQ(std::string(data, sizeof data).find('#'), size) << index;
  }
  EXPECT_EQ(KavAcGetInfo(data, 4), 1);
  EXPECT_STREQ(data, "lumi");
}

}  // namespace
}  // namespace snmplumi::testing
