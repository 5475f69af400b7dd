#include <gtest/gtest.h>
#include <signal.h>
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

class ProfileTest : public ::testing::Test {
 protected:
  // The value ReadConfigFileEx gives for key of section in data file "snmp.apc".
  std::string Read(const char *section, const char *key, const char *file = "snmp.apc") {
    char value[251];
    std::memset(value, '#', sizeof value);
    ReadConfigFileEx(file, section, key, value);
    return value;
  }

  void Write(const std::string &content, const char *file = "snmp.apc") {
    PutFile(home_.data(file), content);
  }

  std::string Content(const char *file = "snmp.apc") { return FileText(home_.data(file)); }

  std::vector<std::string> TempFiles() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(home_.data())) {
      if (entry.path().extension() == ".TMP") names.push_back(entry.path().filename());
    }
    return names;
  }

  TempHome home_;
};

TEST_F(ProfileTest, SectionHeaderMustStartTheLineAndMatchesAnyCase) {
  Write("[snmp]\nA=lower\n");
  EXPECT_EQ(Read("Snmp", "A"), "lower");
  Write("  [Snmp]\nA=indented\n");
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
  Write("[ Snmp ]\nA=blanks\n");
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
  Write("[Snmp] ; settings\nA=comment\n");
  EXPECT_EQ(Read("Snmp", "A"), "comment");
  Write("[Snmpx]\nA=longer\n[Snm]\nA=shorter\n");
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
}

TEST_F(ProfileTest, ValueKeepsTrailingBlanksAndLosesLineEnd) {
  Write("[Snmp]\nUPS_IP = 10.0.0.1  \nCRLF=value\r\nTAB=\t\t x\nEMPTY=\nLAST=no newline");
  EXPECT_EQ(Read("Snmp", "UPS_IP"), "10.0.0.1  ");
  EXPECT_EQ(Read("Snmp", "CRLF"), "value");
  EXPECT_EQ(Read("Snmp", "TAB"), "x");
  EXPECT_EQ(Read("Snmp", "EMPTY"), "");
  EXPECT_EQ(Read("Snmp", "LAST"), "no newline");
}

TEST_F(ProfileTest, KeysMatchCaseSensitivelyAndFirstOneWins) {
  Write("[Snmp]\nups_ip=10.0.0.1\nUPS_IP=10.0.0.2\nUPS_IP=10.0.0.3\nUPS_IP2=10.0.0.4\n");
  EXPECT_EQ(Read("Snmp", "UPS_IP"), "10.0.0.2");
  EXPECT_EQ(Read("Snmp", "ups_ip"), "10.0.0.1");
  EXPECT_EQ(Read("Snmp", "UPS_I"), "<default>");
}

TEST_F(ProfileTest, OnlyTheFirstSectionOfANameIsSearched) {
  Write("[Snmp]\nA=1\n[Other]\nB=2\n[Snmp]\nC=3\n");
  EXPECT_EQ(Read("Snmp", "A"), "1");
  EXPECT_EQ(Read("Other", "B"), "2");
  EXPECT_EQ(Read("Snmp", "C"), "<default>");
  EXPECT_EQ(Read("Snmp", "B"), "<default>");
}

TEST_F(ProfileTest, AnyLineStartingWithBracketEndsTheSection) {
  Write("[Snmp]\nA=1\n[not a header\nB=2\n");
  EXPECT_EQ(Read("Snmp", "A"), "1");
  EXPECT_EQ(Read("Snmp", "B"), "<default>");
}

TEST_F(ProfileTest, LinesWithoutEqualsAreIgnoredAndCommentsAreKeys) {
  Write("[Snmp]\n; note\n# A=hidden\nplain text\nA=1\n");
  EXPECT_EQ(Read("Snmp", "A"), "1");
  EXPECT_EQ(Read("Snmp", "#"), "hidden") << "there is no comment syntax";
}

TEST_F(ProfileTest, OverlongLineIsReadAsSeveralLines) {
  Write("[Snmp]\nX=" + std::string(509, 'a') + "B=tail\n");  // 511 characters, then "B=tail"
  EXPECT_EQ(Read("Snmp", "B"), "tail");
  EXPECT_EQ(Read("Snmp", "X"), std::string(249, 'a'));
}

TEST_F(ProfileTest, MissingFileSectionOrKeyGivesDefault) {
  EXPECT_EQ(Read("Snmp", "A", "absent.apc"), "<default>");
  Write("[Snmp]\nA=1\n");
  EXPECT_EQ(Read("Lumi", "A"), "<default>");
  EXPECT_EQ(Read("Snmp", "B"), "<default>");
}

