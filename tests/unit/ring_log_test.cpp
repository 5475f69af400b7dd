#include "runtime/ring_log.h"

#include <fstream>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

std::string Field(const std::string &message) {
  return (message + std::string(80, ' ')).substr(0, 80);
}

class RingLogTest : public HomeTest {
 protected:
  void SetUp() override { UseUtc(); }

  std::string LogPath() const { return home_.data("snmplumi.log"); }
  FakeClock clock_{kSomeTime};
};

// Past the ring's end the next record goes to 0; messages are cut or padded to 80 characters.
TEST_F(RingLogTest, HeaderGivesWhereTheNextRecordGoes) {
  const std::string y81 = std::string(80, 'y') + "z";
  const std::tuple<int, const char *, const char *, long, const char *, const char *> rows[] = {
      // Index, file, its header (nullptr: no file yet), where the record goes, the next header.
      {0, "snmplumi.log", nullptr, 0, "00000112", "next"},
      {0, "snmplumi.log", "00000\n", 0, "00000112", "next"},  // the short header of a new file
      {0, "snmplumi.log", "00000336\n", 336, "00000448", y81.c_str()},
      {0, "snmplumi.log", "00000560\n", 560, "00000672", nullptr},
      {0, "snmplumi.log", "-0000050\n", 0, "00000112", "next"},    // only a hand-damaged header is
      {0, "snmplumi.log", "99999999\n", 0, "00000112", "next"},    // negative, or past the ring
      {0, "snmplumi.log", "00000300\n", 224, "00000336", "next"},  // inside a record: at its start
      {0, "snmplumi.log", "00887936\n", 887936, "00000000", "next"},      // record 7929 wraps
      {9000, "UPS/MYUPS.LOG", "00999900\n", 999900, "00000000", "next"},  // record 9901 wraps
      {9001, "UPS/MYUPS_1.LOG", nullptr, 0, "00000101", "next"},
      {7, "snmptrap/snmp007.log", nullptr, 0, "00000112", "next"},
  };
  for (const auto &[index, file, header, at, next, message] : rows) {
    std::string path = home_.data(file);
    std::filesystem::remove(path);
    if (header != nullptr) PutFile(path, header);
    std::string record = "2026/11/22 23:28:00 ";
    if (std::string(file).starts_with("UPS/")) {
      ReportLog(index, message);
    } else {
      index == 0 ? LumiLocalLog(message, 0x2a) : LumiLocalLogM(index, message, 0x2a);
      record += "[0000002a] ";
    }
    std::string content = FileText(path);
    EXPECT_EQ(content.substr(0, 9), std::string(next) + "\n") << file << " " << header;
    EXPECT_EQ(content.substr(9 + at), record + Field(message ? message : "") + "\n")
        << file << " " << header;
  }
}

// A missing directory loses the record; the trap and report writers say so in the library log.
TEST_F(RingLogTest, WriterThatCannotCreateItsFileLosesTheRecord) {
  std::filesystem::remove_all(home_.data("snmptrap"));
  std::filesystem::remove_all(home_.data("UPS"));
  LumiLocalLogM(12, "lost", 0);
  ReportLog(9001, "lost");
  EXPECT_EQ(LogMessages(home_).size(), 2u);
  std::filesystem::remove_all(home_.data());
  LumiLocalLog("nowhere to go", 0);
  EXPECT_FALSE(FileExists(home_.data())) << "no directory is created";
}

using Status = std::tuple<DWORD, char, std::string>;
#define ROW(status, character) Status(status, character, #status)

// Status 0 logs nothing; the others log "Command Error(name)" with the mode as the code.
TEST_F(RingLogTest, StatusCodesMapToTheirCharacterAndLoggedName) {
  const auto table = [](auto... rows) { return std::vector<Status>{rows...}; };
  const auto rows = table(
      ROW(UPS_ERROR, 'F'), ROW(UPS_E_BAD_PROTCOL, 'F'), ROW(UPS_E_UNAVAILABLE, 'A'),
      ROW(UPS_E_INVALID_PARAM, 'A'), ROW(UPS_E_NO_REGISTER, 'F'), ROW(UPS_E_NOT_KAVPC, 'F'),
      ROW(UPS_E_MANAGER_CONNECTED, '9'), ROW(UPSC_E_PROCESS_NOW, '7'), ROW(UPS_ERROR_ABNORMAL, 'F'),
      ROW(UPS_E_NO_SERVER, '7'), ROW(UPS_E_CANT_ACCESS, 'F'), ROW(UPS_E_CANT_SERVER_ATTACH, 'F'),
      ROW(UPS_E_SERVER_SHUTDOWN_NOW, 'F'), ROW(UPS_E_SHUTDOWN_NOW, 'F'),
      ROW(UPS_E_NO_SHUTDOWN, 'F'), ROW(UPS_E_REGISTER_FAIL, 'F'), ROW(UPS_E_NOT_COMMAND_UPS, 'A'),
      Status(0x80000001u, 'F', "?"), Status(0, '0', ""));
  std::vector<LogRecord> logged;
  for (unsigned mode = 0; const auto &[status, character, name] : rows) {
    EXPECT_EQ(SetErs2Status(static_cast<int>(mode), status), character) << name;
    if (status != 0) logged.push_back({mode, "Command Error(" + name + ")"});
    ++mode;
  }
  EXPECT_EQ(LibraryLog(home_), logged);
}

// Inside a batch the library log stays open, yet every record still goes where the header says,
// also after the header was moved meanwhile; the file is closed with the outermost batch.
TEST_F(RingLogTest, BatchHoldsTheLogOpenAndStillFollowsTheHeader) {
  auto open_files = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = open_files();
  {
    LibraryLogBatch outer;
    LumiLocalLog("one", 0);
    {
      LibraryLogBatch inner;
      LumiLocalLog("two", 0);
    }
    EXPECT_EQ(open_files(), before + 1);
    std::fstream(LogPath(), std::ios::in | std::ios::out) << "00001120\n";
    LumiLocalLog("three", 0);
  }
  EXPECT_EQ(open_files(), before);
  LumiLocalLog("four", 0);
  std::string text = FileText(LogPath());
  EXPECT_EQ(text.substr(0, 9), "00001344\n");
  for (auto [at, message] :
       {std::pair<int, const char *>{0, "one"}, {112, "two"}, {1120, "three"}, {1232, "four"}}) {
    EXPECT_EQ(text.substr(9 + at, 112), "2026/11/22 23:28:00 [00000000] " + Field(message) + "\n")
        << message;
  }
}

}  // namespace
}  // namespace snmplumi::testing
