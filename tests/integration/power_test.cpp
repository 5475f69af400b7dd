#include <functional>
#include <map>
#include <tuple>

#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

using upssim::Op;
using Set = std::tuple<std::string, std::string, std::string>;  // object, value, answer

class PowerTest : public CardTest {
 protected:
  void SetUp() override {
    StartCards({"ups"});
    OffRequestCount = 3, OffRequestInterval = 4;
  }
  char *ip() { return const_cast<char *>(Ip("ups")); }
  std::vector<Set> SetsOf(const std::function<BOOL()> &order, BOOL result) {
    ClearLog(), clock_.sleeps.clear();
    const std::size_t first = sim_->Journal().size();
    EXPECT_EQ(order(), result);
    std::vector<Set> sets;
    for (const upssim::JournalEntry &set : Applied(first))
      sets.emplace_back(set.oid, set.value, set.answer);
    return sets;
  }
  FakeClock clock_{kSomeTime};
};

TEST_F(PowerTest, SleepOrderWritesTheComputedSleepTimeThenTheCode) {
  struct Row {
    int mode;
    std::time_t ontime;
    const char *shutoff_delay;  // ticks on the card; nullptr: neither delay can be read
    char cut;
    std::string sleep_time, code, hours;
  };
  const Row rows[] = {
      {1002, 1000, nullptr, 'N', "67000", "2", "670sec : 0.1h"},  // 180 + 120 + 30 s
      {1003, 100, "9000", 'N', "0", "3", "0sec : 0.0h"},          // 90 + 120 + 30 > 100
      {1002, 40000000, "9000", 'N', "3153600000", "2", "31536000sec : 8760.0h"},
      {2, kSomeTime - 1, "9000", 'y', "60000", "2", "600sec : 0.1h"},  // only Y cuts
      {3, kSomeTime + 240 + 3650, "9000", 'Y', "360000", "3", "3600sec : 1.0h"},
      // A shutdown delay of more than a year gives 600 s whatever the power-on time.
      {2, kSomeTime + 50000000, "3200000000", 'N', "60000", "2", "600sec : 0.1h"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.ontime);
    sim_->ClearErrors("ups");
    sim_->Set("ups", mib::upsAdvConfigShutoffDelay, 't',
              row.shutoff_delay ? row.shutoff_delay : "0");
    if (row.shutoff_delay == nullptr) {
      sim_->InjectError("ups", mib::upsAdvConfigShutoffDelay, Op::kGet, 2);
      sim_->InjectError("ups", mib::upsAdvConfigLowBatteryRunTime, Op::kGet, 5);
    }
    DilayTimeCut[0] = row.cut;
    EXPECT_EQ(SetsOf([&] { return SetUpsSleepOffbySnmp(ip(), row.mode, row.ontime); }, 1),
              (std::vector<Set>{{mib::upsAdvConfigUpsSleepTime, row.sleep_time, "noError"},
                                {mib::upsAdvControlUpsSleep, row.code, "noError"}}));
    EXPECT_TRUE(Logged(std::string(" [") + Ip("ups") + "]sleep time is " + row.hours));
  }
}