TEST_F(ProfileTest, EmptyFileIsDeletedByTheNextRead) {
  Write("");
  EXPECT_EQ(Read("Snmp", "A"), "<default>");
  EXPECT_FALSE(FileExists(home_.data("snmp.apc")));
  auto records = RingRecords(home_.data("snmplumi.log"), 112);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].substr(20, 33), "[00000000] [snmp.apc]delete...   ");

  Write("[Snmp]\n");
  FileCheck("snmp.apc/inside");  // a file is no directory: the check fails and says so
  EXPECT_EQ(LibraryLog(home_).back(), (LogRecord{ENOTDIR, "[snmp.apc/inside] stat err..."}));

  Write("");
  char value[251];
  ReadConfigFileEx2("snmp.apc", "Snmp", "A", value);
  EXPECT_STREQ(value, "<default>");
  EXPECT_TRUE(FileExists(home_.data("snmp.apc"))) << "the unchecked variant deletes nothing";
}

TEST_F(ProfileTest, ReadStoresAtMost250CharactersAndTheNul) {
  char value[260];
  Write("[Snmp]\nA=" + std::string(251, 'x') + "\nB=" + std::string(250, 'y') + "\n");
  std::memset(value, '#', sizeof value);
  ReadConfigFileEx("snmp.apc", "Snmp", "A", value);
  EXPECT_EQ(std::string(value), std::string(249, 'x'));
  std::memset(value, '#', sizeof value);
  ReadConfigFileEx("snmp.apc", "Snmp", "B", value);
  EXPECT_EQ(std::string(value), std::string(250, 'y')) << "exactly the size is stored whole";
  EXPECT_EQ(value[251], '#');
}

TEST_F(ProfileTest, GetPrivateProfileStringCountsAsWin32Does) {
  std::string path = home_.data("p.ini");
  PutFile(path, "[S]\nK=abcdef\n");
  char buffer[16];

  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(GetPrivateProfileString("S", "K", "dflt", buffer, 4, path.c_str()), 3);
  EXPECT_STREQ(buffer, "abc");
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(GetPrivateProfileString("S", "K", "dflt", buffer, 6, path.c_str()), 6);
  EXPECT_STREQ(buffer, "abcdef");

  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(GetPrivateProfileString("S", "X", "dflt", buffer, 10, path.c_str()), 9);
  EXPECT_STREQ(buffer, "dflt");
  EXPECT_EQ(buffer[5], '#');
  EXPECT_EQ(buffer[9], '\0');
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(GetPrivateProfileString("S", "X", "a-long-default", buffer, 5, path.c_str()), 4);
  EXPECT_STREQ(buffer, "a-lo");
  EXPECT_EQ(GetPrivateProfileString("S", "X", "dflt", buffer, 0, path.c_str()), 0);
  EXPECT_EQ(GetPrivateProfileString(nullptr, "K", "dflt", buffer, 8, path.c_str()), 7);
  EXPECT_STREQ(buffer, "dflt");
}

TEST_F(ProfileTest, GetPrivateProfileIntReadsNonNegativeNumbers) {
  std::string path = home_.data("p.ini");
  PutFile(path, "[S]\nN=42abc\nNEG=-5\nTEXT=abc\n");
  EXPECT_EQ(GetPrivateProfileInt("S", "N", 7, path.c_str()), 42u);
  EXPECT_EQ(GetPrivateProfileInt("S", "NEG", 7, path.c_str()), 0u);
  EXPECT_EQ(GetPrivateProfileInt("S", "TEXT", 7, path.c_str()), 0u);
  EXPECT_EQ(GetPrivateProfileInt("S", "MISSING", 7, path.c_str()), 7u);
}

TEST_F(ProfileTest, WriteCreatesAMissingFile) {
  WriteConfigFileEx("new.ini", "Section", "KEY", "value");
  EXPECT_EQ(Content("new.ini"), "\n[Section]\nKEY=value\n");
  EXPECT_EQ(Read("Section", "KEY", "new.ini"), "value");
}

TEST_F(ProfileTest, WriteReplacesEveryMatchingLineInTheSection) {
  Write("[Snmp]\nA=1\n  A = 2\nB=3\nA=4\n[Other]\nA=5\n");
  WriteConfigFileEx("snmp.apc", "SNMP", "A", "new");
  EXPECT_EQ(Content(), "[Snmp]\nA=new\nA=new\nB=3\nA=new\n[Other]\nA=5\n");
}

