#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

// Names of the temporary files left in dir.
std::vector<std::string> TempFiles(const std::string &dir) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(dir)) {
    if (entry.path().extension() == ".TMP") names.push_back(entry.path().filename());
  }
  return names;
}

class ProfileTest : public ::testing::Test {
 protected:
  // The value ReadConfigFileEx gives for key of section in data file file.
  std::string Read(const char *section, const char *key, const char *file = "snmp.apc") {
    char value[260];
    std::memset(value, '#', sizeof value);
    ReadConfigFileEx(file, section, key, value);
    EXPECT_EQ(value[251], '#') << "a read fills at most 251 bytes";
    return value;
  }

  TempHome home_;
};

TEST_F(ProfileTest, ReadRules) {
  const std::string first_key = "[Snmp]\nups_ip=10.0.0.1\nUPS_IP=10.0.0.2\nUPS_IP=10.0.0.3\n";
  const std::string two_sections = "[Snmp]\nA=1\n[Other]\nB=2\n[Snmp]\nC=3\n";
  const std::string values =
      "[Snmp]\nUPS_IP = 10.0.0.1  \nCRLF=value\r\nTAB=\t\t x\nEMPTY=\nLAST=x y";
  const std::string no_comments = "[Snmp]\n; note\n# A=hidden\nplain text\nA=1\n";
  const std::string long_line = "[Snmp]\nX=" + std::string(509, 'a') + "B=tail\n";  // 511 + 6
  const std::string long_values =
      "[Snmp]\nA=" + std::string(251, 'x') + "\nB=" + std::string(250, 'y') + "\n";
  struct Row {
    std::string content;  // "-": no file
    const char *section, *key;
    std::string expected;
  } rows[] = {
      {"[snmp]\nA=lower\n", "Snmp", "A", "lower"},
      {"  [Snmp]\nA=indented\n", "Snmp", "A", "<default>"},
      {"[ Snmp ]\nA=blanks\n", "Snmp", "A", "<default>"},
      {"[Snmp] ; settings\nA=comment\n", "Snmp", "A", "comment"},
      {"[Snmpx]\nA=longer\n[Snm]\nA=shorter\n", "Snmp", "A", "<default>"},
      {values, "Snmp", "UPS_IP", "10.0.0.1  "},
      {values, "Snmp", "CRLF", "value"},
      {values, "Snmp", "TAB", "x"},
      {values, "Snmp", "EMPTY", ""},
      {values, "Snmp", "LAST", "x y"},
      {first_key, "Snmp", "UPS_IP", "10.0.0.2"},
      {first_key, "Snmp", "ups_ip", "10.0.0.1"},
      {first_key, "Snmp", "UPS_I", "<default>"},
      {two_sections, "Snmp", "A", "1"},
      {two_sections, "Other", "B", "2"},
      {two_sections, "Snmp", "C", "<default>"},
      {two_sections, "Snmp", "B", "<default>"},
      {"[Snmp]\nA=1\n[not a header\nB=2\n", "Snmp", "B", "<default>"},
      {no_comments, "Snmp", "A", "1"},
      {no_comments, "Snmp", "#", "hidden"},
      {long_line, "Snmp", "B", "tail"},
      {long_line, "Snmp", "X", std::string(249, 'a')},
      {long_values, "Snmp", "A", std::string(249, 'x')},
      {long_values, "Snmp", "B", std::string(250, 'y')},
      {"-", "Snmp", "A", "<default>"},
      {"[Snmp]\nA=1\n", "Lumi", "A", "<default>"},
  };
  for (const Row &row : rows) {
    std::filesystem::remove(home_.data("snmp.apc"));
    if (row.content != "-") PutFile(home_.data("snmp.apc"), row.content);
    EXPECT_EQ(Read(row.section, row.key), row.expected) << row.key << " in " << row.content;
  }
}

