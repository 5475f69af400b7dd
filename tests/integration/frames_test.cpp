#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

// A 48-character request: code, a position 3 nobody reads, length, data; the rest '.'.
std::string Frame(const std::string &code, const std::string &length, const std::string &data) {
  std::string frame = code + "?" + length + data;
  frame.resize(48, '.');
  return frame;
}

struct Sent {
  std::string frame;
  int result;
};

Sent Send(std::string frame) {
  frame.resize(48);
  // Exactly 48 bytes on the heap: a read or write past them is AddressSanitizer's to see.
  auto buffer = std::make_unique<char[]>(48);
  std::memcpy(buffer.get(), frame.data(), 48);
  int result = TovLumiSend(0, 0, buffer.get(), 48);
  return {std::string(buffer.get(), 48), result};
}

class FramesTest : public CardTest {
 protected:
  void SetUp() override {
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    GetRetryMax = SetRetryMax = 3;
  }
};

TEST_F(FramesTest, FramesAreRebuiltInPlace) {
  const std::string tail(40, '.');  // positions 7 to 46 of a request without data
  struct Row {
    std::string request;
    std::string response;  // positions 0 to 46; 47 is the status
    char status;
  };
  const Row rows[] = {
      {Frame("012", "000", ""), "012000242" + tail.substr(2), '0'},
      {Frame("XYZ", "003", "abc"), "XYZ0003abc" + tail.substr(3), 'A'},
      // A short answer leaves the tail of the request behind it.
      {Frame("022", "019", std::string(25, 'x')),
       "0220012" + std::string(18, '0') + "xxxxxxx" + tail.substr(25), '0'},
      // A length past the frame reads up to its status position and no further.
      {Frame("XYZ", "FFF", std::string(40, 'd')), "XYZ0FFF" + std::string(40, 'd'), 'A'},
      {std::string("0B\0", 3), "0B", 'A'},  // a frame cut short by a NUL
  };
  for (const Row &row : rows) {
    Sent sent = Send(row.request);
    EXPECT_EQ(sent.frame.substr(0, row.response.size()), row.response) << row.request;
    EXPECT_EQ(sent.frame[47], row.status) << row.request;
    EXPECT_EQ(sent.result, row.status == '0' ? 0 : -1) << row.request;
  }
  EXPECT_EQ(LogMessages(home_)[4], "TovLumiSendError(CMD:XYZ / LEN:003 / DATA:abc)");
}

TEST_F(FramesTest, DelayIdentityAndShutdownCommandsReachTheCards) {
  FakeClock clock(kSomeTime);
  StartCards({"a", "b"});
  std::strcpy(UpsIp[0], Ip("a"));
  std::strcpy(UpsIp[7], Ip("b"));
  auto written = [this](const char *card) {
    return sim_->Value(card, mib::upsAdvConfigShutoffDelay);
  };
  EXPECT_EQ(Send(Frame("1B1", "002", "0A")).frame[47], '0');
  EXPECT_EQ(written("a") + " " + written("b"), "60000 60000");
  Send(Frame("1B1", "002", "0B"));  // eleven minutes wrap in sixteen bits
  EXPECT_EQ(written("a") + " " + written("b"), "464 464");

  struct Read {
    const char *code, *oid, *card_value;
    std::string answer;
  };
  const std::string long_serial(60, 'S');
  // The answer: code, "0", length, data.
  const Read reads[] = {
      {"1B2", mib::upsAdvConfigShutoffDelay, "12100", "1B20002:02"},
      // Longer than the frame: cut to its 40 characters, and the length with it.
      {"H01", mib::upsAdvIdentSerialNumber, long_serial.c_str(), "H010028:" + std::string(40, 'S')},
  };
  for (const Read &read : reads) {
    sim_->Set("a", read.oid, '=', read.card_value);
    Sent sent = Send(Frame(read.code, "000", ""));
    std::string answer = read.answer.substr(0, 7) + read.answer.substr(8);
    EXPECT_EQ(sent.frame.substr(0, answer.size()), answer) << read.code;
  }
  std::strcpy(UpsOffMode, "T");
  const std::size_t first = sim_->Journal().size();
  EXPECT_EQ(Send(Frame("V00", "001", "1")).frame.substr(0, 8), "V0000011");
  std::string off;  // the cards, in slot order, each with a '?' for any other object
  for (const upssim::JournalEntry &set : Applied(first))
    off += set.card + (set.oid == mib::upsAdvControlUpsOff ? "" : "?");
  EXPECT_EQ(off, "ab");
  // A silent first UPS: the read's error reaches the status, after one try.
  sim_->Silent("a", true);
  long before = sim_->Requests("a");
  Sent sent = Send(Frame("1B2", "000", ""));
  EXPECT_EQ(sent.frame.substr(0, 7), "1B20000");
  EXPECT_EQ(sent.frame[47], '7');
  EXPECT_EQ(sim_->Requests("a") - before, sim_->ClientRetries() + 1);
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
