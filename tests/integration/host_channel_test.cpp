// The host command channel with call-backs written here: its retry rules and pauses (through the
// clock seam), its log lines, a host that set no call-back, and every network-setting handler's
// command string and answer, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

constexpr DWORD kNoServer = UPS_E_NO_SERVER;
constexpr DWORD kBadProtocol = UPS_E_BAD_PROTCOL;
constexpr DWORD kCantAccess = UPS_E_CANT_ACCESS;
constexpr unsigned long kOneSecond = 1000000;

// The host's unit as the call-backs see it: results to give in turn (the last one repeats), an
// answer to write, and every call received.
struct HostUnit {
  std::vector<DWORD> results;
  std::string answer;
  struct Call {
    std::string command;
    int response_length;
    bool buffer_cleared;
    bool operator==(const Call &) const = default;
  };
  std::vector<Call> calls;

  DWORD Next() {
    std::size_t turn = calls.size() - 1;
    return results.empty() ? 0 : results[std::min(turn, results.size() - 1)];
  }
};
HostUnit g_host;

DWORD Issue(const char *command, int response_length, char *response) {
  bool cleared = true;
  for (int i = 0; i < 256; ++i) cleared = cleared && response[i] == '\0';
  g_host.calls.push_back({command, response_length, cleared});
  std::snprintf(response, 256, "%s", g_host.answer.c_str());
  return g_host.Next();
}

DWORD Signals(DWORD *signal1, DWORD *signal2, DWORD interval, DWORD mode) {
  g_host.calls.push_back({std::to_string(interval) + "/" + std::to_string(mode), 0, true});
  *signal1 = 0x11;
  *signal2 = 0x22;
  return g_host.Next();
}

class HostChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DromIssueUpsCommand = Issue;
    DromIssueUpsCommandAV = Issue;
    DromGetUpsSignals = Signals;
    g_host = {};
  }
  void Reset() {
    g_host = {};
    clock_.sleeps.clear();
    std::remove(home_.data("snmplumi.log").c_str());
  }

  TempHome home_;
  FakeClock clock_{kSomeTime};
};

enum class Channel { kCommand, kCommandAV, kInterrupt };

TEST_F(HostChannelTest, RetriesFollowTheResultAndPauseOnlyBeforeAnotherCall) {
  struct Row {
    Channel channel;
    std::vector<DWORD> results;
    std::size_t calls;
    std::size_t pauses;  // of one second each
    LogRecord log;       // SendDromCommand(AV) only
  };
  const LogRecord none{};
  const Row rows[] = {
      {Channel::kCommand, {kNoServer}, 3, 2, {kNoServer, "CMD Error:W:Cp,R:Cp0"}},
      {Channel::kCommand, {kBadProtocol}, 3, 0, {kBadProtocol, "CMD Error:W:Cp,R:Cp0"}},
      {Channel::kCommand, {kBadProtocol, kNoServer, 0}, 3, 1, {0, "CMD:W:Cp,R:Cp0"}},
      {Channel::kCommand, {kNoServer, 0}, 2, 1, {0, "CMD:W:Cp,R:Cp0"}},
      {Channel::kCommand, {kCantAccess}, 1, 0, {kCantAccess, "CMD Error:W:Cp,R:Cp0"}},
      {Channel::kCommand, {0}, 1, 0, {0, "CMD:W:Cp,R:Cp0"}},
      {Channel::kCommandAV, {kBadProtocol}, 1, 0, {kBadProtocol, "CMDAV Error:W:Cp,R:Cp0"}},
      {Channel::kCommandAV, {kNoServer}, 3, 2, {kNoServer, "CMDAV Error:W:Cp,R:Cp0"}},
      {Channel::kCommandAV, {kNoServer, 0}, 2, 1, {0, "CMDAV:W:Cp,R:Cp0"}},
      {Channel::kInterrupt, {kNoServer}, 5, 4, none},
      {Channel::kInterrupt, {kNoServer, kBadProtocol}, 2, 1, none},
      {Channel::kInterrupt, {0}, 1, 0, none},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << static_cast<int>(row.channel) << " " << row.calls);
    Reset();
    g_host.results = row.results;
    g_host.answer = "Cp0";
    char response[256] = "stale";
    DWORD signal1 = 0, signal2 = 0;
    DWORD result = row.channel == Channel::kCommand ? SendDromCommand("Cp", 17, response)
                   : row.channel == Channel::kCommandAV
                       ? SendDromCommandAV("Cp", 17, response)
                       : GetDromInterrupt(&signal1, &signal2, 7, 2);
    EXPECT_EQ(result, row.results[std::min(row.calls, row.results.size()) - 1]);
    ASSERT_EQ(g_host.calls.size(), row.calls);
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row.pauses, kOneSecond));
    if (row.channel == Channel::kInterrupt) {
      EXPECT_EQ(g_host.calls.front().command, "7/2");
      EXPECT_EQ(signal1 + signal2, 0x33u);
      EXPECT_TRUE(LibraryLog(home_).empty());
      continue;
    }
    for (const HostUnit::Call &call : g_host.calls) {
      EXPECT_EQ(call, (HostUnit::Call{"Cp", 17, true})) << "each call gets a cleared buffer";
    }
    EXPECT_STREQ(response, "Cp0");
    EXPECT_EQ(LibraryLog(home_), (std::vector<LogRecord>{row.log}));
  }
}