// Each order: what reaches the card, the pauses between and the result; bad addresses give 0
// and no order.
TEST_F(PowerTest, EachOrderSendsItsRequestsOnItsSchedule) {
  const std::string off = mib::upsAdvControlUpsOff, sleep = mib::upsAdvControlUpsSleep,
                    time = mib::upsAdvConfigUpsSleepTime, delay = mib::upsAdvConfigShutoffDelay;
  struct Row {
    const char *what;
    int count;
    std::function<void()> prepare;
    std::function<BOOL()> order;
    BOOL result;
    const char *status;  // upsBasicOutputStatus afterwards
    std::size_t pauses;
    std::vector<Set> sets;
  };
  std::string long_ip(40, '7'), no_card = "127.0.0.2";
  auto none = [] {};
  // clang-format off
  const Row rows[] = {
    {"off", 3, none, [&] { return SetUpsOffbySnmp(ip(), 2); }, 1, "7", 0, {{off, "2", "noError"}}},
    {"off, unknown code", 3, none, [&] { return SetUpsOffbySnmp(ip(), 9); }, 0, "2", 2,
     {{off, "9", "badValue"}, {off, "9", "badValue"}, {off, "9", "badValue"}}},
    {"sleep refused", 2, [&] { sim_->InjectError("ups", sleep, Op::kSet, 5); },
     [&] { return SetUpsSleepOffbySnmp(ip(), 1002, 0); }, 0, "2", 2,
     {{time, "0", "noError"}, {sleep, "2", "genErr"}, {sleep, "2", "genErr"}}},
    {"power fail on battery", 3, [&] { sim_->PowerFailure("ups", true); },
     [&] { return SetUpsPowerFailOffbySnmp(ip()); }, 1, "11", 1,
     {{time, "0", "noError"}, {mib::upsBasicControlConserveBattery, "2", "noError"}}},
    // On line the card answers badValue; every attempt of the sleep order is sent (a sleep of
    // 0 s ends at once).
    {"power fail on line", 2, none, [&] { return SetUpsPowerFailOffbySnmp(ip()); }, 1, "2", 3,
     {{time, "0", "noError"}, {mib::upsBasicControlConserveBattery, "2", "badValue"},
      {sleep, "3", "noError"}, {sleep, "3", "noError"}}},
    // Past what TimeTicks carry: the longest whole-second value, never a wrapped short one.
    {"longest delay", 3, none, [&] { return SetUpsShutdownDelaybySnmp(ip(), 50000000); }, 1, "2",
     0, {{delay, "4294967200", "noError"}}},
    {"sync", 3, none, [&] { return SetUpsSyncActivebySnmp(ip(), 1); }, 1, "2", 0,
     {{mib::upsSCGActiveMembershipStatus, "1", "noError"}}},
    {"null address", 1, none, [&] { return SetUpsOnbySnmp(nullptr, 2); }, 0, "2", 0, {}},
    {"address too long", 1, none, [&] { return SetUpsPowerFailOffbySnmp(long_ip.data()); }, 0, "2",
     2, {}},
    // Nothing answers there: no sleep order follows.
    {"no card", 0, none, [&] { return SetUpsPowerFailOffbySnmp(no_card.data()); }, 0, "2", 1, {}},
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    sim_->PowerFailure("ups", false);
    sim_->ClearErrors("ups");
    sim_->Set("ups", mib::upsBasicOutputStatus, 'i', "2");
    row.prepare();
    OffRequestCount = row.count;
    EXPECT_EQ(SetsOf(row.order, row.result), row.sets);
    EXPECT_EQ(sim_->Value("ups", mib::upsBasicOutputStatus), row.status);
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row.pauses, 4000000));
  }
  EXPECT_TRUE(Logged(" powerfail retrun sleep time set error (-2146435071)"));
}

using ShutdownTest = CardTest;
constexpr unsigned long kSecond = 1000000, kHalf = 500000;
constexpr const char *kCards[] = {"a", "b", "c", "d", "e"};
constexpr const char *kTimeOnBattery = mib::upsBasicBatteryTimeOnBattery;

