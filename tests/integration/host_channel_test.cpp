#include <algorithm>

#include "card_test.h"

namespace snmplumi::testing {
namespace {

constexpr DWORD kNoServer = UPS_E_NO_SERVER, kBadProtocol = UPS_E_BAD_PROTCOL,
                kCantAccess = UPS_E_CANT_ACCESS;

// The host's unit: results to give in turn (the last one repeats), an answer to write, and every
// call received as "command/response length", "!" added when the buffer came in not cleared.
struct HostUnit {
  std::vector<DWORD> results;
  std::string answer;
  std::vector<std::string> calls;
  DWORD Next() { return results[std::min(calls.size(), results.size()) - 1]; }
} g_host;

DWORD Issue(const char *command, int response_length, char *response) {
  const bool cleared = std::all_of(response, response + 256, [](char c) { return c == '\0'; });
  g_host.calls.push_back(command + ("/" + std::to_string(response_length)) + (cleared ? "" : "!"));
  std::snprintf(response, 256, "%s", g_host.answer.c_str());
  return g_host.Next();
}

DWORD Signals(DWORD *signal1, DWORD *signal2, DWORD interval, DWORD mode) {
  g_host.calls.push_back(std::to_string(interval) + "/" + std::to_string(mode));
  *signal1 = 0x11, *signal2 = 0x22;
  return g_host.Next();
}

class HostChannelTest : public ::testing::Test {
 protected:
  void Reset(std::vector<DWORD> results, std::string answer) {
    // No results: the host left the call-backs unset.
    DromIssueUpsCommand = DromIssueUpsCommandAV = results.empty() ? nullptr : Issue;
    DromGetUpsSignals = results.empty() ? nullptr : Signals;
    g_host = {std::move(results), std::move(answer), {}};
    clock_.sleeps.clear();
    std::remove(home_.data("snmplumi.log").c_str());
  }

  TempHome home_;
  FakeClock clock_{kSomeTime};
};

TEST_F(HostChannelTest, RetriesFollowTheResultAndPauseOnlyBeforeAnotherCall) {
  struct Row {
    char channel;  // C: SendDromCommand, A: SendDromCommandAV, I: GetDromInterrupt
    std::vector<DWORD> results;
    std::size_t calls, pauses;  // pauses of a second
    LogRecord last;             // the last log record, if any
  };
  // clang-format off
  const Row rows[] = {
      {'C', {kNoServer}, 3, 2, {kNoServer, "CMD Error:W:Cp,R:Cp0"}},
      {'C', {kBadProtocol, kNoServer, 0}, 3, 1, {0, "CMD:W:Cp,R:Cp0"}},
      {'C', {kCantAccess}, 1, 0, {kCantAccess, "CMD Error:W:Cp,R:Cp0"}},
      {'C', {}, 0, 0, {kNoServer, "CMD Error:W:Cp,R:"}},
      {'A', {kBadProtocol}, 1, 0, {kBadProtocol, "CMDAV Error:W:Cp,R:Cp0"}},
      {'A', {}, 0, 0, {kNoServer, "CMDAV Error:W:Cp,R:"}},
      {'I', {kNoServer}, 5, 4, {}},
      {'I', {kNoServer, kBadProtocol}, 2, 1, {}},
      {'I', {}, 0, 0, {kNoServer, " GetDromInterrupt: the host has not set DromGetUpsSignals"}},
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(&row - rows);
    Reset(row.results, "Cp0");
    char response[256] = "stale";
    DWORD signal1 = 0, signal2 = 0;
    DWORD result = row.channel == 'C'   ? SendDromCommand("Cp", 17, response)
                   : row.channel == 'A' ? SendDromCommandAV("Cp", 17, response)
                                        : GetDromInterrupt(&signal1, &signal2, 7, 2);
    EXPECT_EQ(result, row.calls == 0 ? kNoServer
                                     : row.results[std::min(row.calls, row.results.size()) - 1]);
    EXPECT_EQ(g_host.calls,
              std::vector<std::string>(row.calls, row.channel == 'I' ? "7/2" : "Cp/17"));
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row.pauses, 1000000));
    EXPECT_EQ(signal1 + signal2, row.channel == 'I' && row.calls > 0 ? 0x33u : 0u);
    if (row.channel != 'I') {
      EXPECT_STREQ(response, row.calls > 0 ? "Cp0" : "");
    }
    const auto log = LibraryLog(home_);
    EXPECT_EQ(log.empty() ? LogRecord{} : log.back(), row.last);
  }
}

TEST_F(HostChannelTest, NetworkHandlersSendTheirCommandAndAnswerByteForByte) {
  struct Row {
    DWORD (*handler)(char *, char *);
    std::string data, host_answer;
    DWORD host_result;
    std::string call;  // what the host receives, as HostUnit records it
    std::string data_out;
    const char *length_out;  // from "LLL" in
  };
  const std::string blank(16, ' '), name = "SERVER-NAME-0001", port = "8080" + blank.substr(4);
  const std::string mac = "1001122334455", ip = "1192.168.000.010", gw = "1192.168.000.001";
  // clang-format off
  const Row rows[] = {
      {WriteLanMan, "23" + name, "", 0, "PACP21021" + name + "/23", "23" + name, "LLL"},
      {ReadLanMan, "23", "CP21021" + name, 0, "CP2102/23", "23" + name, "012"},
      {ReadLanMan, "23", "CP2102", kCantAccess, "CP2102/23", "", "000"},
      {SetNetConf, "41", "PAGC41", 0, "PAGC41/4", "41", "000"},
      {WriteTcpPortNo, "1028080", "", 0, "PACP12021" + port + "/23", "1028080", "000"},
      {ReadTcpPortNo, "102", "CP1202", kCantAccess, "CP1202/23", "102", "LLL"},
      {ReadMacAddress, "1", "GE" + mac, 0, "GE1/15", mac, "00B"},
      {ReadIpAddress, "2", "GP2192.168.000.0109999", kCantAccess, "GP2/18", "2192.168.000.010", "010"},
      {WriteIpAddress, ip, "", 0, "PAGP" + ip + "/18", ip, "000"},  // the one write of "000"
      {WriteGWAddress, gw, "", 0, "PAGG" + gw + "/18", gw, "010"},
      {ReadClock, "", "CM261123081530", 0, "CM/14", "1a0b17080f1e", "00C"},
      {ReadClock, "", "", kCantAccess, "CM/14", "000000000000", "00C"},
      {ReadLog, "07", "CG07A123411230815", 0, "CG07/17", "07A123411230815", "00F"},
      {ReadLog, "07", "", kCantAccess, "CG07/17", std::string(15, 'Z'), "00F"},  // answers 0
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(row.call + " " + std::to_string(row.host_result));
    Reset({row.host_result}, row.host_answer);
    DromIssueUpsCommandAV = nullptr;  // the handlers use the plain command
    char data[256] = {}, length[256] = "LLL";
    std::snprintf(data, sizeof data, "%s", row.data.c_str());
    EXPECT_EQ(row.handler(data, length), row.handler == ReadLog ? 0 : row.host_result);
    EXPECT_EQ(g_host.calls, std::vector<std::string>{row.call});
    EXPECT_EQ(data, row.data_out);
    EXPECT_STREQ(length, row.length_out);
  }
}

}  // namespace
}  // namespace snmplumi::testing