TEST_F(HostChannelTest, UnsetCallBackAnswersNoServerAtOnceAndIsLoggedOncePerCall) {
  DromIssueUpsCommand = nullptr;
  DromIssueUpsCommandAV = nullptr;
  DromGetUpsSignals = nullptr;
  char response[256] = "stale";
  EXPECT_EQ(SendDromCommand("CM", 14, response), kNoServer);
  EXPECT_STREQ(response, "");
  EXPECT_EQ(SendDromCommandAV("CU", 3, response), kNoServer);
  DWORD signal1 = 5, signal2 = 6;
  EXPECT_EQ(GetDromInterrupt(&signal1, &signal2, 1, 1), kNoServer);
  EXPECT_EQ(signal1 + signal2, 11u);
  EXPECT_TRUE(clock_.sleeps.empty());
  EXPECT_EQ(LibraryLog(home_),
            (std::vector<LogRecord>{
                {kNoServer, " SendDromCommand: the host has not set DromIssueUpsCommand"},
                {kNoServer, "CMD Error:W:CM,R:"},
                {kNoServer, " SendDromCommandAV: the host has not set DromIssueUpsCommandAV"},
                {kNoServer, "CMDAV Error:W:CU,R:"},
                {kNoServer, " GetDromInterrupt: the host has not set DromGetUpsSignals"}}));
}

