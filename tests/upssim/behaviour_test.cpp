// What a card does: the UPS behind it follows power orders, power failures and self-tests; and the
// faults a test asks it to show: lost requests, delays, hostile values, values of any type and
// length; and what the control channel refuses.
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

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
// read back as their idle value 1; time on battery counts only on battery.
TEST_F(BehaviourTest, OrdersAndPowerFailuresMoveTheOutputThroughItsStates) {
  struct Step {
    const char *object, *code;
    long answer;
    std::string output;
  };
  const std::string kOnLine = "2 100 23 000101", kOnBattery = "3 100 23 010001",
                    kOff = "7 0 0 000001", kSleeping = "11 0 0 000001";
  const char *off = mib::upsAdvControlUpsOff, *on = mib::upsAdvControlTurnOnUPS,
             *sleep = mib::upsAdvControlUpsSleep, *conserve = mib::upsBasicControlConserveBattery;
  const Step steps[] = {
      {off, "2", SNMP_ERR_NOERROR, kOff},  // turnUpsOff
      {on, "2", SNMP_ERR_NOERROR, kOnLine},
      {off, "3", SNMP_ERR_NOERROR, kOff},  // turnUpsOffGracefully
      {on, "2", SNMP_ERR_NOERROR, kOnLine},
      {off, "1", SNMP_ERR_NOERROR, kOnLine},        // noTurnUpsOff does nothing
      {conserve, "2", SNMP_ERR_BADVALUE, kOnLine},  // only on battery
      {nullptr, "power ups0 fail", 0, kOnBattery},
      {conserve, "2", SNMP_ERR_NOERROR, kSleeping},
      {nullptr, "power ups0 restore", 0, kOnLine},
      {nullptr, "power ups0 fail", 0, kOnBattery},
      {sleep, "2", SNMP_ERR_NOERROR, kSleeping},
      {on, "2", SNMP_ERR_NOERROR, kOnBattery},  // still without mains
      {sleep, "3", SNMP_ERR_NOERROR, kSleeping},
      {nullptr, "power ups0 restore", 0, kOnLine},
  };
  for (const Step &step : steps) {
    SCOPED_TRACE(std::string(step.object ? step.object : "") + " " + step.code);
    if (step.object == nullptr) {
      sim_->Command(step.code);
    } else {
      ASSERT_EQ(Set(ups0_, {{step.object, 'i', step.code}}).error_status, step.answer);
      EXPECT_EQ(Read(ups0_, step.object).number, 1);
    }
    EXPECT_EQ(Output(ups0_), step.output);
    long on_battery = Read(ups0_, mib::upsBasicBatteryTimeOnBattery).number;
    EXPECT_TRUE(step.output == kOnBattery || on_battery == 0) << on_battery;
  }
}

// Timed changes follow real time, all during one wait: ups0 sleeps for its sleep time, ups1
// counts time on battery through a power failure, ups2 runs a short self-test on battery.
TEST_F(BehaviourTest, SleepTimeSelfTestAndTimeOnBatteryFollowRealTime) {
  const char *on_battery = mib::upsBasicBatteryTimeOnBattery,
             *cause = mib::upsAdvInputLineFailCause;
  ASSERT_EQ(Set(ups0_, {{mib::upsAdvConfigUpsSleepTime, 't', "100"},
                        {mib::upsAdvControlUpsSleep, 'i', "3"}})
                .error_status,
            SNMP_ERR_NOERROR);
  EXPECT_EQ(Output(ups0_), "5 0 0 000001");  // timedSleeping
  sim_->PowerFailure("ups1", true);
  EXPECT_EQ(Numbers(ups1_, {cause, mib::upsAdvInputLineVoltage}), "4 0 ");  // blackout
  sim_->SelfTest("ups2", std::chrono::seconds(1));
  EXPECT_EQ(Numbers(ups2_, {mib::upsBasicOutputStatus}), "3 ");
  long first = Read(ups1_, on_battery).number;
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_NEAR(Read(ups1_, on_battery).number - first, 220, 80);  // hundredths of a second
  EXPECT_EQ(Output(ups0_), "2 100 23 000101");
  EXPECT_EQ(Numbers(ups2_, {mib::upsBasicOutputStatus, on_battery, cause}), "2 0 9 ");  // selfTest

  sim_->PowerFailure("ups1", false);
  EXPECT_EQ(Numbers(ups1_, {on_battery, mib::upsAdvInputLineVoltage}), "0 100 ");
  sim_->PowerFailure("ups1", true, 3);
  EXPECT_EQ(Numbers(ups1_, {cause}), "3 ");  // brownout
}

