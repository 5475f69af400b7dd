#include <functional>
#include <tuple>
#include <utility>

#include "card_test.h"
#include "monitor/watch.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

using upssim::Op;

using Set = std::pair<std::string, std::string>;      // object, value
constexpr char kWhen[] = "Sun Nov 22 23:28:00 2026";  // kSomeTime in UTC
constexpr char kParameters[] =
    "ShutoffDelay=90\nReturnDelay=5\nHighTransferVolt=110\nLowTransferVolt=90\nConfigAlarm=2\n"
    "ConfigAlarmTimer=30\nMinReturnCapacity=15\nSensitivity=3\nLowBatteryRunTime=120\n"
    "BattExhaustThresh=60\nTestDiagnosticSchedule=4\n";
// clang-format off
const std::vector<Set> kConfigured = {
    {mib::upsAdvConfigShutoffDelay, "9000"},       {mib::upsAdvConfigReturnDelay, "500"},
    {mib::upsAdvConfigHighTransferVolt, "110"},    {mib::upsAdvConfigLowTransferVolt, "90"},
    {mib::upsAdvConfigAlarm, "2"},                 {mib::upsAdvConfigAlarmTimer, "3000"},
    {mib::upsAdvConfigMinReturnCapacity, "15"},    {mib::upsAdvConfigSensitivity, "3"},
    {mib::upsAdvConfigLowBatteryRunTime, "12000"}, {mib::upsAdvConfigBattExhaustThresh, "6000"},
    {mib::upsAdvTestDiagnosticSchedule, "4"}};
// clang-format on

