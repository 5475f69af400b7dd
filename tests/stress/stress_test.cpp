// The host's threads all at once, and a profile and log writer killed mid-write.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <thread>

#include "card_test.h"
#include "runtime/profile.h"

namespace snmplumi::testing {
namespace {

// "" when the ring log at path (a report log: records of 101 bytes, else 112) has a valid
// header: the "00000\n" of a new file (with a hole behind it once a record follows), or eight
// digits naming a record boundary inside the ring that the file reaches; with records, every
// record whole too. Otherwise what is wrong.
std::string CheckRing(const std::string &path, bool report, bool records = false) {
  static const std::regex record(
      R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d (\[[0-9a-f]{8}\] )?[^\n]{80}\n)");
  const long record_size = report ? 101 : 112, limit = report ? 100L * 10000 : 111L * 8000;
  const std::string text = FileText(path), header = text.substr(0, 9);
  const long size = static_cast<long>(text.size());
  const long next = std::regex_match(header, std::regex(R"(\d{8}\n)")) ? std::stol(header) : -1;
  if ((header != "00000\n" || size != 6) &&
      (header != std::string("00000\n\0\0\0", 9) || size <= 9) &&
      (next < 0 || next >= limit || next % record_size != 0 || 9 + next > size)) {
    return path + ": header \"" + header + "\" in " + std::to_string(size) + " bytes";
  }
  for (long at = 9; records && at < size; at += record_size) {
    const std::string one = text.substr(static_cast<std::size_t>(at), record_size);
    if (!std::regex_match(one, record)) return path + ": torn record \"" + one + "\"";
  }
  return "";
}

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

// Frames that read the cards, and one that writes the same delay every time.
const std::string kFrames[] = {Frame("012", "000", ""), Frame("0F2", "000", ""),
                               Frame("H01", "000", ""), Frame("151", "002", "03"),
                               Frame("152", "000", ""), Frame("1B2", "000", "")};

// Everything a host does, all at once for a few seconds: no race (under ThreadSanitizer), no
// deadlock, every frame answered as when alone, no locked profile write lost, every log record
// whole and every profile valid.
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
  for (const std::string &request : kFrames) alone[request] = Send(request);
  ASSERT_EQ(alone[kFrames[1]][47], '0') << "0F2 reads the cards";
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
    const int result = TovLumiGet(0, nullptr, buffer);  // 1: stopped, with the stop string
    EXPECT_EQ(buffer, result == 1 ? std::string(47, '0') + "8" : result == 0 ? "untouched" : "");
    ++waits;
  });
  spawn("stops", [&](long round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(round * 37 % 300));
    const long before = waits;
    const SteadyClock::time_point asked = SteadyClock::now();
    TovLumiStop();
    while (waits == before && SteadyClock::now() - asked < 3s) std::this_thread::sleep_for(5ms);
    EXPECT_NE(waits, before) << "a stop unanswered after 3 s";  // "about a second"
  });
  spawn("watch", [](long) { EXPECT_EQ(KavAcSnmpCheck(), 1); });
  spawn("frames", [&](long round) {
    const std::string &request = kFrames[round % std::size(kFrames)];
    EXPECT_EQ(Send(request), alone.at(request));
  });
  // A locked write is never lost to the other thread's; unlocked ones may be, but never damage
  // a file.
  for (const char *key : {"t0", "t1"}) {
    spawn(key, [key](long round) {
      const std::string value = key + ("-" + std::to_string(round));
      WriteConfigFileEx2("free.ini", "Sec", key, value.c_str());
      WriteConfigFileEx("locked.ini", "Sec", key, value.c_str());
      char read[kConfigValueSize];
      ReadConfigFileEx("locked.ini", "Sec", key, read);
      EXPECT_EQ(read, value);
    });
  }
  spawn("logs", [](long round) {
    const std::string message = "stress record " + std::to_string(round);
    LumiLocalLog(message.c_str(), static_cast<DWORD>(round));
    LumiLocalLogM(static_cast<int>(round % 2), message.c_str(), 0);
    ReportLog(9000 + static_cast<int>(round % 3), message.c_str());
  });

  std::this_thread::sleep_for(4s);
  done = true;
  for (auto asked = SteadyClock::now(); finished < static_cast<int>(threads.size());) {
    if (SteadyClock::now() - asked > 60s) std::abort();  // a deadlock: gtest would wait forever
    TovLumiStop();                                       // the last wait
    std::this_thread::sleep_for(50ms);
  }
  for (std::thread &thread : threads) thread.join();

  for (auto &[name, count] : rounds) EXPECT_GT(count, 0) << name;
  for (const char *log : {"snmplumi.log", "snmptrap/snmp000.log", "snmptrap/snmp001.log",
                          "UPS/MYUPS.LOG", "UPS/MYUPS_1.LOG", "UPS/MYUPS_2.LOG"}) {
    EXPECT_EQ(CheckRing(home_.data(log), log[0] == 'U', true), "");
  }
  const std::regex profile(R"(\n\[Sec\]\n(t0=t0-\d+\n|t1=t1-\d+\n){1,2})");
  for (const char *file : {"locked.ini", "free.ini"}) {
    EXPECT_TRUE(std::regex_match(FileText(home_.data(file)), profile)) << file;
  }
}