TEST_F(HostChannelTest, NetworkHandlersSendTheirCommandAndAnswerByteForByte) {
  using Handler = DWORD (*)(char *, char *);
  struct Row {
    const char *name;
    Handler handler;
    const char *data;  // in
    const char *host_answer;
    DWORD host_result;
    const char *command;  // what the host receives
    int response_length;
    const char *data_out;
    const char *length_out;  // from "LLL" in
  };
  const Row rows[] = {
      {"WriteLanMan", WriteLanMan, "23SERVER-NAME-0001", "", 0, "PACP21021SERVER-NAME-0001", 23,
       "23SERVER-NAME-0001", "LLL"},
      {"WriteLanMan", WriteLanMan,
       "11"
       "                ",
       "", 0,
       "PACP11000"
       "                ",
       23,
       "11"
       "                ",
       "LLL"},
      {"WriteLanMan", WriteLanMan,
       "11"
       "                ",
       "", kCantAccess,
       "PACP11000"
       "                ",
       23,
       "11"
       "                ",
       "LLL"},
      {"ReadLanMan", ReadLanMan, "23", "CP21021SERVER-NAME-0001", 0, "CP2102", 23,
       "23SERVER-NAME-0001", "012"},
      {"ReadLanMan", ReadLanMan, "23", "CP2102", kCantAccess, "CP2102", 23, "", "000"},
      {"SetNetConf", SetNetConf, "41", "PAGC41", 0, "PAGC41", 4, "41", "000"},
      {"SetNetConf", SetNetConf, "41", "", kCantAccess, "PAGC41", 4, "41", "LLL"},
      {"WriteTcpPortNo", WriteTcpPortNo, "1028080", "", 0,
       "PACP12021"
       "8080            ",
       23, "1028080", "000"},
      {"WriteTcpPortNo", WriteTcpPortNo, "1020000", "", 0,
       "PACP12020"
       "0000            ",
       23, "1020000", "000"},
      {"WriteTcpPortNo", WriteTcpPortNo, "1020000", "", kCantAccess,
       "PACP12020"
       "0000            ",
       23, "1020000", "LLL"},
      {"ReadTcpPortNo", ReadTcpPortNo, "102",
       "CP12021"
       "8080            ",
       0, "CP1202", 23, "1028080", "007"},
      {"ReadTcpPortNo", ReadTcpPortNo, "102", "CP1202", kCantAccess, "CP1202", 23, "102", "LLL"},
      {"WriteMacAddress", WriteMacAddress, "1001122334455", "", 0, "PAGE1001122334455", 15,
       "1001122334455", "00D"},
      {"WriteMacAddress", WriteMacAddress, "1001122334455", "", kCantAccess, "PAGE1001122334455",
       15, "1001122334455", "LLL"},
      {"ReadMacAddress", ReadMacAddress, "1", "GE1001122334455", 0, "GE1", 15, "1001122334455",
       "00B"},
      {"ReadMacAddress", ReadMacAddress, "1", "", kCantAccess, "GE1", 15, "", "00B"},
      {"WriteIpAddress", WriteIpAddress, "1192.168.000.010", "", 0, "PAGP1192.168.000.010", 18,
       "1192.168.000.010", "000"},
      {"ReadIpAddress", ReadIpAddress, "1", "GP1192.168.000.010", 0, "GP1", 18, "1192.168.000.010",
       "010"},
      {"ReadIpAddress", ReadIpAddress, "2", "GP2192.168.000.0109999", kCantAccess, "GP2", 18,
       "2192.168.000.010", "010"},
      {"WriteSubNetAddress", WriteSubNetAddress, "1255.255.255.000", "", 0, "PAGM1255.255.255.000",
       18, "1255.255.255.000", "010"},
      {"ReadSubNetAddress", ReadSubNetAddress, "1", "GM1255.255.255.000", 0, "GM1", 18,
       "1255.255.255.000", "010"},
      {"WriteGWAddress", WriteGWAddress, "1192.168.000.001", "", 0, "PAGG1192.168.000.001", 18,
       "1192.168.000.001", "010"},
      {"WriteGWAddress", WriteGWAddress, "1192.168.000.001", "", kCantAccess,
       "PAGG1192.168.000.001", 18, "1192.168.000.001", "LLL"},
      {"ReadGWAddress", ReadGWAddress, "1", "GG1192.168.000.001", 0, "GG1", 18, "1192.168.000.001",
       "010"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(::testing::Message() << row.name << " " << row.data << " " << row.host_result);
    Reset();
    g_host.results = {row.host_result};
    g_host.answer = row.host_answer;
    char data[256] = {};
    char length[256] = "LLL";
    std::snprintf(data, sizeof data, "%s", row.data);
    EXPECT_EQ(row.handler(data, length), row.host_result);
    ASSERT_EQ(g_host.calls.size(), 1u);
    EXPECT_EQ(g_host.calls[0].command, row.command);
    EXPECT_EQ(g_host.calls[0].response_length, row.response_length);
    EXPECT_EQ(std::string(data), row.data_out);
    EXPECT_EQ(std::string(length), row.length_out);
    const std::string line = std::string(row.host_result == 0 ? "CMD:W:" : "CMD Error:W:") +
                             row.command + ",R:" + row.host_answer;
    std::string logged = line.substr(0, 80);  // a record keeps 80 characters, blanks trimmed here
    logged.erase(logged.find_last_not_of(' ') + 1);
    EXPECT_EQ(LibraryLog(home_), (std::vector<LogRecord>{{row.host_result, logged}}));
  }
}

}  // namespace
}  // namespace snmplumi::testing