TEST_F(ProfileTest, WriteRules) {
  struct Row {
    const char *before;  // nullptr: no file
    const char *file, *section, *key, *value;
    const char *after;
  } rows[] = {
      {nullptr, "new.ini", "Section", "KEY", "value", "\n[Section]\nKEY=value\n"},
      {nullptr, "UPS/UPSinfo.ini", "1001", "IP", "127.0.0.5", "\n[1001]\nIP=127.0.0.5\n"},
      {"[Snmp]\nA=1\n  A = 2\nB=3\nA=4\n[Other]\nA=5\n", "w.ini", "SNMP", "A", "new",
       "[Snmp]\nA=new\nA=new\nB=3\nA=new\n[Other]\nA=5\n"},
      {"[Snmp]\nA=1\n\n\n[Other]\nB=2\n", "w.ini", "Snmp", "C", "3",
       "[Snmp]\nA=1\n\n\nC=3\n[Other]\nB=2\n"},
      {"[Snmp]\nA=1\n[Other]\nB=2\n", "w.ini", "Other", "D", "4",
       "[Snmp]\nA=1\n[Other]\nB=2\nD=4\n"},
      {"[Snmp]\nA=1\n", "w.ini", "Third", "E", "5", "[Snmp]\nA=1\n\n[Third]\nE=5\n"},
      {"[Snmp]\nA=1\n[Snmp]\nB=2\n", "w.ini", "Snmp", "B", "9", "[Snmp]\nA=1\nB=9\n[Snmp]\nB=9\n"},
      {"[Other]\nrate=100%d\npercent=50%%\nname=%s!\ncount=%n.\n[Snmp]\nA=1\n", "w.ini", "Snmp",
       "A", "100%d", "[Other]\nrate=1000\npercent=50%\nname=!\ncount=.\n[Snmp]\nA=100%d\n"},
  };
  for (const Row &row : rows) {
    std::filesystem::remove(home_.data(row.file));
    if (row.before != nullptr) PutFile(home_.data(row.file), row.before);
    WriteConfigFileEx(row.file, row.section, row.key, row.value);
    EXPECT_EQ(FileText(home_.data(row.file)), row.after) << row.key << " into " << row.before;
    EXPECT_TRUE(TempFiles(home_.data()).empty());
  }
}

TEST_F(ProfileTest, Win32CallsCountAsWin32Does) {
  std::string path = home_.data("p.ini");
  PutFile(path, "[S]\nK=abcdef\nN=42abc\nNEG=-5\nTEXT=abc\n");
  struct Row {
    const char *section, *key, *fallback;
    int size, result;
    std::string buffer;  // the first 12 bytes afterwards, '#' untouched
  } rows[] = {
      {"S", "K", "dflt", 4, 3, std::string("abc\0########", 12)},
      {"S", "K", "dflt", 6, 6, std::string("abcdef\0#####", 12)},  // NUL one past the size
      {"S", "X", "dflt", 10, 9, std::string("dflt\0####\0##", 12)},
      {"S", "X", "a-long-default", 5, 4, std::string("a-lo\0#######", 12)},
      {"S", "X", "dflt", 0, 0, std::string(12, '#')},
      {nullptr, "K", "dflt", 8, 7, std::string("dflt\0##\0####", 12)},
  };
  for (const Row &row : rows) {
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(
        GetPrivateProfileString(row.section, row.key, row.fallback, buffer, row.size, path.c_str()),
        row.result)
        << row.key << " size " << row.size;
    EXPECT_EQ(std::string(buffer, 12), row.buffer) << row.key << " size " << row.size;
  }
  const std::pair<const char *, unsigned> numbers[] = {
      {"N", 42u}, {"NEG", 0u}, {"TEXT", 0u}, {"MISSING", 7u}};
  for (const auto &[key, value] : numbers) {
    EXPECT_EQ(GetPrivateProfileInt("S", key, 7, path.c_str()), value) << key;
  }
}

TEST_F(ProfileTest, EmptyFileIsDeletedByTheNextRead) {
  PutFile(home_.data("snmp.apc"), "");
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
  EXPECT_FALSE(FileExists(home_.data("snmp.apc")));
  EXPECT_EQ(LibraryLog(home_), (std::vector<LogRecord>{{0, "[snmp.apc]delete..."}}));

  PutFile(home_.data("snmp.apc"), "[Snmp]\n");
  FileCheck("snmp.apc/inside");  // a file is no directory: the check fails and says so
  EXPECT_EQ(LibraryLog(home_).back(), (LogRecord{ENOTDIR, "[snmp.apc/inside] stat err..."}));

  PutFile(home_.data("snmp.apc"), "");
  char value[251];
  ReadConfigFileEx2("snmp.apc", "Snmp", "A", value);
  EXPECT_STREQ(value, "<default>");
  EXPECT_TRUE(FileExists(home_.data("snmp.apc"))) << "the unchecked variant deletes nothing";
}

TEST_F(ProfileTest, WriteFailsCleanlyWithoutDataDirectory) {
  std::string outside = home_.root() + "/outside.ini";
  std::filesystem::remove_all(home_.data());
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(WritePrivateProfileString("S", "K", "v", outside.c_str()), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10))
      << "the temporary-name search is bounded";
  EXPECT_EQ(FileText(outside), "") << "only the empty file created before the copy remains";
}

// The copy is finished, but the target's filesystem takes no file beside it.
TEST_F(ProfileTest, TargetWhoseFilesystemTakesNoCopyIsLeftAlone) {
  const char *target = "/proc/version";
  std::string before = FileText(target);
  ASSERT_FALSE(before.empty());
  EXPECT_EQ(WritePrivateProfileString("S", "K", "v", target), 0);
  EXPECT_EQ(FileText(target), before);
  EXPECT_TRUE(TempFiles(home_.data()).empty());
}

