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

// Everything a host does, all at once for a few seconds: no race (under ThreadSanitizer), no
// deadlock, every answer the one given alone, every log record whole and every profile valid.
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
    EXPECT_TRUE((result == 1 && buffer == std::string(47, '0') + "8") ||
                (result == 0 && buffer == std::string("untouched")))
        << result << " " << buffer;
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
  spawn("watch", [](long) { EXPECT_EQ(KavAcSnmpCheck(), 1); });
  spawn("frames and status", [&](long round) {
    const char *request = kFrames[round % std::size(kFrames)], *card = kCards[round % 3];
    EXPECT_EQ(Send(request), alone.at(request));
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
    long n = -1;
    if (std::sscanf(value, "t%*d-%ld", &n) != 1) return;  // not written yet
    EXPECT_GE(n, latest[key]) << key << " " << value;
    latest[key] = n;
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
  for (const std::string key : {"t0", "t1"}) {
    char value[kConfigValueSize];
    ReadConfigFileEx("locked.ini", "Sec", key.c_str(), value);
    EXPECT_EQ(value, key + "-" + std::to_string(rounds[key] - 1)) << "every locked write arrived";
  }
}

// A writer killed with SIGKILL at 200 random moments while it rewrites profile files (one on
// /dev/shm, likely another filesystem than the data directory) and writes all three ring logs:
// every profile file holds its old or its new content, and every ring log a valid header.
constexpr long kAbsent = -1;

// Shared with the writer: each file held Render(done) and becomes Render(writing).
struct Shared {
  std::atomic<long> done[3], writing[3];
};

struct ProfileFile {
  std::string path;
  const char *data_name;  // in the data directory: written with WriteConfigFileEx
  bool recreated;         // deleted by the writer every fourth round: a new file each time
  std::string Render(long n) const {
    std::string text = recreated ? "\n" : "[Pad]\n";
    // Lines the rewrite copies, so that a copy can be caught in the middle.
    for (int i = 0; !recreated && i < 300; ++i) text += "key" + std::to_string(i) + "=a line\n";
    return text + "[Gen]\nvalue=" + Value(n) + "\n";
  }
  // Of changing length, so that a mix of two contents cannot pass for either.
  static std::string Value(long n) {
    return std::string(static_cast<std::size_t>(n % 40), 'v') + "#" + std::to_string(n);
  }
};

// Every other writer starts with the logs (to ten trap logs, found deleted and made anew): a
// round of rewrites can outlast a kill's delay.
[[noreturn]] void Writer(const std::vector<ProfileFile> &files, Shared &shared, long first,
                         bool logs_first) {
  for (long n = first;; ++n) {
    const std::string message = "record " + std::to_string(n);
    for (int i = 0; i < 100 && (n != first || logs_first); ++i) {
      LumiLocalLog(message.c_str(), static_cast<DWORD>(n));
      LumiLocalLogM(i % 10, message.c_str(), static_cast<DWORD>(n));
      ReportLog(9000, message.c_str());
    }
    for (std::size_t f = 0; f < files.size(); ++f) {
      if (files[f].recreated && n % 4 == 0) {
        shared.writing[f] = kAbsent;
        unlink(files[f].path.c_str());
        shared.done[f] = kAbsent;
      }
      shared.writing[f] = n;
      const std::string value = ProfileFile::Value(n);
      if (files[f].data_name != nullptr) {
        WriteConfigFileEx(files[f].data_name, "Gen", "value", value.c_str());
      } else {
        WritePrivateProfileString("Gen", "value", value.c_str(), files[f].path.c_str());
      }
      shared.done[f] = n;
    }
  }
}

// Which of Render(done) and Render(writing) the file holds into holds, or why neither. An empty
// new file counts as absent, and the next read deletes it.
std::string CheckProfile(const ProfileFile &file, long done, long writing, long &holds) {
  const bool exists = FileExists(file.path);
  const std::string text = FileText(file.path);
  for (long n : {done, writing}) {
    holds = n;
    if (n == kAbsent ? !exists : exists && text == file.Render(n)) return "";
  }
  if (exists && text.empty() && done == kAbsent && file.data_name != nullptr) {
    char value[kConfigValueSize];
    ReadConfigFileEx(file.data_name, "Gen", "value", value);
    holds = kAbsent;
    if (value == std::string(kDefaultValue) && !FileExists(file.path)) return "";
  }
  return file.path + " holds neither " + std::to_string(done) + " nor " + std::to_string(writing) +
         ": ..." + text.substr(text.size() > 100 ? text.size() - 100 : 0);
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
  const std::vector<ProfileFile> files = {{home.data("kept.ini"), "kept.ini", false},
                                          {shm + "/kept.ini", nullptr, false},
                                          {home.data("fresh.ini"), "fresh.ini", true}};
  for (std::size_t f = 0; f < files.size(); ++f) {
    shared.done[f] = shared.writing[f] = files[f].recreated ? kAbsent : 0;
    if (!files[f].recreated) PutFile(files[f].path, files[f].Render(0));
  }
  const std::string library_log = home.data("snmplumi.log"),
                    report_log = home.data("UPS/MYUPS.LOG");

  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  long next = 1;
  for (int kill_number = 0; kill_number < 200; ++kill_number) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(kill_number));
    std::filesystem::remove_all(home.data("snmptrap"));
    std::filesystem::create_directory(home.data("snmptrap"));
    if (kill_number % 50 == 49) {  // these start again now and then
      std::filesystem::remove(library_log);
      std::filesystem::remove(report_log);
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) Writer(files, shared, next, kill_number % 2 == 1);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20001));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the writer stopped";
    for (std::size_t f = 0; f < files.size(); ++f) {
      long holds = kAbsent;
      ASSERT_EQ(CheckProfile(files[f], shared.done[f], shared.writing[f], holds), "");
      next = std::max(next, shared.writing[f] + 1);
      shared.done[f] = shared.writing[f] = holds;  // the old content for the next writer
    }
    for (const auto &trap_log : std::filesystem::directory_iterator(home.data("snmptrap"))) {
      ASSERT_EQ(CheckRing(trap_log.path(), false), "");
    }
    ASSERT_EQ(FileExists(library_log) ? CheckRing(library_log, false) : "", "");
    ASSERT_EQ(FileExists(report_log) ? CheckRing(report_log, true) : "", "");
  }
  EXPECT_GT(next, 100) << "the writer hardly ever got to write";
  munmap(memory, sizeof(Shared));
}

}  // namespace
}  // namespace snmplumi::testing
