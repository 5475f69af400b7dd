// Everything a host does, all at once for a few seconds. Under ThreadSanitizer no race;
// everywhere no deadlock, every answer the one given alone, every log record whole and every
// profile file holding values that were written.
#include <atomic>
#include <functional>
#include <map>
#include <regex>
#include <thread>

#include "card_test.h"
#include "ring_check.h"
#include "runtime/profile.h"

namespace snmplumi::testing {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

const char *const kCards[] = {"ups0", "ups1", "ups2"};
// Frames that read the cards, and one that writes the same delay every time.
const char *const kFrames[] = {"012000", "0F2000", "H01000", "15100203", "152000", "1B2000"};

std::string Send(const char *request) {
  char frame[49];
  std::snprintf(frame, sizeof frame, "%-3.3s.%-44s", request, request + 3);
  TovLumiSend(0, 0, frame, 48);
  return frame;
}

std::string Status(const char *ip) {
  int s[9] = {};
  char *address = const_cast<char *>(ip);
  s[0] = GetUpsStatusFromSnmp(address, &s[1]) +
         GetUpsDetailStatusFromSnmp2(address, &s[2], &s[3], &s[4], &s[5], &s[6], &s[7], &s[8]);
  std::string text;
  for (int value : s) text += std::to_string(value) + " ";
  return text;
}

// The value n a "tN-n" profile value holds, or -1.
long Round(const char *value) {
  long n = -1;
  return std::sscanf(value, "t%*d-%ld", &n) == 1 ? n : -1;
}

using ConcurrentHostTest = CardTest;

TEST_F(ConcurrentHostTest, ConcurrentHostThreadsLeaveWholeLogsAndValidProfiles) {
  StartCards({"ups0", "ups1", "ups2"});
  PutFile(home_.data("config.apc"), "[Lumi]\nTraceMode=ON\n");
  PutFile(home_.data("snmp.apc"), "[Snmp]\nUPS_IP=" + std::string(Ip("ups0")) +
                                      "\nUPS_IP1=" + Ip("ups1") + "\nUPS_IP2=" + Ip("ups2") +
                                      "\nUPS_Com=public\nNO_TRAP=Y\n");
  lib_init();
  ASSERT_EQ(NO_TRAP_SERVICE, 1);
  std::map<std::string, std::string> alone;  // the answers with nothing else running
  for (const char *request : kFrames) alone[request] = Send(request);
  for (const char *card : kCards) alone[card] = Status(Ip(card));
  ASSERT_EQ(alone["0F2000"][47], '0');
  ASSERT_EQ(alone["ups0"].substr(0, 2), "2 ") << "every value read";
  SnmpEnd();  // the threads open the sessions again, all at once

  std::atomic<bool> done{false};
  std::atomic<int> finished{0};
  std::map<std::string, std::atomic<long>> rounds;
  std::vector<std::thread> threads;
  // Runs body(round) on a thread of its own until the stress is over.
  auto spawn = [&](const std::string &name, std::function<void(long)> body) {
    threads.emplace_back([&, body, &count = rounds[name]] {
      for (; !done; ++count) body(count);
      ++finished;
    });
  };
  std::atomic<long> waits{0};
  spawn("event wait", [&](long) {
    char buffer[64] = "untouched";
    const int result = TovLumiGet(0, nullptr, buffer);
    if (result != 1 || buffer != std::string(47, '0') + "8") {
      if (result != 0 || buffer != std::string("untouched")) ADD_FAILURE() << "wait " << buffer;
    }
    ++waits;
  });
  spawn("stops and events", [&](long round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(round * 37 % 300));
    const long before = waits;
    const SteadyClock::time_point asked = SteadyClock::now();
    if (round % 3 == 2) {
      pthread_mutex_lock(&g_hMutexTovLumiStopControl);
      std::atomic_ref(TrapRetStatus).store(1);
      pthread_mutex_unlock(&g_hMutexTovLumiStopControl);
    } else {
      TovLumiStop();
    }
    while (waits == before && SteadyClock::now() - asked < 3s) std::this_thread::sleep_for(5ms);
    EXPECT_NE(waits, before) << "a stop or event unanswered after 3 s";  // "about a second"
  });
  spawn("frames", [&](long round) {
    const char *request = kFrames[round % std::size(kFrames)];
    EXPECT_EQ(Send(request), alone.at(request));
  });
  spawn("watch", [](long) { EXPECT_EQ(KavAcSnmpCheck(), 1); });
  spawn("status", [&](long round) {
    const char *card = kCards[round % 3];
    EXPECT_EQ(Status(Ip(card)), alone.at(card)) << card;
  });
  // Locked writes never lose a value; unlocked ones may, but never damage a file.
  for (const char *key : {"t0", "t1"}) {
    spawn(key, [key](long round) {
      const std::string value = key + ("-" + std::to_string(round));
      WriteConfigFileEx("locked.ini", "Sec", key, value.c_str());
      WriteConfigFileEx2("free.ini", "Sec", key, value.c_str());
    });
  }
  spawn("profile reads", [latest = std::map<std::string, long>()](long round) mutable {
    const std::string key = round % 2 == 0 ? "t0" : "t1";
    char value[kConfigValueSize];
    ReadConfigFileEx("locked.ini", "Sec", key.c_str(), value);
    if (value == std::string(kDefaultValue)) return;
    EXPECT_GE(Round(value), latest[key]) << key << " " << value;
    latest[key] = Round(value);
  });
  spawn("logs", [](long round) {
    const std::string message = "stress record " + std::to_string(round);
    LumiLocalLog(message.c_str(), static_cast<DWORD>(round));
    LumiLocalLogM(static_cast<int>(round % 2), message.c_str(), 0);
    ReportLog(9000 + static_cast<int>(round % 3), message.c_str());
  });