// After the set-up, GETs of `card` give `pattern`: 'a' answered, 'd' lost; 'w' is a GET with a
// wrong community, never answered and never counted.
TEST_F(BehaviourTest, DropsLoseExactlyTheCountedRequests) {
  struct Case {
    std::vector<std::string> setup;
    const char *card, *pattern;
  };
  const Case cases[] = {
      {{"drop ups0 2"}, "ups0", "ddaa"},
      {{"drop ups0 2", "drop ups0 0"}, "ups0", "aa"},
      {{"drop ups0 every 2"}, "ups0", "adadad"},
      {{"drop ups0 every 3"}, "ups0", "aadaad"},
      {{"drop ups0 every 2", "drop ups0 every 0"}, "ups0", "aaa"},
      {{"drop ups0 3", "drop ups0 every 2", "drop ups0 off"}, "ups0", "aaa"},
      {{"drop ups0 2", "drop ups0 every 2"}, "ups0", "ddad"},  // each request counts for both
      {{"drop ups0 every 2"}, "ups0", "awdwa"},
      {{"drop * every 2"}, "ups1", "adad"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.setup.back());
    sim_->Command("drop * off");
    for (const std::string &line : c.setup) sim_->Command(line);
    Target target = At(c.card, kNoAnswerWait);
    std::string seen;
    for (char step : std::string(c.pattern)) {
      target.community = step == 'w' ? "guess" : "public";
      bool answered = Get(target, {mib::upsCommStatus}).answered;
      seen += step == 'w' ? (answered ? '!' : 'w') : (answered ? 'a' : 'd');
    }
    EXPECT_EQ(seen, c.pattern);
  }
  // A lost SET is not carried out; the journal shows that it arrived.
  sim_->Drop("ups0", 1);
  EXPECT_FALSE(Set(At("ups0", kNoAnswerWait), {{mib::upsAdvControlUpsOff, 'i', "2"}}).answered);
  EXPECT_EQ(sim_->Value("ups0", mib::upsBasicOutputStatus), "2");
  EXPECT_EQ(sim_->Journal().back().answer, "dropped");
}

TEST_F(BehaviourTest, DelayedCardAnswersLateWithoutHoldingUpOthers) {
  sim_->Delay("ups0", milliseconds(600));
  auto start = std::chrono::steady_clock::now();
  auto slow = std::async(std::launch::async, [&] { return Get(ups0_, {mib::upsCommStatus}); });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(Read(ups1_, mib::upsCommStatus).number, 1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(450));
  EXPECT_TRUE(slow.get().answered);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(600));
}

TEST_F(BehaviourTest, HostileCardAnswersEveryKindOfBadValueTheSameForTheSameSeed) {
  auto answers = [&] {  // type and string length of each answer, from the seed on
    sim_->Command("hostile ups0 7");
    std::vector<std::pair<int, std::size_t>> seen;
    for (int i = 0; i < 200; ++i) {
      Answer answer =
          Get(ups0_, {i % 2 ? mib::upsBasicOutputStatus : mib::upsAdvIdentSerialNumber});
      EXPECT_TRUE(answer.answered && answer.error_status == 0);
      for (const Variable &got : answer.variables) seen.emplace_back(got.type, got.octets.size());
    }
    return seen;
  };
  const auto first = answers();
  EXPECT_EQ(answers(), first) << "the same seed gives the same answers";
  std::set<int> types;
  std::set<std::size_t> lengths;  // of the strings
  for (auto [type, length] : first) {
    types.insert(type);
    if (type == ASN_OCTET_STR) lengths.insert(length);
  }
  EXPECT_EQ(types, (std::set<int>{ASN_INTEGER, ASN_OCTET_STR, ASN_NULL, ASN_OBJECT_ID,
                                  ASN_IPADDRESS, ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS, ASN_OPAQUE,
                                  ASN_COUNTER64, ASN_UINTEGER, SNMP_NOSUCHOBJECT,
                                  SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW}));
  EXPECT_TRUE(lengths.contains(0) && *lengths.rbegin() >= 1024);
  sim_->Command("hostile ups0 off");
  EXPECT_THROW(sim_->Command("hostile ups0 -1"), std::runtime_error);
  EXPECT_EQ(Read(ups0_, mib::upsAdvIdentSerialNumber).type, ASN_OCTET_STR);
}

