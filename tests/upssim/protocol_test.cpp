// SNMP v1 as a card answers it: error statuses and indexes, all-or-nothing SETs, communities,
// versions; and the journal of every SET received.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <map>
#include <optional>
#include <regex>

#include "test_cards.h"

namespace upssim::testing {
namespace {

std::unique_ptr<Simulator> StartOpenAndClosedCards() {
  return Simulator::Start({{.name = "ups0"}, {.name = "ups1", .community = "private"}});
}

class ProtocolTest : public SimulatorTest {
 protected:
  ProtocolTest() : SimulatorTest(StartOpenAndClosedCards()) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
  Target ups1_ = {simulator_->Address("ups1"), simulator_->Port(), "private"};
};

TEST_F(ProtocolTest, UnknownObjectAnswersNoSuchNameAtItsIndexWithTheRequestEchoed) {
  constexpr char kUnknown[] = ".1.3.6.1.4.1.318.1.1.1.4.1.9.0";
  Answer answer = Get(ups0_, {oid::kCommStatus, kUnknown, oid::kModel});
  EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME);
  EXPECT_EQ(answer.error_index, 2);
  ASSERT_EQ(answer.variables.size(), 3u);
  EXPECT_EQ(answer.variables[1].oid, kUnknown);
  for (const Variable &variable : answer.variables) EXPECT_EQ(variable.type, ASN_NULL);
}

// The journal has a line per variable of every SET received, with the answer's name.
void ExpectJournal(const Simulator &simulator, const std::vector<std::string> &expected) {
  std::vector<std::string> lines;
  const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})");
  for (const JournalEntry &entry : simulator.Journal()) {
    EXPECT_TRUE(std::regex_match(entry.time, time)) << entry.time;
    lines.push_back(entry.card + " " + entry.oid + " " + entry.type + " " + entry.value + " " +
                    entry.answer);
  }
  EXPECT_EQ(lines, expected);
}

TEST_F(ProtocolTest, SetIsCheckedWholeKeptOnlyWhenEveryVariableIsAcceptedAndJournaled) {
  struct Case {
    std::vector<Write> writes;
    long status, index;
  };
  constexpr long kOk = SNMP_ERR_NOERROR, kBad = SNMP_ERR_BADVALUE, kNoName = SNMP_ERR_NOSUCHNAME;
  const Case cases[] = {
      {{{oid::kOutputStatus, 'i', "7"}}, kNoName, 1},  // read-only
      {{{oid::kShutoffDelay, 'i', "100"}}, kBad, 1},   // TimeTicks in the MIB
      {{{oid::kScgMultiCastIp, 's', "224.0.0.1"}}, kBad, 1},
      {{{oid::kSensitivity, 'i', "9"}}, kBad, 1},  // not in the enumeration
      {{{oid::kUpsOff, 'i', "0"}}, kBad, 1},
      {{{oid::kHighTransferVolt, 'i', "110"}, {oid::kSensitivity, 'i', "9"}}, kBad, 2},
      {{{oid::kHighTransferVolt, 'i', "110"}, {oid::kSensitivity, 'i', "2"}}, kOk, 0},
      {{{oid::kIdentName, 's', "rack 7  "}, {oid::kScgMultiCastIp, 'a', "224.0.0.7"}}, kOk, 0},
      {{{oid::kShutoffDelay, 't', "12300"}}, kOk, 0},
  };
  std::vector<std::string> journal;
  for (const Case &c : cases) {
    SCOPED_TRACE(c.writes.front().oid + " " + c.writes.front().value);
    std::map<std::string, std::string> before;
    for (const Write &write : c.writes) before[write.oid] = simulator_->Value("ups0", write.oid);
    Answer answer = Set(ups0_, c.writes);
    ASSERT_TRUE(answer.answered);
    EXPECT_EQ(answer.error_status, c.status);
    EXPECT_EQ(answer.error_index, c.index);
    for (const Write &write : c.writes) {
      EXPECT_EQ(simulator_->Value("ups0", write.oid),
                c.status == kOk ? write.value : before[write.oid]);
      journal.push_back("ups0 " + write.oid + " " + write.type + " " + write.value + " " +
                        (c.status == kOk    ? "noError"
                         : c.status == kBad ? "badValue"
                                            : "noSuchName"));
    }
  }
  ExpectJournal(*simulator_, journal);
  EXPECT_EQ(simulator_->Value("ups1", oid::kShutoffDelay), "9000");  // each card its own state
}

