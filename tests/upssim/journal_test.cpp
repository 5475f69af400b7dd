// The journal records every SET a card received, whatever it was answered.
#include <gtest/gtest.h>

#include <regex>

#include "test_cards.h"

namespace upssim::testing {
namespace {

TEST(JournalTest, RecordsEverySetInOrderWithItsAnswer) {
  CardOptions ups0, ups1;
  ups0.name = "ups0";
  ups1.name = "ups1";
  ups1.community = "private";
  auto simulator = Simulator::Start({ups0, ups1});
  Target card0 = CardTarget(*simulator, "ups0");
  Target card1 = CardTarget(*simulator, "ups1");
  card1.community = "private";

  Set(card0, {{oid::kUpsOff, 'i', "2"}});
  Set(card1, {{oid::kSleepTime, 't', "36000"}});
  Set(card0, {{oid::kConserveBattery, 'i', "2"}});  // on line: refused
  Set(card0, {{oid::kOutputStatus, 'i', "2"}});     // read-only
  simulator->InjectError("ups1", oid::kIdentName, Op::kSet, 5);
  Set(card1, {{oid::kIdentName, 's', "rack 7  "}});
  Set(card1, {{oid::kScgMultiCastIp, 'a', "224.0.0.9"}});
  simulator->Silent("ups1", true);
  Set(card1, {{oid::kTurnOn, 'i', "2"}});
  Target wrong = card0;
  wrong.community = "guess";
  Set(wrong, {{oid::kUpsOff, 'i', "3"}});

  struct Row {
    const char *card, *oid;
    char type;
    const char *value, *answer;
  };
  const Row expected[] = {
      {"ups0", oid::kUpsOff, 'i', "2", "noError"},
      {"ups1", oid::kSleepTime, 't', "36000", "noError"},
      {"ups0", oid::kConserveBattery, 'i', "2", "badValue"},
      {"ups0", oid::kOutputStatus, 'i', "2", "noSuchName"},
      {"ups1", oid::kIdentName, 's', "rack 7  ", "genErr"},
      {"ups1", oid::kScgMultiCastIp, 'a', "224.0.0.9", "noError"},
      {"ups1", oid::kTurnOn, 'i', "2", "silent"},
      {"ups0", oid::kUpsOff, 'i', "3", "badCommunity"},
  };
  std::vector<JournalEntry> journal = simulator->Journal();
  ASSERT_EQ(journal.size(), std::size(expected));
  const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})");
  for (std::size_t i = 0; i < journal.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(std::regex_match(journal[i].time, time)) << journal[i].time;
    EXPECT_EQ(journal[i].card, expected[i].card);
    EXPECT_EQ(journal[i].oid, expected[i].oid);
    EXPECT_EQ(journal[i].type, expected[i].type);
    EXPECT_EQ(journal[i].value, expected[i].value);
    EXPECT_EQ(journal[i].answer, expected[i].answer);
  }
  EXPECT_LE(journal.front().time, journal.back().time);
  simulator->Stop();
  EXPECT_EQ(simulator->ExitStatus(), 0);
}

}  // namespace
}  // namespace upssim::testing
