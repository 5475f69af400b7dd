#include <tuple>
#include <utility>

#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

class FramesTest : public CardTest {
 protected:
  void SetUp() override {
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    GetRetryMax = SetRetryMax = 3;
  }
};

TEST_F(FramesTest, FramesAreRebuiltInPlace) {
  const std::string tail(40, '.');  // positions 7 to 46 of a request without data
  const std::pair<std::string, std::string> rows[] = {
      {Frame("012", "000", ""), "012000242" + tail.substr(2) + '0'},
      {Frame("XYZ", "003", "abc"), "XYZ0003abc" + tail.substr(3) + 'A'},
      // A short answer leaves the tail of the request behind it.
      {Frame("022", "019", std::string(25, 'x')),
       "0220012" + std::string(18, '0') + "xxxxxxx" + tail.substr(25) + '0'},
  };
  for (const auto &[request, response] : rows) EXPECT_EQ(Send(request), response);
  EXPECT_EQ(LogMessages(home_)[4], "TovLumiSendError(CMD:XYZ / LEN:003 / DATA:abc)");
}

TEST_F(FramesTest, DelayIdentityAndShutdownCommandsReachTheCards) {
  FakeClock clock(kSomeTime);
  StartCards({"a", "b"});
  std::strcpy(UpsIp[0], Ip("a"));
  std::strcpy(UpsIp[7], Ip("b"));
  // Every UPS gets the delay; eleven minutes wrap in sixteen bits.
  for (auto [minutes, ticks] : {std::pair{"0A", "60000"}, {"0B", "464"}}) {
    EXPECT_EQ(Send(Frame("1B1", "002", minutes))[47], '0');
    for (const char *card : {"a", "b"})
      EXPECT_EQ(sim_->Value(card, mib::upsAdvConfigShutoffDelay), ticks) << card;
  }
  // Code, object, value, answer (code, "0", length, data): a long one is cut to 40 characters.
  const std::tuple<const char *, const char *, std::string, std::string> reads[] = {
      {"1B2", mib::upsAdvConfigShutoffDelay, "12100", "1B2000202"},
      {"152", mib::upsAdvConfigReturnDelay, "6000", "152000201"},
      {"H01", mib::upsAdvIdentSerialNumber, std::string(60, 'S'), "H010028" + std::string(40, 'S')},
  };
  for (const auto &[code, oid, card_value, answer] : reads) {
    sim_->Set("a", oid, '=', card_value);
    EXPECT_EQ(Send(Frame(code, "000", "")).substr(0, answer.size()), answer) << code;
  }
  std::strcpy(UpsOffMode, "T");
  const std::size_t first = sim_->Journal().size();
  EXPECT_EQ(Send(Frame("V00", "001", "1")).substr(0, 8), "V0000011");
  std::string off;  // the cards, in slot order, each with a '?' for any other object
  for (const upssim::JournalEntry &set : Applied(first))
    off += set.card + (set.oid == mib::upsAdvControlUpsOff ? "" : "?");
  EXPECT_EQ(off, "ab");
  // A silent first UPS: the read's error reaches the status.
  sim_->Silent("a", true);
  const std::string sent = Send(Frame("1B2", "000", ""));
  EXPECT_EQ(sent.substr(0, 7) + sent[47], "1B200007");
}

TEST_F(FramesTest, PowerOnTimeInAMonthGoneByIsNextYear) {
  UseUtc();
  FakeClock clock(kSomeTime);  // 2026-11-22 23:28 UTC
  StartCards({"a"});
  std::strcpy(UpsIp[0], Ip("a"));
  sim_->Set("a", mib::upsAdvConfigShutoffDelay, '=', "9000");  // 90 s
  std::strcpy(DilayTimeCut, "N");
  Send(Frame("181", "008", "01020304"));                      // 2 January, 03:04
  const long expected = 1798859040L - (kSomeTime + 90 + 30);  // 2027-01-02 03:04 UTC
  EXPECT_EQ(sim_->Value("a", mib::upsAdvConfigUpsSleepTime), std::to_string(expected * 100));
  // A time already past sleeps ten minutes, cut to whole tenths of an hour on request.
  std::strcpy(DilayTimeCut, "Y");
  Send(Frame("181", "008", "0B160000"));
  EXPECT_EQ(sim_->Value("a", mib::upsAdvConfigUpsSleepTime), "36000");
}

}  // namespace
}  // namespace snmplumi::testing