TEST_F(ProtocolTest, OnlyV1WithTheCardsOwnCommunityIsAnswered) {
  EXPECT_TRUE(Get(ups1_, {oid::kCommStatus}).answered);
  for (const Target &target :
       {Target{ups0_.address, ups0_.port, "public", 1, kNoAnswerWait},  // v2c
        Target{ups1_.address, ups1_.port, "public", 0, kNoAnswerWait},
        Target{ups0_.address, ups0_.port, "private", 0, kNoAnswerWait}}) {
    EXPECT_FALSE(Get(target, {oid::kCommStatus}).answered);
    EXPECT_FALSE(Set(target, {{oid::kConfigAlarm, 'i', "3"}}).answered);
  }
  EXPECT_EQ(simulator_->Value("ups0", oid::kConfigAlarm), "1");
  EXPECT_EQ(simulator_->Value("ups1", oid::kConfigAlarm), "1");
  std::string alarm = std::string(oid::kConfigAlarm) + " i 3 badCommunity";
  ExpectJournal(*simulator_, {"ups1 " + alarm, "ups0 " + alarm});  // not the v2c one
}

TEST_F(ProtocolTest, TrapGoesFromTheCardsAddressWithItsCommunityToLoopbackOnly) {
  TrapListener listener;
  simulator_->SendTrap("ups1", SNMP_TRAP_ENTERPRISESPECIFIC, 5, "127.0.0.1", listener.Port());
  std::optional<Trap> trap = listener.Next(std::chrono::seconds(2));
  ASSERT_TRUE(trap.has_value());
  EXPECT_EQ(trap->from, ups1_.address);
  EXPECT_EQ(trap->agent_address, ups1_.address);
  EXPECT_EQ(trap->community, "private");
  EXPECT_EQ(trap->enterprise, ".1.3.6.1.4.1.318");
  EXPECT_EQ(trap->generic, SNMP_TRAP_ENTERPRISESPECIFIC);
  EXPECT_EQ(trap->specific, 5);
  // Every card, a generic type by its name.
  const std::string to = "127.0.0.1:" + std::to_string(listener.Port());
  simulator_->Command("trap * coldStart 0 " + to);
  std::vector<std::string> senders;
  for (int i = 0; i < 2; ++i) {
    trap = listener.Next(std::chrono::seconds(2));
    ASSERT_TRUE(trap.has_value());
    EXPECT_EQ(trap->generic, SNMP_TRAP_COLDSTART);
    senders.push_back(trap->agent_address);
  }
  std::sort(senders.begin(), senders.end());
  std::vector<std::string> cards = {ups0_.address, ups1_.address};
  std::sort(cards.begin(), cards.end());
  EXPECT_EQ(senders, cards);
  for (const std::string &line : std::vector<std::string>{
           "trap ups0 6 1 10.0.0.1:162", "trap ups0 6 1 localhost:162", "trap ups0 7 0 " + to,
           "trap ups0 6 -1 " + to, "trap ups0 6 1 127.0.0.1", "trap ups0 6 1 127.0.0.1:0",
           "trap ups0 6 1 127.0.0.1:65536", "trap ups9 6 1 " + to, "trap ups0 6 1 " + to + " x"}) {
    EXPECT_THROW(simulator_->Command(line), std::runtime_error) << line;
  }
  EXPECT_FALSE(listener.Next(kNoAnswerWait).has_value()) << "a refused trap was sent";
}

}  // namespace
}  // namespace upssim::testing
