// The event wait: its stop, the trap listener on port 162 and the polling fallback when the port
// cannot be had. Tests that open the listener need port 162 (root, and nobody else holding it)
// and skip otherwise; tests of the fallback hold the port themselves. CTest runs all of them
// under the resource lock trap_port_162.
#include "unit/event_wait.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "card_test.h"
#include "powernet.h"
#include "snmp/netsnmp.h"

namespace snmplumi::testing {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr std::uint16_t kTrapPort = 162;
const std::string kStopString = std::string(47, '0') + "8";
constexpr char kUntouched[] = "untouched buffer";
// "About a second" after a stop, measured generously for loaded machines and sanitizers.
constexpr auto kStopAnswered = 3s;

// A UDP socket on port 162 of every address, or -1 with errno.
int BindTrapPort() {
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(kTrapPort);
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  if (bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0) {
    int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

std::uint16_t BoundPort(int fd) {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  if (getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0) return 0;
  return ntohs(local.sin_port);
}

std::size_t Count(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

struct WaitOutcome {
  int result;
  std::string buffer;
  SteadyClock::time_point ended;
};

// Stops a wait still running when the test leaves early, so that its future can be joined.
struct StopOnExit {
  std::future<WaitOutcome> &wait;
  ~StopOnExit() {
    if (wait.valid() && wait.wait_for(0s) != std::future_status::ready) TovLumiStop();
  }
};

class EventWaitTest : public CardTest {
 protected:
  void SetUp() override {
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    for (auto &words : ups_X1) {
      std::fill(std::begin(words), std::end(words), 0);
      words[1] = 0x80;  // as the start-up wait leaves unused slots
    }
    ups_Other_X1_t = 0;
  }
  void TearDown() override {
    if (held_port_ >= 0) close(held_port_);
    CardTest::TearDown();
  }

  // One TovLumiGet on a thread of its own.
  static std::future<WaitOutcome> StartWait() {
    return std::async(std::launch::async, [] {
      char buffer[64] = {};
      std::strcpy(buffer, kUntouched);
      int result = TovLumiGet(0, nullptr, buffer);
      return WaitOutcome{result, buffer, SteadyClock::now()};
    });
  }

  // Why the library could not open the trap listener here (it needs root and a free port
  // 162), or "" when it can.
  static std::string TrapPortUnavailable() {
    int fd = BindTrapPort();
    if (fd < 0) {
      return std::string("UDP port 162 cannot be bound here (") + std::strerror(errno) +
             "): the trap listener needs root and a free port 162";
    }
    close(fd);
    return "";
  }

  // Starts a wait and returns once its listener is open; false (the wait is over) when another
  // process took port 162 in between.
  bool StartListeningWait(std::future<WaitOutcome> &wait) {
    wait = StartWait();
    auto deadline = SteadyClock::now() + 5s;
    while (TrapListenerSocket() < 0) {
      if (wait.wait_for(10ms) == std::future_status::ready || SteadyClock::now() > deadline) {
        return false;
      }
    }
    return true;
  }

  // Makes sure the library cannot open port 162: held here, or unavailable to this process
  // anyway (taken, or not permitted). Anything else is a reason to skip, returned.
  std::string HoldTrapPort() {
    if (held_port_ < 0) held_port_ = BindTrapPort();
    if (held_port_ < 0 && errno != EADDRINUSE && errno != EACCES) {
      return std::string("cannot hold UDP port 162: ") + std::strerror(errno);
    }
    return "";
  }

  std::string LogText() const { return FileText(home_.data("snmplumi.log")); }

  bool LogShowsWithin(const std::string &part, std::size_t times, std::chrono::seconds limit) {
    auto deadline = SteadyClock::now() + limit;
    while (Count(LogText(), part) < times) {
      if (SteadyClock::now() > deadline) return false;
      std::this_thread::sleep_for(20ms);
    }
    return true;
  }

  int held_port_ = -1;
};

TEST_F(EventWaitTest, TrapsOffWaitBlocksUntilStoppedThenAnswersTheStopString) {
  NO_TRAP_SERVICE = 1;
  std::future<WaitOutcome> wait = StartWait();
  StopOnExit guard{wait};
  ASSERT_EQ(wait.wait_for(1500ms), std::future_status::timeout) << "the wait did not block";
  EXPECT_EQ(std::atomic_ref<int>(TovLumiGet_RunFlag).load(), 1);
  SteadyClock::time_point stopped = SteadyClock::now();
  EXPECT_EQ(TovLumiStop(), 0);
  ASSERT_EQ(wait.wait_for(kStopAnswered), std::future_status::ready);
  WaitOutcome outcome = wait.get();
  EXPECT_LT(outcome.ended - stopped, 1500ms);
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.buffer, kStopString);
  EXPECT_EQ(TovLumiGet_RunFlag, 0);
  EXPECT_EQ(TovLumiStopFlag, 0);
  EXPECT_EQ(Trap_ss, nullptr);
  EXPECT_EQ(
      LogMessages(home_),
      (std::vector<std::string>{"---->TovLumiGet start...", "TovLumiStop...",
                                "TovLumiGet Break! by TovLumiStopFlag", "<====TovLumiGet error"}));
}

TEST_F(EventWaitTest, StopIssuedBeforeTheCallEndsTheWaitAtOnceInEitherMode) {
  FakeClock clock(kSomeTime);  // the fallback would pause through it
  for (int traps_off : {1, 0}) {
    SCOPED_TRACE(traps_off);
    if (traps_off == 0) {
      if (std::string reason = HoldTrapPort(); !reason.empty()) GTEST_SKIP() << reason;
    }
    NO_TRAP_SERVICE = traps_off;
    TovLumiStop();
    char buffer[64] = "x";
    SteadyClock::time_point start = SteadyClock::now();
    EXPECT_EQ(TovLumiGet(0, nullptr, buffer), 1);
    EXPECT_LT(SteadyClock::now() - start, 500ms);
    EXPECT_EQ(buffer, kStopString);
    EXPECT_EQ(TovLumiStopFlag, 0) << "the stop is consumed";
    EXPECT_EQ(Trap_ss, nullptr);
  }
  EXPECT_TRUE(clock.sleeps.empty());
}

TEST_F(EventWaitTest, ListenerOnPort162TakesEveryTrapAsItArrivesAndHostEventsEndTheWait) {
  if (std::string reason = TrapPortUnavailable(); !reason.empty()) GTEST_SKIP() << reason;
  StartCards({"ups0"});
  g_bDebugMode = 1;
  std::future<WaitOutcome> wait;
  StopOnExit guard{wait};
  if (!StartListeningWait(wait)) GTEST_SKIP() << "another process took UDP port 162";
  const int listener = TrapListenerSocket();
  EXPECT_EQ(BoundPort(listener), kTrapPort) << "the listener's socket";
  constexpr int kTraps = 5;
  for (int i = 0; i < kTraps; ++i) {
    sim_->SendTrap("ups0", SNMP_TRAP_ENTERPRISESPECIFIC, 5, "127.0.0.1", kTrapPort);
  }
  EXPECT_TRUE(LogShowsWithin(" [snmp_input] end", kTraps, 3s)) << LogText();
  pollfd pending{listener, POLLIN, 0};
  EXPECT_EQ(poll(&pending, 1, 0), 0) << "a datagram was left in the socket";
  // The host's event: 0, the buffer untouched, the listener kept for the next wait.
  pthread_mutex_lock(&g_hMutexTovLumiStopControl);
  TrapRetStatus = 1;
  pthread_mutex_unlock(&g_hMutexTovLumiStopControl);
  ASSERT_EQ(wait.wait_for(kStopAnswered), std::future_status::ready);
  WaitOutcome outcome = wait.get();
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.buffer, kUntouched);
  EXPECT_EQ(TrapRetStatus, 0);
  EXPECT_EQ(TovLumiGet_RunFlag, 1);
  wait = StartWait();
  ASSERT_EQ(wait.wait_for(500ms), std::future_status::timeout);
  EXPECT_EQ(TrapListenerSocket(), listener);
  TovLumiStop();
  ASSERT_EQ(wait.wait_for(kStopAnswered), std::future_status::ready);
  EXPECT_EQ(wait.get().buffer, kStopString);
  EXPECT_EQ(TrapListenerSocket(), -1) << "a stopped wait closes the listener";
  std::vector<LogRecord> log = LibraryLog(home_);
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log[1], (LogRecord{0, " snmp_open end"}));
  EXPECT_EQ(std::count(log.begin(), log.end(), LogRecord{0, " [snmp_input] end"}), kTraps)
      << "code: running, 0 once the listener opened";
  EXPECT_EQ(std::count(log.begin(), log.end(), LogRecord{0, "---->TovLumiGet end..."}), 1);
  EXPECT_EQ(TrapPortUnavailable(), "") << "port 162 is free again";
}

// The fallback's choice, row by row: what the watch left in the status words, what the call
// returns and writes, and what it changed.
TEST_F(EventWaitTest, FallbackChoosesTheSlotToReportFromTheStatusWords) {
  struct Slot {
    int index;
    int word0, word1;
  };
  struct Row {
    const char *what;
    std::vector<Slot> configured;
    int other_summary;
    int result;
    std::string buffer;  // kUntouched: not written
    std::vector<Slot> after;
    std::vector<LogRecord> log_tail;
  };
  const std::string zeros21(21, '0');
  const std::vector<LogRecord> nothing_yet = {{0, "---->TovLumiGet error...[sleep start]"},
                                              {0, "---->TovLumiGet error...[sleep end]"}};
  const Row rows[] = {
      {"one timed out while another runs",
       {{0, 0x10, 0}, {3, 0x18, 0}},
       0,
       -1,
       kUntouched,
       {{0, 0x10, 0}, {3, 0x18, 0x80}},
       nothing_yet},
      {"the only one in service timed out",
       {{2, 0x18, 0}},
       0,
       0,
       "801001218" + std::string(16, '0') + "00" + zeros21,
       {{2, 0x18, 0}},
       {{1, "<----TovLumiGet return"}}},
      {"all timed out: the first is reported",
       {{1, 0x08, 0}, {4, 0x18, 0}, {7, 0x18, 0x80}},
       0x10,
       0,
       "801001208" + std::string(16, '0') + "10" + zeros21,
       {{1, 0x08, 0}, {4, 0x18, 0}},
       {{1, "<----TovLumiGet return"}}},
      {"the other group timed out: slot 0, even unused",
       {{5, 0x18, 0}},
       0x08,
       0,
       "801001200"
       "80" +
           std::string(14, '0') + "08" + zeros21,
       {{5, 0x18, 0}},
       {{1, "<****TovLumiGet return"}}},
      {"none timed out", {{0, 0x10, 0}, {1, 0, 0}}, 0, -1, kUntouched, {{1, 0, 0}}, nothing_yet},
      {"none in service", {{0, 0, 0x80}}, 0, -1, kUntouched, {{0, 0, 0x80}}, nothing_yet},
  };
  if (std::string reason = HoldTrapPort(); !reason.empty()) GTEST_SKIP() << reason;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    SetUp();
    ClearLog();
    FakeClock clock(kSomeTime);
    for (const Slot &slot : row.configured) {
      std::snprintf(UpsIp[slot.index], sizeof UpsIp[slot.index], "192.0.2.%d", slot.index + 1);
      ups_X1[slot.index][0] = slot.word0;
      ups_X1[slot.index][1] = slot.word1;
    }
    ups_Other_X1_t = row.other_summary;
    char buffer[64] = {};
    std::strcpy(buffer, kUntouched);
    EXPECT_EQ(TovLumiGet(0, nullptr, buffer), row.result);
    EXPECT_EQ(Trap_ss, nullptr) << "port 162 was not held";
    EXPECT_EQ(std::string(buffer), row.buffer);
    EXPECT_EQ(std::strlen(buffer), row.result == 0 ? 48u : std::strlen(kUntouched));
    for (const Slot &slot : row.after) {
      EXPECT_EQ(ups_X1[slot.index][0], slot.word0) << slot.index;
      EXPECT_EQ(ups_X1[slot.index][1], slot.word1) << slot.index;
    }
    EXPECT_EQ(TovLumiGet_RunFlag, row.result == 0 ? 0 : 1);
    EXPECT_EQ(clock.sleeps, row.result == -1 ? std::vector<unsigned long>{1000000}
                                             : std::vector<unsigned long>{});
    std::vector<LogRecord> log = LibraryLog(home_);
    ASSERT_GT(log.size(), row.log_tail.size());
    EXPECT_EQ(log.front(), (LogRecord{0, "---->TovLumiGet start..."}));
    EXPECT_EQ(std::vector<LogRecord>(log.end() - static_cast<long>(row.log_tail.size()), log.end()),
              row.log_tail);
    ups_Other_X1_t = 0;
  }
  // Once out of service, the timed-out UPS stays unreported while the other runs.
  SetUp();
  FakeClock clock(kSomeTime);
  std::strcpy(UpsIp[0], "192.0.2.1");
  std::strcpy(UpsIp[3], "192.0.2.4");
  ups_X1[0][1] = ups_X1[3][1] = 0;
  ups_X1[3][0] = 0x18;
  char buffer[64] = {};
  for (int call = 0; call < 3; ++call) EXPECT_EQ(TovLumiGet(0, nullptr, buffer), -1) << call;
  EXPECT_EQ(ups_X1[3][1], 0x80);
}

