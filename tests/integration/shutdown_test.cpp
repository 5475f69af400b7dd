#include <functional>
#include <map>

#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

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
    WatchingCounter = 4, clock.sleeps.clear(), ClearLog();  // 4: a watch pass writing no report
    upsAdvConfigMinReturnCapacity = 90;
  };
  struct Row {
    const char *what, *data, *off_mode;
    std::function<void()> prepare;
    const char *outcome;  // " card:object=value[/answer]" for each SET | each output status
    std::vector<unsigned long> pauses;
    DWORD result;
    long var_type_errors;
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
     {kSecond, kSecond, kSecond}, UPS_E_INVALID_PARAM, 0},
    // The sleep-time retry leaves the shared counter at 1: d's refused sleep is sent once.
    {"sleep", "", "S", [&] { sim_->Silent("b", true), refuse("a", mib::upsAdvConfigUpsSleepTime),
                             refuse("d", mib::upsAdvControlUpsSleep); },
     " a:time=0/badValue a:time=0/badValue a:conserve=2 b:time=0/silent b:sleep=3/silent"
     " d:time=0 d:sleep=3/badValue e:time=0 e:conserve=2 | a11 b2 c7 d3 e11",
     {kSecond, kSecond, kHalf}, 0, 0},
    {"no wait over but c's", "", "S", [&] { within_wait("a"), within_wait("e"); },
     " | a3 b2 c7 d3 e3", {}, 0, 0},
    {"capacity 200: off, not sleep", "", "S", [] { upsAdvConfigMinReturnCapacity = 200; },
     " a:off=3 b:off=3 d:off=3 e:off=3 | a7 b7 c7 d7 e7", {kSecond, kHalf, kHalf, kSecond}, 0, 0},
    // c too: these modes do not look at the status words.
    {"mode 3", "3", "S", [] {}, " | a3 b2 c7 d3 e3", {}, UPS_E_NO_SERVER, 5},
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
    EXPECT_EQ(Logged("  snmp_add_var error! <SNMPERR_VAR_TYPE>", -61), row.var_type_errors);
  }
}

}  // namespace
}  // namespace snmplumi::testing