// A writer killed with SIGKILL at 200 random moments while it rewrites two profile files (one on
// /dev/shm, likely another filesystem than the data directory) and writes all three ring logs:
// every profile file holds its old or its new content, and every ring log a valid header.
struct Shared {  // with the writer: file f held Render(done[f]) and becomes Render(writing[f])
  std::atomic<long> done[2], writing[2];
};

// Of changing length, so that a mix of two contents cannot pass for either.
std::string Value(long n) {
  return std::string(static_cast<std::size_t>(n % 40), 'v') + "#" + std::to_string(n);
}

// Lines the rewrite copies (more than one copy buffer), so that a copy can be caught midway.
std::string Render(long n) {
  std::string text = "[Pad]\n";
  for (int i = 0; i < 700; ++i) text += "key" + std::to_string(i) + "=a line\n";
  return text + "[Gen]\nvalue=" + Value(n) + "\n";
}

// Every other writer starts with the logs (to ten trap logs, found deleted and made anew): a
// round of rewrites can outlast a kill's delay.
[[noreturn]] void Writer(const std::string (&files)[2], Shared &shared, long first,
                         bool logs_first) {
  for (long n = first;; ++n) {
    const std::string message = "record " + std::to_string(n);
    for (int i = 0; i < 100 && (n != first || logs_first); ++i) {
      LumiLocalLog(message.c_str(), static_cast<DWORD>(n));
      LumiLocalLogM(i % 10, message.c_str(), static_cast<DWORD>(n));
      ReportLog(9000, message.c_str());
    }
    for (int f = 0; f < 2; ++f) {
      shared.writing[f] = n;
      WritePrivateProfileString("Gen", "value", Value(n).c_str(), files[f].c_str());
      shared.done[f] = n;
    }
  }
}

TEST(CrashTest, KilledWriterLeavesOldOrNewProfilesAndValidLogHeaders) {
  TempHome home;
  std::string shm = "/dev/shm/snmplumi-crash-XXXXXX";
  ASSERT_NE(mkdtemp(shm.data()), nullptr);
  std::unique_ptr<std::string, void (*)(std::string *)> remove_shm(
      &shm, [](std::string *path) { std::filesystem::remove_all(*path); });
  void *memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  Shared &shared = *new (memory) Shared{};
  const std::string files[] = {home.data("kept.ini"), shm + "/kept.ini"};
  for (const std::string &file : files) PutFile(file, Render(0));

  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  long next = 1;
  for (int kill_number = 0; kill_number < 200; ++kill_number) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(kill_number));
    std::filesystem::remove_all(home.data("snmptrap"));
    std::filesystem::create_directory(home.data("snmptrap"));
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) Writer(files, shared, next, kill_number % 2 == 1);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20001));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the writer stopped";
    for (int f = 0; f < 2; ++f) {
      const long done = shared.done[f], writing = shared.writing[f];
      const std::string text = FileText(files[f]);
      ASSERT_TRUE(text == Render(done) || text == Render(writing))
          << files[f] << " holds neither " << done << " nor " << writing << ": ..."
          << text.substr(text.size() > 100 ? text.size() - 100 : 0);
      next = std::max(next, writing + 1);
      shared.done[f] = shared.writing[f] = text == Render(done) ? done : writing;
    }
    for (const auto &trap_log : std::filesystem::directory_iterator(home.data("snmptrap"))) {
      ASSERT_EQ(CheckRing(trap_log.path(), false), "");
    }
    for (const std::string log : {"snmplumi.log", "UPS/MYUPS.LOG"}) {
      ASSERT_EQ(FileExists(home.data(log)) ? CheckRing(home.data(log), log[0] == 'U') : "", "");
    }
  }
  EXPECT_GT(next, 100) << "the writer hardly ever got to write";
  munmap(memory, sizeof(Shared));
}

}  // namespace
}  // namespace snmplumi::testing