TEST_F(ProfileTest, ConcurrentWritersLoseNoUpdate) {
  constexpr int kThreads = 4;
  constexpr int kKeys = 40;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int k = 0; k < kKeys; ++k) {
        std::string key = "K" + std::to_string(t) + "_" + std::to_string(k);
        WriteConfigFileEx("shared.ini", "S", key.c_str(), std::to_string(k).c_str());
      }
    });
  }
  for (auto &thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    for (int k = 0; k < kKeys; ++k) {
      std::string key = "K" + std::to_string(t) + "_" + std::to_string(k);
      EXPECT_EQ(Read("S", key.c_str(), "shared.ini"), std::to_string(k)) << key;
    }
  }
  EXPECT_TRUE(TempFiles(home_.data()).empty());
}

TEST_F(ProfileTest, ConcurrentReadersEachGetTheirOwnValue) {
  std::string content = "[S]\n";
  for (int k = 0; k < 8; ++k) content += "K" + std::to_string(k) + "=v" + std::to_string(k) + "\n";
  PutFile(home_.data("snmp.apc"), content);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int k = 0; k < 8; ++k) {
    threads.emplace_back([k, &wrong] {
      std::string key = "K" + std::to_string(k);
      std::string expected = "v" + std::to_string(k);
      for (int i = 0; i < 300; ++i) {
        char value[251];
        ReadConfigFileEx2("snmp.apc", "S", key.c_str(), value);  // no mutex on this path
        if (expected != value) ++wrong;
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

// Hosts name targets on any filesystem; "shm" puts the target on another one than the data
// directory, where the temporary file is written.
class ProfileTargetTest : public ProfileTest, public ::testing::WithParamInterface<const char *> {
 protected:
  void SetUp() override {
    if (std::string(GetParam()) == "data") {
      dir_ = home_.data();
      return;
    }
    struct stat shm, data;
    if (stat("/dev/shm", &shm) != 0 || stat(home_.data().c_str(), &data) != 0 ||
        shm.st_dev == data.st_dev) {
      GTEST_SKIP() << "no /dev/shm on a filesystem of its own";
    }
    std::string pattern = "/dev/shm/snmplumi-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = own_dir_ = pattern;
  }
  void TearDown() override {
    if (!own_dir_.empty()) std::filesystem::remove_all(own_dir_);
  }

  std::string dir_;
  std::string own_dir_;
};

INSTANTIATE_TEST_SUITE_P(Targets, ProfileTargetTest, ::testing::Values("data", "shm"),
                         [](const auto &info) { return std::string(info.param); });

TEST_P(ProfileTargetTest, WriteReplacesTheTargetAndLeavesNoTemporaryFile) {
  std::string target = dir_ + "/x.ini";
  ASSERT_EQ(WritePrivateProfileString("S", "K", "NEW", target.c_str()), 1);
  EXPECT_EQ(FileText(target), "\n[S]\nK=NEW\n");
  ASSERT_EQ(WritePrivateProfileString("S", "K", "NEWER", target.c_str()), 1);
  char value[16];
  EXPECT_EQ(GetPrivateProfileString("S", "K", "", value, sizeof value, target.c_str()), 5);
  EXPECT_STREQ(value, "NEWER");
  EXPECT_TRUE(TempFiles(dir_).empty());
  EXPECT_TRUE(TempFiles(home_.data()).empty());
}

TEST_P(ProfileTargetTest, FailedWriteKeepsTheTargetAndRemovesTheCopy) {
  std::string target = dir_ + "/dir.ini";
  std::filesystem::create_directories(target + "/keep");
  EXPECT_EQ(WritePrivateProfileString("S", "K", "v", target.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_directory(target + "/keep"));
  EXPECT_TRUE(TempFiles(dir_).empty());
  EXPECT_TRUE(TempFiles(home_.data()).empty());
}

// A rewrite killed at any moment leaves the old file or the new one, never a part of either.
TEST_P(ProfileTargetTest, KilledRewriteNeverLeavesAHalfWrittenTarget) {
  std::string old_content = "[Big]\n";
  for (int i = 0; i < 3000; ++i) old_content += "key" + std::to_string(i) + "=old value\n";
  std::string target = dir_ + "/big.ini";
  PutFile(target, old_content);
  std::string new_content = old_content;
  new_content.replace(new_content.find("key1500=old value"), 17, "key1500=new value");

  for (int round = 0; round < 20; ++round) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (;;) {
        WritePrivateProfileString("Big", "key1500", "new value", target.c_str());
        WritePrivateProfileString("Big", "key1500", "old value", target.c_str());
      }
    }
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + round * 1500));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::string content = FileText(target);
    ASSERT_TRUE(content == old_content || content == new_content)
        << "round " << round << ": " << content.size() << " bytes";
  }
}

}  // namespace
}  // namespace snmplumi::testing
