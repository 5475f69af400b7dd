// The trap listener needs root and a free port 162; holding the port forces the polling fallback.
#include "unit/event_wait.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include "card_test.h"
#include "powernet.h"
#include "snmp/netsnmp.h"

namespace snmplumi::testing {
namespace {

using namespace std::chrono_literals;
const std::string kStopString = std::string(47, '0') + "8";
constexpr char kUntouched[] = "untouched buffer";
constexpr auto kStopAnswered = 3s;  // "about a second", generously for loaded machines

// Port 162 bound, or -1 with errno telling why not.
int BindTrapPort() {
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in local{.sin_family = AF_INET, .sin_port = htons(162), .sin_addr = {}, .sin_zero = {}};
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local) == 0) return fd;
  int error = errno;
  close(fd);
  errno = error;
  return -1;
}

// One TovLumiGet on a thread of its own (result and buffer), stopped if the test leaves early.
struct Wait {
  std::future<std::pair<int, std::string>> future = std::async(std::launch::async, [] {
    char buffer[64] = {};
    std::strcpy(buffer, kUntouched);
    int result = TovLumiGet(0, nullptr, buffer);
    return std::pair<int, std::string>(result, buffer);
  });
  ~Wait() {
    if (future.valid() && Blocks(0s)) TovLumiStop();
  }
  bool Blocks(std::chrono::milliseconds time) {
    return future.wait_for(time) == std::future_status::timeout;
  }
};

class EventWaitTest : public CardTest {
 protected:
  void SetUp() override {
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    // As the start-up wait leaves unused slots.
    for (auto &words : ups_X1) std::fill(std::begin(words), std::end(words), 0), words[1] = 0x80;
    ups_Other_X1_t = 0;
  }
  // Read as text: the wait may be writing the log meanwhile.
  long TrapsLogged() const {
    const std::string text = FileText(home_.data("snmplumi.log")), line = " [snmp_input] end";
    long count = 0;
    for (auto at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) ++count;
    return count;
  }
};

// Without the listener: a stop given before the call, and what the watch left in the status
// words (index, word 0, word 1 of slots in use, and the other group's summary) decides what the
// call returns and writes, and the UPS it puts out of service.
TEST_F(EventWaitTest, FallbackAnswersStopsAndChoosesTheSlotToReportFromTheStatusWords) {
  const int held = BindTrapPort();
  if (held < 0 && errno != EADDRINUSE && errno != EACCES)
    GTEST_SKIP() << "cannot hold UDP port 162: " << std::strerror(errno);
  FakeClock clock(kSomeTime);  // the fallback would pause through it
  TovLumiStop();               // before the call: it ends at once
  char buffer[64] = "x";
  EXPECT_EQ(TovLumiGet(0, nullptr, buffer), 1);
  EXPECT_EQ(buffer, kStopString);
  EXPECT_EQ(TovLumiStopFlag, 0) << "the stop is consumed";
  EXPECT_TRUE(clock.sleeps.empty());
  struct Row {
    std::vector<std::array<int, 3>> slots;
    int other_summary, result;
    std::string buffer;  // kUntouched: not written
    int put_out = -1;    // the slot whose word 1 gets 0x80
  };
  const std::string zeros14(14, '0'), zeros21(21, '0'), none = kUntouched;
  // clang-format off
  const Row rows[] = {
      {{{0, 0x10, 0}, {3, 0x18, 0}}, 0, -1, none, 3},  // one timed out, another runs
      {{{1, 0x18, 0x80}, {4, 0x08, 0}, {7, 0x18, 0}}, 0x10, 0,
       "80100120800" + zeros14 + "10" + zeros21},  // all timed out: the first in service
      // The other group timed out: slot 0, even unused.
      {{{5, 0x18, 0}}, 0x08, 0, "80100120080" + zeros14 + "08" + zeros21},
      {{{0, 0x10, 0}, {1, 0x18, 0x80}}, 0, -1, none},  // none in service timed out
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(&row - rows);
    SetUp();
    clock.sleeps.clear();
    for (auto [slot, word0, word1] : row.slots) {
      std::snprintf(UpsIp[slot], sizeof UpsIp[slot], "192.0.2.%d", slot + 1);
      ups_X1[slot][0] = word0, ups_X1[slot][1] = word1;
    }
    ups_Other_X1_t = row.other_summary;
    char written[64] = {};
    std::strcpy(written, kUntouched);
    EXPECT_EQ(TovLumiGet(0, nullptr, written), row.result);
    EXPECT_EQ(written, row.buffer);
    for (auto [slot, word0, word1] : row.slots) {
      EXPECT_EQ(ups_X1[slot][0], word0) << slot;
      EXPECT_EQ(ups_X1[slot][1], slot == row.put_out ? 0x80 : word1) << slot;
    }
    EXPECT_EQ(TovLumiGet_RunFlag, row.result == 0 ? 0 : 1);
    EXPECT_EQ(clock.sleeps, std::vector<unsigned long>(row.result == -1 ? 1 : 0, 1000000));
  }
  if (held >= 0) close(held);
}

