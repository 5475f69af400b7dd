#include <tuple>

#include "card_test.h"
#include "monitor/watch.h"
#include "powernet.h"

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

  std::size_t seen_ = 0;
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
  PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[1002]\nIP=") + Ip("b") + "\n");
  sim_->Silent("b", true);
  ASSERT_EQ(SnmpGetReport(1002, line), 1u);
  EXPECT_EQ(std::string(line), kNoReading);
}

TEST_F(MonitorTest, DetailQueryTrustsOnlyACardThatTakesItsWrite) {
  FakeClock clock(kSomeTime);
  char *ip = const_cast<char *>(Ip("a"));
  int o[5];
  auto detail = [&] { return GetUpsDetailStatusFromSnmp(ip, &o[0], &o[1], &o[2], &o[3], &o[4]); };
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
  sim_->PowerFailure("a", true, 4);
  EXPECT_EQ(detail(), 1);
  EXPECT_EQ(Applied().back().value.size(), 129u);
  EXPECT_EQ(o[4], 4) << "the cause of the transfer";
}

}  // namespace
}  // namespace snmplumi::testing