// Any object, any type, escapes kept; an oversize string is its value then X to the asked length,
// tooBig past one datagram, itself again at 0.
TEST_F(BehaviourTest, ControlGivesAnyObjectAnyTypeAndOversizeStrings) {
  sim_->Set("ups0", mib::upsAdvBatteryCapacity, 's', "full\tbut odd\\");
  Variable capacity = Read(ups0_, mib::upsAdvBatteryCapacity);
  EXPECT_EQ(capacity.type, ASN_OCTET_STR);
  EXPECT_EQ(capacity.octets, "full\tbut odd\\");
  EXPECT_EQ(sim_->Value("ups0", mib::upsAdvBatteryCapacity), capacity.octets);
  sim_->Set("ups0", mib::upsAdvConfigUpsSleepTime, '=', "4242");
  EXPECT_EQ(Read(ups0_, mib::upsAdvConfigUpsSleepTime).type, ASN_TIMETICKS);
  sim_->Set("ups0", mib::upsBasicBatteryTimeOnBattery, 't', "20000");  // frozen while on line
  EXPECT_EQ(Read(ups0_, mib::upsBasicBatteryTimeOnBattery).number, 20000);
  const char *serial_number = mib::upsAdvIdentSerialNumber;
  std::string serial = Read(ups0_, serial_number).octets;
  sim_->Oversize("ups0", serial_number, 300);
  EXPECT_EQ(Read(ups0_, serial_number).octets, serial + std::string(300 - serial.size(), 'X'));
  sim_->Oversize("ups0", serial_number, 65535);
  EXPECT_EQ(Get(ups0_, {serial_number}).error_status, SNMP_ERR_TOOBIG);
  sim_->Oversize("ups0", serial_number, 0);
  EXPECT_EQ(Read(ups0_, serial_number).octets, serial);
  EXPECT_THROW(sim_->Oversize("ups0", mib::upsCommStatus, 300), std::runtime_error);  // no string
}

TEST_F(BehaviourTest, MalformedControlLinesGetOneErrorLineAndChangeNothing) {
  for (const char *line :
       {"set ups0", "set ups0 upsAdvOutputLoad q 1", "set ups0 upsBasicOutputStatus i many",
        "get ups9 upsCommStatus", "get * upsCommStatus", "power ups0 explode", "power ups0 fail 99",
        "set ups0 upsNoSuchObject i 1", "delay ups0 99999999999999999999", "silent ups0 maybe",
        "error ups0 upsCommStatus put genErr", "error ups0 upsCommStatus get 19", "selftest ups0 x",
        "drop ups0", "drop ups0 -1", "drop ups0 every 1", "drop ups0 sometimes",
        "oversize ups0 upsBasicIdentModel 1 2", "\x01\x02\xff"}) {
    EXPECT_THROW(sim_->Command(line), std::runtime_error) << line;
  }
  EXPECT_THROW(sim_->Command("set ups0 upsBasicIdentName s \\q"), std::runtime_error);  // escape
  EXPECT_THROW(sim_->Command(std::string(70000, 'x')), std::runtime_error);             // too long
  EXPECT_NE(sim_->Command("show ups0").find(" status=2(onLine) power=ok "), std::string::npos);
  EXPECT_EQ(sim_->Value("ups0", "upsAdvOutputLoad"), "23");
}

}  // namespace
}  // namespace upssim::testing
