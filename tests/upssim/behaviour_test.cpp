// The UPS behind a card, the faults a test asks it to show, and what the control channel refuses.

#include <future>
#include <set>
#include <thread>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using BehaviourTest = CardsTest;
using std::chrono::milliseconds;

// The numbers these objects read, each followed by a blank.
std::string Numbers(const Target &card, std::initializer_list<const char *> objects) {
  std::string text;
  for (const char *object : objects) text += std::to_string(Read(card, object).number) + " ";
  return text;
}

// Output status, voltage and load, then the first six state flags.
std::string Output(const Target &card) {
  return Numbers(card,
                 {mib::upsBasicOutputStatus, mib::upsAdvOutputVoltage, mib::upsAdvOutputLoad}) +
         Read(card, mib::upsBasicStateOutputState).octets.substr(0, 6);
}

// Each step: an order over SNMP (object, code) or a control line; then what the card shows. Orders
// read back as their idle value 1; time on battery counts only on battery. The library's power
// and shutdown tests give the other orders.
TEST_F(BehaviourTest, OrdersAndPowerFailuresMoveTheOutputThroughItsStates) {
  const std::string kOnLine = "2 100 23 000101", kOnBattery = "3 100 23 010001";
  const char *on = mib::upsAdvControlTurnOnUPS, *sleep = mib::upsAdvControlUpsSleep;
  const std::tuple<const char *, const char *, std::string> steps[] = {
      {mib::upsAdvControlUpsOff, "1", kOnLine},  // noTurnUpsOff does nothing
      {nullptr, "power ups0 fail", kOnBattery},
      {sleep, "2", "11 0 0 000001"},  // until the mains return
      {on, "2", kOnBattery},          // still without mains
      {sleep, "2", "11 0 0 000001"},
      {nullptr, "power ups0 restore", kOnLine},
  };
  for (const auto &[object, code, output] : steps) {
    SCOPED_TRACE(std::string(object ? object : "") + " " + code);
    if (object == nullptr) {
      sim_->Command(code);
    } else {
      ASSERT_EQ(Set(ups0_, {{object, 'i', code}}).error_status, SNMP_ERR_NOERROR);
      EXPECT_EQ(Read(ups0_, object).number, 1);
    }
    EXPECT_EQ(Output(ups0_), output);
    long on_battery = Read(ups0_, mib::upsBasicBatteryTimeOnBattery).number;
    EXPECT_TRUE(output == kOnBattery || on_battery == 0) << on_battery;
  }
}

// Timed changes follow real time, all during one wait: ups0 sleeps for its sleep time and answers
// late without holding up the others, ups1 counts time on battery through a power failure, ups2
// runs a short self-test on battery.
TEST_F(BehaviourTest, SleepTimeSelfTestTimeOnBatteryAndDelaysFollowRealTime) {
  const char *on_battery = mib::upsBasicBatteryTimeOnBattery,
             *cause = mib::upsAdvInputLineFailCause;
  ASSERT_EQ(Set(ups0_, {{mib::upsAdvConfigUpsSleepTime, 't', "100"},
                        {mib::upsAdvControlUpsSleep, 'i', "3"}})
                .error_status,
            SNMP_ERR_NOERROR);
  EXPECT_EQ(Output(ups0_), "5 0 0 000001");  // timedSleeping
  sim_->Delay("ups0", milliseconds(600));
  auto start = std::chrono::steady_clock::now();
  auto late = std::async(std::launch::async, [&] {
    return Get(ups0_, {mib::upsCommStatus}).answered &&
           std::chrono::steady_clock::now() - start >= milliseconds(600);
  });
  sim_->PowerFailure("ups1", true);
  EXPECT_EQ(Numbers(ups1_, {cause, mib::upsAdvInputLineVoltage}), "4 0 ");  // blackout
  sim_->Command("selftest ups2 1");
  EXPECT_EQ(Numbers(ups2_, {mib::upsBasicOutputStatus}), "3 ");
  long first = Read(ups1_, on_battery).number;
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(450));
  EXPECT_TRUE(late.get());
  sim_->Delay("ups0", milliseconds(0));
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_NEAR(Read(ups1_, on_battery).number - first, 220, 80);  // hundredths of a second
  EXPECT_EQ(Output(ups0_), "2 100 23 000101");
  EXPECT_EQ(Numbers(ups2_, {mib::upsBasicOutputStatus, on_battery, cause}), "2 0 9 ");  // selfTest

  sim_->PowerFailure("ups1", false);
  EXPECT_EQ(Numbers(ups1_, {on_battery, mib::upsAdvInputLineVoltage}), "0 100 ");
}

