// Faults a test can ask a card to show: injected error statuses, silence, lost requests, delays,
// oversize strings, and values of a type the MIB does not give.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <cstdint>
#include <future>
#include <set>
#include <thread>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class FaultsTest : public SimulatorTest {
 protected:
  FaultsTest() : SimulatorTest(StartCards(2)) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
  Target ups1_ = CardTarget(*simulator_, "ups1");
};

TEST_F(FaultsTest, InjectedErrorsHitOnlyTheirObjectOperationAndCard) {
  for (int status : {SNMP_ERR_NOSUCHNAME, SNMP_ERR_BADVALUE, SNMP_ERR_READONLY, SNMP_ERR_GENERR}) {
    simulator_->InjectError("ups0", oid::kCommStatus, Op::kGet, status);
    simulator_->InjectError("ups0", oid::kConfigAlarm, Op::kSet, status);
    Answer get = Get(ups0_, {oid::kModel, oid::kCommStatus});
    EXPECT_EQ(get.error_status, status);
    EXPECT_EQ(get.error_index, 2);
    Answer set = Set(ups0_, {{oid::kConfigAlarm, 'i', "3"}});
    EXPECT_EQ(set.error_status, status);
    EXPECT_EQ(set.error_index, 1);
    EXPECT_EQ(Read(ups0_, oid::kConfigAlarm).number, 1);  // a GET of it still works
    EXPECT_EQ(Set(ups0_, {{oid::kSensitivity, 'i', "2"}}).error_status, SNMP_ERR_NOERROR);
    EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
  }
  simulator_->ClearErrors("ups0");
  EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);
  EXPECT_EQ(Set(ups0_, {{oid::kConfigAlarm, 'i', "3"}}).error_status, SNMP_ERR_NOERROR);
  std::string answers;
  for (const JournalEntry &entry : simulator_->Journal()) answers += entry.answer + " ";
  EXPECT_EQ(answers,
            "noSuchName noError badValue noError readOnly noError genErr noError noError ");
  EXPECT_THROW(simulator_->InjectError("ups0", oid::kCommStatus, Op::kGet, 19), std::runtime_error);
}

TEST_F(FaultsTest, SilentOrDroppingCardNeitherAnswersNorObeysButJournalsTheSet) {
  ups0_.timeout = kNoAnswerWait;
  for (auto [fault, answer] : {std::pair{"silent ups0 on", "silent"}, {"drop ups0 1", "dropped"}}) {
    SCOPED_TRACE(fault);
    simulator_->Command(fault);
    EXPECT_FALSE(Set(ups0_, {{oid::kUpsOff, 'i', "2"}, {oid::kConfigAlarm, 'i', "3"}}).answered);
    EXPECT_EQ(simulator_->Value("ups0", oid::kOutputStatus), "2");
    EXPECT_EQ(simulator_->Value("ups0", oid::kConfigAlarm), "1");
    std::vector<JournalEntry> journal = simulator_->Journal();
    ASSERT_GE(journal.size(), 2u);
    EXPECT_EQ(journal.back().answer, answer);
    EXPECT_EQ(journal[journal.size() - 2].answer, answer);
    EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
    simulator_->Silent("ups0", false);
    EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);  // a drop of 1 loses one request only
  }
}

// After the set-up, GETs of `card` give `pattern`: 'a' answered, 'd' dropped; 'w' is a GET with a
// wrong community, never answered and never counted.
TEST_F(FaultsTest, DropsLoseExactlyTheCountedRequests) {
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
    simulator_->Command("drop * off");
    for (const std::string &line : c.setup) simulator_->Command(line);
    Target target{simulator_->Address(c.card), simulator_->Port(), "public", 0, kNoAnswerWait};
    std::string seen;
    for (char step : std::string(c.pattern)) {
      target.community = step == 'w' ? "guess" : "public";
      bool answered = Get(target, {oid::kCommStatus}).answered;
      seen += step == 'w' ? (answered ? '!' : 'w') : (answered ? 'a' : 'd');
    }
    EXPECT_EQ(seen, c.pattern);
  }
}

TEST_F(FaultsTest, DelayedCardAnswersLateWithoutHoldingUpOthers) {
  simulator_->Delay("ups0", milliseconds(600));
  Clock::time_point start = Clock::now();
  auto slow = std::async(std::launch::async, [&] { return Get(ups0_, {oid::kCommStatus}); });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
  EXPECT_LT(Clock::now() - start, milliseconds(450));
  EXPECT_TRUE(slow.get().answered);
  EXPECT_GE(Clock::now() - start, milliseconds(600));
}