TEST_F(ProfileTest, NewKeyGoesBeforeTheNextSectionAfterBlankLines) {
  Write("[Snmp]\nA=1\n\n\n[Other]\nB=2\n");
  WriteConfigFileEx("snmp.apc", "Snmp", "C", "3");
  EXPECT_EQ(Content(), "[Snmp]\nA=1\n\n\nC=3\n[Other]\nB=2\n");
  WriteConfigFileEx("snmp.apc", "Other", "D", "4");
  EXPECT_EQ(Content(), "[Snmp]\nA=1\n\n\nC=3\n[Other]\nB=2\nD=4\n");
  WriteConfigFileEx("snmp.apc", "Third", "E", "5");
  EXPECT_EQ(Content(), "[Snmp]\nA=1\n\n\nC=3\n[Other]\nB=2\nD=4\n\n[Third]\nE=5\n");
}

TEST_F(ProfileTest, WriteReachesAKeyThatOnlyASecondSectionHolds) {
  Write("[Snmp]\nA=1\n[Snmp]\nB=2\n");
  EXPECT_EQ(Read("Snmp", "B"), "<default>");
  WriteConfigFileEx("snmp.apc", "Snmp", "B", "9");
  EXPECT_EQ(Content(), "[Snmp]\nA=1\nB=9\n[Snmp]\nB=9\n");
}

TEST_F(ProfileTest, CopiedLinesAreInterpretedAsFormats) {
  Write("[Other]\nrate=100%d\npercent=50%%\nname=%s!\ncount=%n.\n[Snmp]\nA=1\n");
  WriteConfigFileEx("snmp.apc", "Snmp", "A", "100%d");
  EXPECT_EQ(Content(), "[Other]\nrate=1000\npercent=50%\nname=!\ncount=.\n[Snmp]\nA=100%d\n");
}

TEST_F(ProfileTest, WriteIntoASubdirectory) {
  WriteConfigFileEx("UPS/UPSinfo.ini", "1001", "IP", "127.0.0.5");
  EXPECT_EQ(Read("1001", "IP", "UPS/UPSinfo.ini"), "127.0.0.5");
  EXPECT_TRUE(TempFiles().empty());
}

TEST_F(ProfileTest, QuotesInThePathRunNoCommand) {
  const char *name = "x'; touch pwned; echo '";
  WriteConfigFileEx(name, "S", "K", "v");
  EXPECT_EQ(FileText(home_.data(name)), "\n[S]\nK=v\n");
  EXPECT_FALSE(FileExists(home_.data("pwned")));
  EXPECT_FALSE(FileExists("pwned"));
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

TEST_F(ProfileTest, FailedRenameKeepsTheTargetAndRemovesTheCopy) {
  std::string target = home_.data("dir.ini");
  std::filesystem::create_directory(target);
  std::filesystem::create_directory(target + "/keep");
  EXPECT_EQ(WritePrivateProfileString("S", "K", "v", target.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_directory(target + "/keep"));
  EXPECT_TRUE(TempFiles().empty());
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
  EXPECT_TRUE(TempFiles().empty());
}

TEST_F(ProfileTest, ConcurrentReadersEachGetTheirOwnValue) {
  std::string content = "[S]\n";
  for (int k = 0; k < 8; ++k)
    content += "K" + std::to_string(k) + "=value" + std::to_string(k) + "\n";
  Write(content);
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int k = 0; k < 8; ++k) {
    threads.emplace_back([k, &wrong] {
      std::string key = "K" + std::to_string(k);
      std::string expected = "value" + std::to_string(k);
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

// A rewrite killed at any moment leaves the old file or the new one, never a part of either.
TEST_F(ProfileTest, KilledRewriteNeverLeavesAHalfWrittenTarget) {
  std::string old_content = "[Big]\n";
  for (int i = 0; i < 3000; ++i) old_content += "key" + std::to_string(i) + "=old value\n";
  Write(old_content, "big.ini");
  std::string new_content = old_content;
  new_content.replace(new_content.find("key1500=old value"), 17, "key1500=new value");

  for (int round = 0; round < 20; ++round) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (;;) {
        WriteConfigFileEx("big.ini", "Big", "key1500", "new value");
        WriteConfigFileEx("big.ini", "Big", "key1500", "old value");
      }
    }
    std::this_thread::sleep_for(std::chrono::microseconds(2000 + round * 1500));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::string content = Content("big.ini");
    ASSERT_TRUE(content == old_content || content == new_content)
        << "round " << round << ": " << content.size() << " bytes";
  }
}

}  // namespace
}  // namespace snmplumi::testing