// After the set-up, GETs give `pattern`: 'a' answered, 'd' lost; 'w' is a GET with a wrong
// community, never answered and never counted. The fixture's lossy runs drop at every card.
TEST_F(BehaviourTest, DropsLoseExactlyTheCountedRequests) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"drop ups0 2"}, "ddaa"},
      {{"drop ups0 2", "drop ups0 0"}, "aa"},
      {{"drop ups0 every 2"}, "awdwad"},
      {{"drop ups0 every 2", "drop ups0 every 0"}, "aaa"},
      {{"drop ups0 3", "drop ups0 every 2", "drop ups0 off"}, "aaa"},
      {{"drop ups0 1", "drop ups0 every 2"}, "ddad"},  // each request counts for both
  };
  Target target = At("ups0", kNoAnswerWait);
  for (const auto &[setup, pattern] : cases) {
    SCOPED_TRACE(setup.back());
    sim_->Command("drop * off");
    for (const std::string &line : setup) sim_->Command(line);
    std::string seen;
    for (char step : pattern) {
      target.community = step == 'w' ? "guess" : "public";
      bool answered = Get(target, {mib::upsCommStatus}).answered;
      seen += step == 'w' ? (answered ? '!' : 'w') : (answered ? 'a' : 'd');
    }
    EXPECT_EQ(seen, pattern);
  }
  // A lost SET is not carried out; the journal shows that it arrived.
  sim_->Drop("ups0", 1);
  EXPECT_FALSE(Set(target, {{mib::upsAdvControlUpsOff, 'i', "2"}}).answered);
  EXPECT_EQ(sim_->Value("ups0", mib::upsBasicOutputStatus), "2");
  EXPECT_EQ(sim_->Journal().back().answer, "dropped");
}

TEST_F(BehaviourTest, HostileCardAnswersEveryKindOfBadValueTheSameForTheSameSeed) {
  std::vector<std::pair<int, std::size_t>> runs[2];  // type and string length of each answer
  for (auto &seen : runs) {
    sim_->Command("hostile ups0 7");
    for (int i = 0; i < 200; ++i) {
      Answer answer =
          Get(ups0_, {i % 2 ? mib::upsBasicOutputStatus : mib::upsAdvIdentSerialNumber});
      EXPECT_TRUE(answer.answered && answer.error_status == 0);
      for (const Variable &got : answer.variables) seen.emplace_back(got.type, got.octets.size());
    }
  }
  EXPECT_EQ(runs[1], runs[0]) << "the same seed gives the same answers";
  std::set<int> types;
  std::set<std::size_t> lengths;  // of the strings
  for (auto [type, length] : runs[0]) {
    types.insert(type);
    if (type == ASN_OCTET_STR) lengths.insert(length);
  }
  EXPECT_EQ(types, (std::set<int>{ASN_INTEGER, ASN_OCTET_STR, ASN_NULL, ASN_OBJECT_ID,
                                  ASN_IPADDRESS, ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS, ASN_OPAQUE,
                                  ASN_COUNTER64, ASN_UINTEGER, SNMP_NOSUCHOBJECT,
                                  SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW}));
  EXPECT_TRUE(lengths.contains(0) && *lengths.rbegin() >= 1024);
  sim_->Command("hostile ups0 off");
  EXPECT_EQ(Read(ups0_, mib::upsAdvIdentSerialNumber).type, ASN_OCTET_STR);
}

// Any object, any type, escapes kept ('=' and shorter oversize strings are in the library's
// tests); an oversize string is tooBig past one datagram and itself again at 0.
TEST_F(BehaviourTest, ControlGivesAnyObjectAnyTypeAndOversizeStrings) {
  sim_->Set("ups0", mib::upsAdvBatteryCapacity, 's', "full\tbut odd\\");
  Variable capacity = Read(ups0_, mib::upsAdvBatteryCapacity);
  EXPECT_EQ(std::pair(capacity.type, capacity.octets),
            std::pair(int{ASN_OCTET_STR}, std::string("full\tbut odd\\")));
  sim_->Set("ups0", mib::upsBasicBatteryTimeOnBattery, 't', "20000");  // frozen while on line
  EXPECT_EQ(Read(ups0_, mib::upsBasicBatteryTimeOnBattery).number, 20000);
  const char *serial_number = mib::upsAdvIdentSerialNumber;
  std::string serial = Read(ups0_, serial_number).octets;
  sim_->Oversize("ups0", serial_number, 65535);
  EXPECT_EQ(Get(ups0_, {serial_number}).error_status, SNMP_ERR_TOOBIG);
  sim_->Oversize("ups0", serial_number, 0);
  EXPECT_EQ(Read(ups0_, serial_number).octets, serial);
}

TEST_F(BehaviourTest, MalformedControlLinesGetOneErrorLineAndChangeNothing) {
  for (const char *line :
       {"set ups0", "set ups0 upsAdvOutputLoad q 1", "set ups0 upsBasicOutputStatus i many",
        "get ups9 upsCommStatus", "get * upsCommStatus", "power ups0 explode", "power ups0 fail 99",
        "set ups0 upsNoSuchObject i 1", "delay ups0 99999999999999999999", "silent ups0 maybe",
        "error ups0 upsCommStatus put genErr", "error ups0 upsCommStatus get 19", "selftest ups0 x",
        "set ups0 upsBasicIdentName s \\q", "drop ups0 -1", "drop ups0 every 1",
        "oversize ups0 upsBasicIdentModel 1 2", "oversize ups0 upsCommStatus 300",
        "hostile ups0 -1"}) {
    EXPECT_THROW(sim_->Command(line), std::runtime_error) << line;
  }
  EXPECT_THROW(sim_->Command(std::string(70000, 'x')), std::runtime_error);  // too long
  EXPECT_NE(sim_->Command("show ups0").find(" status=2(onLine) power=ok "), std::string::npos);
  EXPECT_EQ(sim_->Value("ups0", "upsAdvOutputLoad"), "23");
}

}  // namespace
}  // namespace upssim::testing