TEST_F(ShutdownTest, EveryCardIsServedByModeOffModeAndItsState) {
  StartCards({"a", "b", "c", "d", "e"});
  for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  SetRetryMax = 2, PowerFailWait = 60;
  FakeClock clock{kSomeTime};
  // a and e 120 s on battery, b on line, c off and out of service, d 30 s on battery. e's words
  // still say "noticed": only the refresh shows that its wait ran out.
  auto reset = [&] {
    const int words[5][2] = {{0x18, 0}, {0, 0}, {0x18, 0x80}, {0x10, 0}, {0x10, 0}};
    for (int i = 0; i < 5; ++i) {
      const char *card = kCards[i];
      std::strcpy(UpsIp[i], Ip(card)), ups_X1[i][0] = words[i][0], ups_X1[i][1] = words[i][1];
      sim_->Silent(card, false), sim_->ClearErrors(card), sim_->PowerFailure(card, false);
      sim_->Set(card, mib::upsBasicOutputStatus, 'i', i == 2 ? "7" : "2");
      if (i != 1) sim_->PowerFailure(card, i != 2);
      sim_->Set(card, kTimeOnBattery, 't', i == 3 ? "3000" : "12000");
    }
    WatchingCounter = 4, clock.sleeps.clear();  // 4: a watch pass writing no report
    upsAdvConfigMinReturnCapacity = 90;
  };
  struct Row {
    const char *what, *data, *off_mode;
    std::function<void()> prepare;
    const char *outcome;  // " card:object=value[/answer]" for each SET | each output status
    std::vector<unsigned long> pauses;
    DWORD result;
  };
  // clang-format off
  const std::map<std::string, std::string> names = {
    {mib::upsAdvControlUpsOff, "off"}, {mib::upsAdvControlUpsSleep, "sleep"},
    {mib::upsBasicControlConserveBattery, "conserve"}, {mib::upsAdvConfigUpsSleepTime, "time"}};
  auto refuse = [&](auto card, auto oid) { sim_->InjectError(card, oid, upssim::Op::kSet, 3); };
  auto within_wait = [&](auto card) { sim_->Set(card, kTimeOnBattery, 't', "3000"); };
  const Row rows[] = {
    {"off", nullptr, "N", [&] { refuse("e", mib::upsAdvControlUpsOff); },
     " a:off=3 b:off=3 d:off=3 e:off=3/badValue e:off=3/badValue | a7 b7 c7 d7 e3",
     {kSecond, kSecond, kSecond}, UPS_E_INVALID_PARAM},
    // The sleep-time retry leaves the shared counter at 1: d's refused sleep is sent once.
    {"sleep", "", "S", [&] { sim_->Silent("b", true), refuse("a", mib::upsAdvConfigUpsSleepTime),
                             refuse("d", mib::upsAdvControlUpsSleep); },
     " a:time=0/badValue a:time=0/badValue a:conserve=2 b:time=0/silent b:sleep=3/silent"
     " d:time=0 d:sleep=3/badValue e:time=0 e:conserve=2 | a11 b2 c7 d3 e11",
     {kSecond, kSecond, kHalf}, 0},
    {"no wait over but c's", "", "S", [&] { within_wait("a"), within_wait("e"); },
     " | a3 b2 c7 d3 e3", {}, 0},
    {"capacity 200: off, not sleep", "", "S", [] { upsAdvConfigMinReturnCapacity = 200; },
     " a:off=3 b:off=3 d:off=3 e:off=3 | a7 b7 c7 d7 e7", {kSecond, kHalf, kHalf, kSecond}, 0},
    // c too: these modes do not look at the status words.
    {"mode 3", "3", "S", [] {}, " | a3 b2 c7 d3 e3", {}, UPS_E_NO_SERVER},
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    reset(), row.prepare();
    UpsOffMode[0] = *row.off_mode;
    const std::size_t first = sim_->Journal().size();
    EXPECT_EQ(KavPcShutDown(const_cast<char *>(row.data), nullptr), row.result);
    std::string outcome;
    for (const upssim::JournalEntry &set : Applied(first)) {
      outcome += " " + set.card + ":" + names.at(set.oid) + "=" + set.value;
      if (set.answer != "noError") outcome += "/" + set.answer;
    }
    outcome += " |";
    for (auto card : kCards) outcome += " " + (card + sim_->Value(card, mib::upsBasicOutputStatus));
    EXPECT_EQ(outcome, row.outcome);
    EXPECT_EQ(clock.sleeps, row.pauses);
  }
}

}  // namespace
}  // namespace snmplumi::testing
