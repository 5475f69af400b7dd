// What the library's tests cannot see for themselves: that lost requests are really lost, and
// that a hostile card really sends every kind of bad value.

#include <set>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using BehaviourTest = CardsTest;

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

}  // namespace
}  // namespace upssim::testing