TEST_F(FaultsTest, OversizeStringHasExactlyTheAskedLength) {
  std::string serial = Read(ups0_, oid::kSerialNumber).octets;
  simulator_->Oversize("ups0", oid::kSerialNumber, 300);
  EXPECT_EQ(Read(ups0_, oid::kSerialNumber).octets, serial + std::string(300 - serial.size(), 'X'));
  simulator_->Oversize("ups0", oid::kSerialNumber, 65535);  // cannot fit one datagram
  EXPECT_EQ(Get(ups0_, {oid::kSerialNumber}).error_status, SNMP_ERR_TOOBIG);
  simulator_->Oversize("ups0", oid::kSerialNumber, 0);
  EXPECT_EQ(Read(ups0_, oid::kSerialNumber).octets, serial);
  EXPECT_THROW(simulator_->Oversize("ups0", oid::kCommStatus, 300), std::runtime_error);
}

TEST_F(FaultsTest, HostileCardAnswersEveryKindOfBadValueTheSameForTheSameSeed) {
  auto answers = [&] {
    std::vector<std::pair<int, std::size_t>> seen;  // type and string length of each answer
    for (int i = 0; i < 200; ++i) {
      Answer answer = Get(ups0_, {i % 2 == 0 ? oid::kSerialNumber : oid::kOutputStatus});
      EXPECT_TRUE(answer.answered && answer.error_status == 0);
      if (answer.answered) seen.emplace_back(answer.Only().type, answer.Only().octets.size());
    }
    return seen;
  };
  simulator_->Command("hostile ups0 7");
  const auto first = answers();
  std::set<int> types;
  std::size_t longest = 0, shortest = SIZE_MAX;
  for (auto [type, length] : first) {
    types.insert(type);
    if (type == ASN_OCTET_STR) longest = std::max(longest, length);
    if (type == ASN_OCTET_STR) shortest = std::min(shortest, length);
  }
  EXPECT_EQ(types, (std::set<int>{ASN_INTEGER, ASN_OCTET_STR, ASN_NULL, ASN_OBJECT_ID,
                                  ASN_IPADDRESS, ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS, ASN_OPAQUE,
                                  ASN_COUNTER64, ASN_UINTEGER, SNMP_NOSUCHOBJECT,
                                  SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW}));
  EXPECT_GE(longest, 1024u);
  EXPECT_EQ(shortest, 0u);
  simulator_->Command("hostile ups0 7");
  EXPECT_EQ(answers(), first) << "the same seed gives the same answers";
  EXPECT_NE(simulator_->Command("show ups0").find("hostile=7"), std::string::npos);
  simulator_->Command("hostile ups0 off");
  EXPECT_EQ(Read(ups0_, oid::kSerialNumber).type, ASN_OCTET_STR);
  EXPECT_THROW(simulator_->Command("hostile ups0 -1"), std::runtime_error);
}

TEST_F(FaultsTest, ControlSetsAnyObjectEvenWithAnotherType) {
  simulator_->Set("ups0", oid::kBatteryCapacity, 's', "full\tbut odd\\");
  Variable capacity = Read(ups0_, oid::kBatteryCapacity);
  EXPECT_EQ(capacity.type, ASN_OCTET_STR);
  EXPECT_EQ(capacity.octets, "full\tbut odd\\");
  EXPECT_EQ(simulator_->Value("ups0", oid::kBatteryCapacity), "full\tbut odd\\");
  simulator_->Set("ups0", oid::kSleepTime, '=', "4242");
  EXPECT_EQ(Read(ups0_, oid::kSleepTime).type, ASN_TIMETICKS);
  simulator_->Set("ups0", oid::kTimeOnBattery, 't', "20000");  // 200 s, frozen while on line
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 20000);
}

TEST_F(FaultsTest, MalformedControlLinesGetOneErrorLineAndChangeNothing) {
  for (const char *line :
       {"set ups0", "set ups0 upsAdvOutputLoad q 1", "set ups0 upsBasicOutputStatus i many",
        "get ups9 upsCommStatus", "get * upsCommStatus", "power ups0 explode", "power ups0 fail 99",
        "set ups0 upsNoSuchObject i 1", "delay ups0 99999999999999999999", "silent ups0 maybe",
        "error ups0 upsCommStatus put genErr", "selftest ups0 x", "drop ups0", "drop ups0 -1",
        "drop ups0 every 1", "drop ups0 sometimes", "oversize ups0 upsBasicIdentModel 1 2",
        "\x01\x02\xff", "set ups0 \\ s"}) {
    EXPECT_THROW(simulator_->Command(line), std::runtime_error) << line;
  }
  EXPECT_THROW(simulator_->Command(std::string(70000, 'x')), std::runtime_error);  // too long
  EXPECT_NE(simulator_->Command("show ups0").find(" status=2(onLine) power=ok "),
            std::string::npos);
  EXPECT_EQ(simulator_->Value("ups0", "upsAdvOutputLoad"), "23");
}

}  // namespace
}  // namespace upssim::testing
