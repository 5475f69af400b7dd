#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

constexpr std::size_t kLibraryRecord = 112;
constexpr std::size_t kReportRecord = 101;

// The 80-character message field of a record.
std::string Field(const std::string &message) {
  std::string field = message.substr(0, 80);
  field.resize(80, ' ');
  return field;
}

class RingLogTest : public ::testing::Test {
 protected:
  void SetUp() override { UseUtc(); }

  std::string LibraryLog() const { return home_.data("snmplumi.log"); }

  TempHome home_;
  FakeClock clock_{kSomeTime};
};

TEST_F(RingLogTest, FirstRecordOfNewLogLandsAfterHeader) {
  LumiLocalLog("hello", 0x2a);
  EXPECT_EQ(FileText(LibraryLog()),
            "00000112\n2026/11/22 23:28:00 [0000002a] " + Field("hello") + "\n");
}

TEST_F(RingLogTest, NewFileStartsWithShortHeaderReadAsPositionZero) {
  PutFile(LibraryLog(), "00000\n");
  LumiLocalLog("first", 0);
  std::string content = FileText(LibraryLog());
  ASSERT_EQ(content.size(), 9 + kLibraryRecord);
  EXPECT_EQ(content.substr(0, 9), "00000112\n");
  EXPECT_EQ(content.substr(9, 31), "2026/11/22 23:28:00 [00000000] ");
}

TEST_F(RingLogTest, MessageFieldIsCutOrPaddedToEightyCharacters) {
  std::string exact(80, 'x');
  std::string longer = std::string(80, 'y') + "z";
  LumiLocalLog(exact.c_str(), 0);
  LumiLocalLog(longer.c_str(), 0);
  LumiLocalLog("", 0);
  LumiLocalLog(nullptr, 0);
  auto records = RingRecords(LibraryLog(), kLibraryRecord);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].substr(31), exact);
  EXPECT_EQ(records[1].substr(31), std::string(80, 'y'));
  EXPECT_EQ(records[2].substr(31), std::string(80, ' '));
  EXPECT_EQ(records[3].substr(31), std::string(80, ' '));
  EXPECT_EQ(FileText(LibraryLog()).substr(0, 9), "00000448\n");
}

TEST_F(RingLogTest, LibraryLogWrapsAfter7929Records) {
  for (int i = 1; i <= 7928; ++i) LumiLocalLog("filler", static_cast<DWORD>(i));
  EXPECT_EQ(FileText(LibraryLog()).substr(0, 9), "00887936\n");

  LumiLocalLog("record 7929", 7929);
  std::string content = FileText(LibraryLog());
  EXPECT_EQ(content.substr(0, 9), "00000000\n");
  EXPECT_EQ(content.substr(9 + 887936 + 20, 22), "[00001ef9] record 7929");
  EXPECT_EQ(content.size(), 9 + 888048u);

  LumiLocalLog("record 7930", 7930);
  content = FileText(LibraryLog());
  EXPECT_EQ(content.substr(0, 9), "00000112\n");
  EXPECT_EQ(content.substr(9 + 20, 22), "[00001efa] record 7930");
  EXPECT_EQ(content.substr(9 + 112 + 20, 10), "[00000002]");
  EXPECT_EQ(content.size(), 9 + 888048u) << "the ring never grows past its limit";
}

TEST_F(RingLogTest, ReportLogWrapsAfter9901Records) {
  std::string path = home_.data("UPS/MYUPS.LOG");
  PutFile(path, "00999799\n");  // 9899 records of 101 bytes written before
  ReportLog(9000, "record 9900");
  EXPECT_EQ(FileText(path).substr(0, 9), "00999900\n");
  ReportLog(9000, "record 9901");
  std::string content = FileText(path);
  EXPECT_EQ(content.substr(0, 9), "00000000\n");
  EXPECT_EQ(content.substr(9 + 999900), "2026/11/22 23:28:00 " + Field("record 9901") + "\n");
  EXPECT_EQ(content.size(), 9 + 999900 + kReportRecord);
}

TEST_F(RingLogTest, ReportLogFileFollowsIndex) {
  const std::pair<int, const char *> cases[] = {
      {9000, "UPS/MYUPS.LOG"},   {9001, "UPS/MYUPS_1.LOG"}, {9129, "UPS/MYUPS_129.LOG"},
      {1000, "UPS/UPS1000.LOG"}, {8999, "UPS/UPS8999.LOG"}, {7, "UPS/UPS007.LOG"},
      {115, "UPS/UPS115.LOG"},   {-3, "UPS/UPS-03.LOG"},
  };
  for (const auto &[index, file] : cases) {
    ReportLog(index, "report");
    std::string content = FileText(home_.data(file));
    EXPECT_EQ(content, "00000101\n2026/11/22 23:28:00 " + Field("report") + "\n") << file;
  }
}

TEST_F(RingLogTest, TrapLogIsPerIndexUnderInstallDirectory) {
  LumiLocalLogM(7, "trap line", 5);
  EXPECT_EQ(FileText(home_.data("snmptrap/snmp007.log")),
            "00000112\n2026/11/22 23:28:00 [00000005] " + Field("trap line") + "\n");
  EXPECT_FALSE(FileExists(LibraryLog()));
}