  std::this_thread::sleep_for(4s);
  done = true;
  for (auto asked = SteadyClock::now(); finished < static_cast<int>(threads.size());) {
    if (SteadyClock::now() - asked > 60s) {
      std::fprintf(stderr, "deadlock: %zu threads still running\n", threads.size() - finished);
      std::abort();
    }
    TovLumiStop();  // the last wait
    std::this_thread::sleep_for(50ms);
  }
  for (std::thread &thread : threads) thread.join();

  for (auto &[name, count] : rounds) EXPECT_GT(count, 0) << name;
  const std::regex coded(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \[[0-9a-f]{8}\] [^\n]{80}\n)");
  const std::regex report(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d [^\n]{80}\n)");
  for (const char *log : {"snmplumi.log", "snmptrap/snmp000.log", "snmptrap/snmp001.log"}) {
    EXPECT_EQ(CheckRing(home_.data(log), 112, 111L * 8000, &coded), "");
  }
  for (const char *log : {"UPS/MYUPS.LOG", "UPS/MYUPS_1.LOG", "UPS/MYUPS_2.LOG"}) {
    EXPECT_EQ(CheckRing(home_.data(log), 101, 100L * 10000, &report), "");
  }
  const std::regex profile(R"(\n\[Sec\]\n(t0=t0-\d+\n|t1=t1-\d+\n){1,2})");
  for (const char *file : {"locked.ini", "free.ini"}) {
    EXPECT_TRUE(std::regex_match(FileText(home_.data(file)), profile)) << file;
  }
  for (const std::string key : {"t0", "t1"}) {
    char value[kConfigValueSize];
    ReadConfigFileEx("locked.ini", "Sec", key.c_str(), value);
    EXPECT_EQ(value, key + "-" + std::to_string(rounds[key] - 1)) << "every locked write arrived";
    ReadConfigFileEx("free.ini", "Sec", key.c_str(), value);
    EXPECT_TRUE(value == std::string(kDefaultValue) ||
                (Round(value) >= 0 && Round(value) < rounds[key]))
        << value;
  }
}

}  // namespace
}  // namespace snmplumi::testing