TEST_F(EventWaitTest, SmallExportsAnswerAsSpecified) {
  const char *const names[] = {
      "Cold Start",        "Warm Start",          "Link Down", "Link Up", "Authentication Failure",
      "EGP Neighbor Loss", "Enterprise Specific",
  };
  for (int trap = 0; trap < 7; ++trap) EXPECT_STREQ(trap_description(trap), names[trap]);
  for (int trap : {-1, 7, 1000}) EXPECT_STREQ(trap_description(trap), "Unknown Type");
  EXPECT_EQ(TovLumiSendOnly(0, 0, nullptr), 0);
  update_config();
  g_bDebugMode = 0;
  EXPECT_EQ(snmp_input(0, nullptr, 0, nullptr, nullptr), 0);
  g_bDebugMode = 1;
  running = 1;
  EXPECT_EQ(snmp_input(0, nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(LibraryLog(home_),
            (std::vector<LogRecord>{{0, " xxxx TovLumiSendOnly xxxx"}, {1, " [snmp_input] end"}}));
  EXPECT_EQ(Trap_session, &Trap_sess);
  EXPECT_EQ(sizeof Trap_sess, sizeof(netsnmp_session));
}

// A wait with stops while eight threads send requests to live and silent cards and a card keeps
// sending traps: no race, and every stop is answered within about a second.
class ConcurrentEventWaitTest : public EventWaitTest {};

TEST_F(ConcurrentEventWaitTest, ConcurrentRequestsAndTrapsLeaveEveryStopAnsweredInASecond) {
  if (std::string reason = TrapPortUnavailable(); !reason.empty()) GTEST_SKIP() << reason;
  StartCards({"live0", "live1", "live2", "silent"});
  sim_->Silent("silent", true);
  for (int card = 0; card < 3; ++card) {
    sim_->Set("live" + std::to_string(card), mib::upsAdvOutputLoad, 'u', std::to_string(30 + card));
  }
  g_bDebugMode = 1;
  struct Background {
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    void Join() {
      done = true;
      for (auto &thread : threads) thread.join();
      threads.clear();
    }
    ~Background() { Join(); }
  } background;
  for (int t = 0; t < 8; ++t) {
    background.threads.emplace_back([this, t, &background] {
      for (int i = 0; !background.done; ++i) {
        // Two threads also ask the silent card, whose requests wait for each other.
        int card = t < 2 && i % 2 == 1 ? 3 : (t + i) % 3;
        std::string name = card == 3 ? "silent" : "live" + std::to_string(card);
        int32_t load = -1;
        DWORD result =
            SnmpGetR(Ip(name), mib::upsAdvOutputLoad, 'u', reinterpret_cast<char *>(&load), 0);
        bool right = card == 3 ? result == UPS_E_NO_SERVER : result == 0 && load == 30 + card;
        if (!right) ++background.wrong;
      }
    });
  }
  background.threads.emplace_back([this, &background] {
    while (!background.done) {
      sim_->SendTrap("live0", SNMP_TRAP_ENTERPRISESPECIFIC, 5, "127.0.0.1", kTrapPort);
      std::this_thread::sleep_for(20ms);
    }
  });
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    std::future<WaitOutcome> wait;
    StopOnExit guard{wait};
    if (!StartListeningWait(wait)) GTEST_SKIP() << "another process took UDP port 162";
    ASSERT_EQ(wait.wait_for(1200ms), std::future_status::timeout);
    SteadyClock::time_point stopped = SteadyClock::now();
    TovLumiStop();
    ASSERT_EQ(wait.wait_for(kStopAnswered), std::future_status::ready);
    WaitOutcome outcome = wait.get();
    EXPECT_LT(outcome.ended - stopped, kStopAnswered);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.buffer, kStopString);
  }
  background.Join();
  EXPECT_EQ(background.wrong.load(), 0);
  EXPECT_GT(Count(LogText(), " [snmp_input] end"), 0u) << "no trap reached the listener";
}

}  // namespace
}  // namespace snmplumi::testing