// Traps reach snmp_input as they arrive, a host event ends the wait and keeps the listener, a
// stop from another thread ends it within about a second and closes it: all while eight threads
// ask live and silent cards, with no race and every answer right.
TEST_F(EventWaitTest, ListenerOnPort162TakesTrapsAndAnswersEventsAndStopsWhileRequestsRun) {
  const int probe = BindTrapPort();
  if (probe < 0 || close(probe) != 0) GTEST_SKIP() << "the listener needs root and a free port 162";
  StartCards({"live0", "live1", "live2", "silent"});
  sim_->Silent("silent", true);
  for (int card = 0; card < 3; ++card)
    sim_->Set("live" + std::to_string(card), mib::upsAdvOutputLoad, 'u', std::to_string(30 + card));
  g_bDebugMode = 1;
  std::atomic<int> wrong{0};
  std::vector<std::jthread> threads;  // asked to stop and joined however the test ends
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, t, &wrong](std::stop_token stop) {
      for (int i = 0; !stop.stop_requested(); ++i) {
        // Two threads also ask the silent card, whose requests wait for each other.
        int card = t < 2 && i % 2 == 1 ? 3 : (t + i) % 3;
        int32_t load = -1;
        DWORD result = SnmpGetR(Ip(card == 3 ? "silent" : "live" + std::to_string(card)),
                                mib::upsAdvOutputLoad, 'u', reinterpret_cast<char *>(&load), 0);
        wrong += card == 3 ? result != UPS_E_NO_SERVER : result != 0 || load != 30 + card;
      }
    });
  }
  Wait first;
  for (auto end = std::chrono::steady_clock::now() + 5s; TrapListenerSocket() < 0;) {
    if (!first.Blocks(10ms) || std::chrono::steady_clock::now() > end)
      GTEST_SKIP() << "another process took UDP port 162";
  }
  const int listener = TrapListenerSocket();
  constexpr long kTraps = 5;
  for (long i = 0; i < kTraps; ++i)
    sim_->SendTrap("live0", SNMP_TRAP_ENTERPRISESPECIFIC, 5, "127.0.0.1", 162);
  for (int tries = 0; tries < 150 && TrapsLogged() < kTraps; ++tries)
    std::this_thread::sleep_for(20ms);
  // The host's event: 0, the buffer untouched.
  pthread_mutex_lock(&g_hMutexTovLumiStopControl);
  TrapRetStatus = 1;
  pthread_mutex_unlock(&g_hMutexTovLumiStopControl);
  ASSERT_FALSE(first.Blocks(kStopAnswered));
  EXPECT_EQ(first.future.get(), std::make_pair(0, std::string(kUntouched)));
  EXPECT_EQ(TrapRetStatus, 0);
  Wait second;
  ASSERT_TRUE(second.Blocks(1200ms));
  EXPECT_EQ(TrapListenerSocket(), listener);
  EXPECT_EQ(TovLumiStop(), 0);
  ASSERT_FALSE(second.Blocks(kStopAnswered));
  EXPECT_EQ(second.future.get(), std::make_pair(1, kStopString));
  EXPECT_EQ(TrapListenerSocket(), -1) << "a stopped wait closes the listener";
  threads.clear();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(Logged(" snmp_open end", 0), 1) << "one listener for both waits";
  EXPECT_EQ(Logged(" [snmp_input] end", 0), kTraps);
}

}  // namespace
}  // namespace snmplumi::testing
