// A writer killed with SIGKILL at 200 random moments while it rewrites profile files (one on
// /dev/shm, likely another filesystem than the data directory) and writes all three ring logs:
// every profile file holds its old or its new content, and every ring log a valid header.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "ring_check.h"
#include "runtime/profile.h"
#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

// Records per log and round: the logs take about as long as a rewrite. The trap log records go
// to ten files, which each writer finds deleted and creates anew.
constexpr int kBurst = 100;
constexpr long kAbsent = -1;

// Shared with the writer: each file held Render(done) and becomes Render(writing); the step
// names what it was doing (a file, then a log).
struct Shared {
  std::atomic<long> done[3], writing[3];
  std::atomic<int> step;
};

// Values of changing length, so that a mix of two contents cannot pass for either.
std::string Value(long n) {
  return std::string(static_cast<std::size_t>(n % 40), 'v') + "#" + std::to_string(n);
}

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
};

// Every other writer starts with the logs: a round of rewrites can outlast a kill's delay.
[[noreturn]] void Writer(const std::vector<ProfileFile> &files, Shared &shared, long first,
                         bool logs_first) {
  for (long n = first;; ++n) {
    const std::string message = "record " + std::to_string(n);
    if (n != first || logs_first) {
      shared.step = 3;
      for (int i = 0; i < kBurst; ++i) LumiLocalLog(message.c_str(), static_cast<DWORD>(n));
      shared.step = 4;
      for (int i = 0; i < kBurst; ++i)
        LumiLocalLogM(i % 10, message.c_str(), static_cast<DWORD>(n));
      shared.step = 5;
      for (int i = 0; i < kBurst; ++i) ReportLog(9000, message.c_str());
    }
    for (std::size_t f = 0; f < files.size(); ++f) {
      shared.step = static_cast<int>(f);
      if (files[f].recreated && n % 4 == 0) {
        shared.writing[f] = kAbsent;
        unlink(files[f].path.c_str());
        shared.done[f] = kAbsent;
      }
      shared.writing[f] = n;
      if (files[f].data_name != nullptr) {
        WriteConfigFileEx(files[f].data_name, "Gen", "value", Value(n).c_str());
      } else {
        WritePrivateProfileString("Gen", "value", Value(n).c_str(), files[f].path.c_str());
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
  int kills_at[6] = {};
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
    ++kills_at[shared.step];
    for (std::size_t f = 0; f < files.size(); ++f) {
      long holds = kAbsent;
      ASSERT_EQ(CheckProfile(files[f], shared.done[f], shared.writing[f], holds), "");
      next = std::max(next, shared.writing[f] + 1);
      shared.done[f] = shared.writing[f] = holds;  // the old content for the next writer
    }
    for (const auto &trap_log : std::filesystem::directory_iterator(home.data("snmptrap"))) {
      ASSERT_EQ(CheckRing(trap_log.path(), 112, 111L * 8000), "");
    }
    ASSERT_EQ(FileExists(library_log) ? CheckRing(library_log, 112, 111L * 8000) : "", "");
    ASSERT_EQ(FileExists(report_log) ? CheckRing(report_log, 101, 100L * 10000) : "", "");
  }
  std::printf("%ld rounds; kills in kept.ini %d, /dev/shm %d, fresh.ini %d, logs %d %d %d\n",
              next - 1, kills_at[0], kills_at[1], kills_at[2], kills_at[3], kills_at[4],
              kills_at[5]);
  EXPECT_GT(next, 100) << "the writer hardly ever got to write";
  munmap(memory, sizeof(Shared));
}

}  // namespace
}  // namespace snmplumi::testing