TEST_F(RingLogTest, WriterThatCannotCreateItsFileReportsInLibraryLog) {
  std::filesystem::remove_all(home_.data("snmptrap"));
  std::filesystem::remove_all(home_.data("UPS"));
  LumiLocalLogM(12, "lost", 0);
  ReportLog(9001, "lost");
  auto records = RingRecords(LibraryLog(), kLibraryRecord);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].substr(20),
            "[00000000] " + Field(" can't open [" + home_.root() + "/data/snmptrap/snmp012.log]"));
  EXPECT_EQ(records[1].substr(20),
            "[00000000] " + Field(" Can't make [" + home_.data("UPS/MYUPS_1.LOG") + "]!"));
}

TEST_F(RingLogTest, LibraryLogWithoutDirectoryLosesOnlyThatRecord) {
  std::filesystem::remove_all(home_.data());
  LumiLocalLog("nowhere to go", 0);
  EXPECT_FALSE(FileExists(home_.data()));
  std::filesystem::create_directory(home_.data());
  LumiLocalLog("back again", 0);
  EXPECT_EQ(RingRecords(LibraryLog(), kLibraryRecord).size(), 1u);
}

TEST_F(RingLogTest, PositionIsTakenFromTheHeader) {
  PutFile(LibraryLog(), "00000224\n");
  LumiLocalLog("third slot", 0);
  std::string content = FileText(LibraryLog());
  EXPECT_EQ(content.substr(0, 9), "00000336\n");
  EXPECT_EQ(content.substr(9 + 224 + 31, 10), "third slot");

  PutFile(LibraryLog(), "-0000050\n");  // only a hand-damaged header is negative
  LumiLocalLog("restart", 0);
  content = FileText(LibraryLog());
  EXPECT_EQ(content.substr(0, 9), "00000112\n");
  EXPECT_EQ(content.substr(9 + 31, 7), "restart");
}

TEST_F(RingLogTest, ConcurrentWritersLeaveOnlyWholeRecords) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 2000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int n = 0; n < kPerThread; ++n) {
        std::string msg = "thread " + std::to_string(t) + " record " + std::to_string(n);
        LumiLocalLog(msg.c_str(), static_cast<DWORD>(t));
      }
    });
  }
  for (auto &thread : threads) thread.join();

  std::string content = FileText(LibraryLog());
  long position = std::stol(content.substr(0, 8));
  EXPECT_EQ(content[8], '\n');
  EXPECT_EQ(position % 112, 0);
  EXPECT_EQ(content.size(), 9 + 888048u) << "16000 records fill the ring of 7929";
  // 16000 records: the ring holds the last 7929, oldest at the header's position.
  EXPECT_EQ(position, (16000 % 7929) * 112);

  const std::regex record_shape(
      R"(2026/11/22 23:28:00 \[0000000([0-7])\] thread ([0-7]) record (\d+) *)");
  auto records = RingRecords(LibraryLog(), kLibraryRecord);
  ASSERT_EQ(records.size(), 7929u);
  std::rotate(records.begin(), records.begin() + position / 112, records.end());
  // Oldest first, the ring holds the last 7929 records written: for each thread, a run of its
  // most recent records in order, ending with its last one.
  std::vector<std::vector<int>> seen(kThreads);
  for (const std::string &record : records) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(record, match, record_shape)) << record;
    ASSERT_EQ(match[1], match[2]) << record;
    seen[std::stoi(match[2])].push_back(std::stoi(match[3]));
  }
  for (int t = 0; t < kThreads; ++t) {
    for (std::size_t i = 0; i < seen[t].size(); ++i) {
      ASSERT_EQ(seen[t][i], kPerThread - static_cast<int>(seen[t].size() - i)) << "thread " << t;
    }
  }
}

TEST_F(RingLogTest, StatusCodesMapToTheirCharacterAndMessage) {
  struct Row {
    DWORD code;
    char status;
    const char *name;
  };
  // One row of each status character, and two codes the table does not know.
  const Row rows[] = {
      {UPS_E_BAD_PROTCOL, 'F', "UPS_E_BAD_PROTCOL"},
      {UPS_E_INVALID_PARAM, 'A', "UPS_E_INVALID_PARAM"},
      {UPS_E_MANAGER_CONNECTED, '9', "UPS_E_MANAGER_CONNECTED"},
      {UPSC_E_PROCESS_NOW, '7', "UPSC_E_PROCESS_NOW"},
      {UPS_E_NO_SERVER, '7', "UPS_E_NO_SERVER"},
      {UPS_E_CANT_ACCESS, 'F', "UPS_E_CANT_ACCESS"},
      {UPS_E_NOT_COMMAND_UPS, 'A', "UPS_E_NOT_COMMAND_UPS"},
      {0x80000001u, 'F', "?"},
      {1u, 'F', "?"},
  };
  EXPECT_EQ(SetErs2Status(5, 0), '0');
  EXPECT_FALSE(FileExists(LibraryLog())) << "status 0 logs nothing";

  int mode = 100;
  for (const Row &row : rows) EXPECT_EQ(SetErs2Status(mode++, row.code), row.status) << row.name;
  auto records = RingRecords(LibraryLog(), kLibraryRecord);
  ASSERT_EQ(records.size(), std::size(rows));
  mode = 100;
  for (std::size_t i = 0; i < records.size(); ++i) {
    char expected[128];
    std::snprintf(expected, sizeof expected, "[%08x] Command Error(%s)", mode++, rows[i].name);
    EXPECT_EQ(records[i].substr(20, std::strlen(expected)), expected);
  }
}

}  // namespace
}  // namespace snmplumi::testing