class MonitorTest : public CardTest {
 protected:
  void SetUp() override {
    UseUtc();
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
  std::vector<Set> Sets(const std::string &card = "a") const {
    std::vector<Set> sets;
    for (const upssim::JournalEntry &entry : Applied())
      if (entry.card == card) sets.emplace_back(entry.oid, entry.value);
    return sets;
  }
  std::string Info() const { return FileText(home_.data("UPS/UPSinfo.ini")); }

  std::size_t seen_ = 0;
  FakeClock clock_{kSomeTime};
};

TEST_F(MonitorTest, WatchFollowsAMainUpsThroughAPowerFailure) {
  std::strcpy(UpsIp[0], Ip("a"));
  sim_->PowerFailure("a", true);
  struct Step {
    const char *ticks, *cause;  // cause nullptr: it cannot be read
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
      {"3000", "9", 60, 0, {cleared}},                                 // a self-test never counts
      {"1200", "3", 60, 0x10, {{6, "!!!!!! what! Trap watcher is STOP!? !!!!!!"}, noticed}},
      {"5000", nullptr, 60, 0, {cleared}},
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
  // Output voltage 0 takes the slot out of service, and another gives it back.
  for (auto [volts, word1] : {std::pair{"0", 0x80}, {"230", 0}}) {
    sim_->Set("a", mib::upsAdvOutputVoltage, 'u', volts);
    KavAcSnmpCheck();
    EXPECT_EQ(ups_X1[0][1], word1) << volts;
  }
  // A silent card costs its output voltage and its time on battery, and nothing more.
  sim_->Silent("a", true);
  long before = sim_->Requests("a");
  WatchingCounter = 4;  // a pass that reports nothing here
  KavAcSnmpCheck();
  EXPECT_EQ(sim_->Requests("a") - before, 2 * (sim_->ClientRetries() + 1));
}

// Unlike the main table, the other group keeps its time-out bit until the time reads 0.
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

TEST_F(MonitorTest, StatusReportColumnsAndRanges) {
  std::strcpy(UpsIpServer[3], Ip("a"));
  sim_->Set("a", mib::upsAdvBatteryRunTimeRemaining, 't', "123456");
  char line[160];
  ASSERT_EQ(SnmpGetReport(3, line), 1u);
  EXPECT_NE(std::string(line).find(" 1234  "), std::string::npos) << "seconds" << line;
  for (int index : {-1, 16, 99, 116, 999, 9000, 9005, 1000}) {
    EXPECT_EQ(SnmpGetReport(index, line), 0u) << index;
    EXPECT_EQ(std::string(line), std::string(52, '-'));
  }
}

TEST_F(MonitorTest, DetailQueryTrustsOnlyACardThatTakesItsWrite) {
  char *ip = const_cast<char *>(Ip("a"));
  int o[5];
  auto detail = [&] { return GetUpsDetailStatusFromSnmp(ip, &o[0], &o[1], &o[2], &o[3], &o[4]); };
  sim_->InjectError("a", mib::upsBasicIdentName, Op::kSet, 4);
  EXPECT_EQ(detail(), 0);
  EXPECT_EQ(std::vector<int>(o, o + 5), std::vector<int>(5, 99999));
  EXPECT_EQ(sim_->Journal().size(), 4u) << "four attempts at the write";
  EXPECT_EQ(clock_.sleeps, (std::vector<unsigned long>{400000, 400000, 400000}));
  sim_->ClearErrors("a");
  sim_->PowerFailure("a", true, 4);
  EXPECT_EQ(detail(), 1);
  EXPECT_EQ(o[4], 4) << "the cause of the transfer";
}

TEST_F(MonitorTest, NewUpsIsConfiguredThenRecognisedThenReplaced) {
  const std::string ip = Ip("a"), card = sim_->Value("a", mib::sysDescr) + "]";
  const std::string serial = sim_->Value("a", mib::upsAdvIdentSerialNumber) + "]]";
  PutFile(home_.data("UPS/UPSinfo.ini"), "[1000]\nIP=" + ip + "\npath=ups1\n");
  PutFile(home_.data("ac_e_net.apc"), std::string("[ups1]\n") + kParameters);
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(Sets(), kConfigured);
  const std::string head = "[1000]\nIP=" + ip + "\npath=ups1\nDATE_card=" + kWhen +
                           "\nOLD_CardInfo=<default>\nCardInfo=" + card + "\nCardMIBrev=30601\n";
  const std::string first = head + "OLD_UPS_type=<default>\nOLD_UPS_Sno.=<default>\n" +
                            "UPS_type=Smart-UPS 1500]]\nUPS_Sno.=" + serial + "\nDATE=" + kWhen +
                            "\n";
  EXPECT_EQ(Info(), first);
  UPSCheckSnmpRequest(1000, 0);  // the same UPS: nothing written
  EXPECT_EQ(Sets(), kConfigured);
  EXPECT_EQ(Info(), first);

  // A new serial number is a new UPS; the card's text is recorded up to its first line break.
  // Joining a group, it gets the default address for one that does not begin with 224.
  sim_->Set("a", mib::upsAdvIdentSerialNumber, 's', "NEW0001\r\n[1000]\nIP=10.0.0.9");
  sim_->Set("a", mib::upsSCGMultiCastIP, 'a', "224.9.9.9");
  PutFile(home_.data("ac_e_net.apc"),
          std::string("[ups1]\nSCGonoff=1\nSCG_MGN=3\nSCG_MIP=239.1.1.1\n") + kParameters);
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(sim_->Value("a", mib::upsSCGMultiCastIP), "224.0.0.100");
  EXPECT_EQ(Info(), head + "OLD_UPS_type=Smart-UPS 1500]]\nOLD_UPS_Sno.=" + serial +
                        "\nUPS_type=Smart-UPS 1500]]\nUPS_Sno.=NEW0001]]\nDATE=" + kWhen +
                        "\nOLD_DATE=" + kWhen + "\n");
}

// Nothing configured costs no packet; a silent card is given up after its first time-out, one
// that answers the wrong status after GetRetryMax tries. Once one card answers, every configured
// card gets the parameters, each SET retried by its own rule.
TEST_F(MonitorTest, StartUpWaitWritesToEveryConfiguredCardOnceOneAnswers) {
  GetRetryMax = 5, SetRetryMax = 3;
  const std::vector<std::function<void()>> rows = {
      [] {}, [&] { std::strcpy(UpsIp[3], Ip("a")), sim_->Silent("a", true); },
      [&] { sim_->Silent("a", false), sim_->Set("a", mib::upsCommStatus, 'i', "2"); },  // noComm
  };
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (int(&words)[9] : ups_X1) words[0] = 0x18, words[1] = 0x7f;
    long before = sim_->Requests("a");
    clock_.sleeps.clear();
    rows[row]();
    EXPECT_EQ(WaitDromStartUp(0), 0);
    long tries = row == 0 ? 0 : row == 1 ? 1 : 5;
    EXPECT_EQ(sim_->Requests("a") - before, tries * (sim_->ClientRetries() + 1)) << row;
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row == 2 ? 5 : 0, 1000000)) << row;
    for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot)
      EXPECT_EQ(ups_X1[slot][0] | ups_X1[slot][1], slot == 3 && row > 0 ? 0 : 0x80) << slot;
  }
  EXPECT_TRUE(Applied().empty());

  std::strcpy(UpsIp[7], Ip("b"));  // b answers; a still does not, and is written all the same
  sim_->InjectError("a", mib::upsAdvConfigHighTransferVolt, Op::kSet, 5);
  sim_->InjectError("a", mib::upsAdvConfigLowTransferVolt, Op::kSet, 3);
  upsAdvConfigHighTransferVolt = 110, upsAdvConfigLowTransferVolt = 90, upsAdvConfigAlarm = 2;
  upsAdvConfigAlarmTimer = 30, upsAdvConfigMinReturnCapacity = 15, upsAdvConfigSensitivity = 3;
  upsAdvConfigLowBatteryRunTime = 120, upsAdvConfigBattExhaustThresh = 60;
  upsAdvTestDiagnosticSchedule = 4;
  clock_.sleeps.clear();
  EXPECT_EQ(WaitDromStartUp(0), 1);
  const std::vector<Set> pushed(kConfigured.begin() + 2, kConfigured.end());
  EXPECT_EQ(Sets("b"), pushed);
  std::vector<Set> refused = {pushed[0], pushed[0]};  // genErr: SetRetryMax tries; badValue: one
  refused.insert(refused.end(), pushed.begin(), pushed.end());
  EXPECT_EQ(Sets("a"), refused);
  EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(7, 1000000));  // 5 checks of a, 2 retries
}

}  // namespace
}  // namespace snmplumi::testing
