// The host command channel and the network-setting handlers on top of it. The library cannot
// answer these commands from the UPS cards: it passes a short command to the host's own unit
// through the host's call-backs, retries as the host interface prescribes, and logs every
// exchange. A call-back the host left unset answers UPS_E_NO_SERVER, logged once per call.
#include "unit/host_channel.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "runtime/clock.h"
#include "runtime/log_line.h"

namespace snmplumi {
namespace {

// SendDromCommand's Counter: at most 5, 2 added per retried result, so three calls at most.
constexpr int kCounterLimit = 5;
constexpr int kCounterStep = 2;
constexpr int kInterruptCalls = 5;
constexpr int kCommandSize = 512;  // "PAGE" and a whole 255-character Data

// How one of the two command call-backs is used.
struct ChannelRules {
  ISSUE_UPS_COMMAND *callback;  // the exported variable, read at each call
  const char *callback_name;
  const char *caller;
  bool retry_bad_protocol;  // at once; UPS_E_NO_SERVER is always retried a second later
  const char *answered;     // log line formats: command, response
  const char *failed;
};

const ChannelRules kCommandRules{&DromIssueUpsCommand, "DromIssueUpsCommand",
                                 "SendDromCommand",    true,
                                 "CMD:W:%s,R:%s",      "CMD Error:W:%s,R:%s"};
const ChannelRules kCommandAVRules{&DromIssueUpsCommandAV, "DromIssueUpsCommandAV",
                                   "SendDromCommandAV",    false,
                                   "CMDAV:W:%s,R:%s",      "CMDAV Error:W:%s,R:%s"};

void LogMissingCallback(const char *caller, const char *callback_name) {
  LogLine(UPS_E_NO_SERVER, " %s: the host has not set %s", caller, callback_name);
}

DWORD Converse(const ChannelRules &rules, const char *cmd, int response_length, char *response) {
  char answer[kChannelResponseSize] = {};
  const char *command = cmd != nullptr ? cmd : "";
  DWORD result = UPS_E_NO_SERVER;
  ISSUE_UPS_COMMAND callback = *rules.callback;
  if (callback == nullptr) {
    LogMissingCallback(rules.caller, rules.callback_name);
  } else {
    for (int counter = 0; counter <= kCounterLimit;) {
      std::memset(answer, 0, sizeof answer);  // each call starts from a cleared buffer
      result = callback(command, response_length, answer);
      answer[sizeof answer - 1] = '\0';
      const bool at_once = result == UPS_E_BAD_PROTCOL && rules.retry_bad_protocol;
      const bool later = result == UPS_E_NO_SERVER;
      if (!at_once && !later) break;
      counter += kCounterStep;
      if (counter > kCounterLimit) break;  // no pause before a call that will not come
      if (later) CurrentClock().SleepSeconds(1);
    }
  }
  if (response != nullptr) std::memcpy(response, answer, std::strlen(answer) + 1);
  LogLine(result, result == 0 ? rules.answered : rules.failed, command, answer);
  return result;
}

// The characters of Data from position `from`, at most `count`, never past its end.
std::string_view Field(const char *data, std::size_t from, std::size_t count) {
  const std::size_t length = strnlen(data, kHandlerFieldSize);
  if (from >= length) return {};
  return {data + from, std::min(count, length - from)};
}

// A one-digit decimal field; a character that is not a digit reads 0, as atoi reads it.
int Digit(const char *data, std::size_t position) {
  std::string_view field = Field(data, position, 1);
  return !field.empty() && field[0] >= '0' && field[0] <= '9' ? field[0] - '0' : 0;
}

char SlotCharacter(const char *data) { return data[0]; }

void SetLength(char *DataLen, const char *length) { std::snprintf(DataLen, 4, "%s", length); }

// Response characters from the data start: what the host answered there, cut to count.
void AnswerFromResponse(char *Data, const char *response, std::size_t count) {
  std::snprintf(Data, kHandlerFieldSize, "%.*s", static_cast<int>(count),
                response + kChannelDataStart);
}

// The address commands: one row per address kind.
struct AddressRow {
  ChannelCommand write;        // with the whole Data
  ChannelCommand read;         // with Data's first character, the slot
  const char *written_length;  // DataLen after a successful write
  std::size_t read_characters;
  const char *read_length;  // DataLen after a read, whatever its result
};

// MAC: 13 characters answered under the length "00B", written as "00D"; deliberate, kept.
constexpr AddressRow kMacAddress{{"PAGE%s", 15}, {"GE%c", 15}, "00D", 13, "00B"};
constexpr AddressRow kIpAddress{{"PAGP%s", 18}, {"GP%c", 18}, "000", 16, "010"};
constexpr AddressRow kSubNetAddress{{"PAGM%s", 18}, {"GM%c", 18}, "010", 16, "010"};
constexpr AddressRow kGatewayAddress{{"PAGG%s", 18}, {"GG%c", 18}, "010", 16, "010"};

DWORD WriteAddress(const AddressRow &row, char *Data, char *DataLen) {
  char response[kChannelResponseSize] = {};
  DWORD result = SendChannelCommand(row.write, response, Data);
  if (result == 0) SetLength(DataLen, row.written_length);
  return result;
}

DWORD ReadAddress(const AddressRow &row, char *Data, char *DataLen) {
  char response[kChannelResponseSize] = {};
  DWORD result = SendChannelCommand(row.read, response, SlotCharacter(Data));
  AnswerFromResponse(Data, response, row.read_characters);
  SetLength(DataLen, row.read_length);
  return result;
}

constexpr std::size_t kServerNameSize = 16;
constexpr char kNoServerName[] = "                ";  // 16 blanks: mode 0
constexpr std::size_t kLanManNameStart = 7;           // after "CP", slot, '1', table and mode
constexpr std::size_t kPortFieldSize = 4;
constexpr char kPortPadding[] = "            ";                      // 12 blanks after the port
constexpr char kNoPortField[] = "0000            ";                  // mode 0
constexpr std::size_t kTcpPortPositions[] = {2, 4, 5, 7, 8, 9, 10};  // slot, table, port

}  // namespace

DWORD SendChannelCommand(const ChannelCommand &command, char *response, ...) {
  char text[kCommandSize];
  va_list args;
  va_start(args, response);
  std::vsnprintf(text, sizeof text, command.format, args);
  va_end(args);
  return SendDromCommand(text, command.response_length, response);
}

}  // namespace snmplumi

using snmplumi::Field;

DWORD SendDromCommand(const char *Cmd, int ResponseLen, char *Response) {
  return snmplumi::Converse(snmplumi::kCommandRules, Cmd, ResponseLen, Response);
}

DWORD SendDromCommandAV(const char *Cmd, int ResponseLen, char *Response) {
  return snmplumi::Converse(snmplumi::kCommandAVRules, Cmd, ResponseLen, Response);
}

DWORD GetDromInterrupt(DWORD *Signal1, DWORD *Signal2, DWORD Interval, DWORD Mode) {
  GET_UPS_SIGNALS callback = DromGetUpsSignals;
  if (callback == nullptr) {
    snmplumi::LogMissingCallback("GetDromInterrupt", "DromGetUpsSignals");
    return UPS_E_NO_SERVER;
  }
  DWORD result = 0;
  for (int call = 1; call <= snmplumi::kInterruptCalls; ++call) {
    result = callback(Signal1, Signal2, Interval, Mode);
    if (result != UPS_E_NO_SERVER || call == snmplumi::kInterruptCalls) break;
    snmplumi::CurrentClock().SleepSeconds(1);
  }
  return result;
}

DWORD WriteLanMan(char *Data, char *) {
  char name[snmplumi::kServerNameSize + 1] = {};
  Field(Data, 2, snmplumi::kServerNameSize).copy(name, snmplumi::kServerNameSize);
  const int mode = std::strcmp(name, snmplumi::kNoServerName) == 0 ? 0 : 1;
  char response[snmplumi::kChannelResponseSize] = {};
  return snmplumi::SendChannelCommand(snmplumi::channel::kWriteLanMan, response,
                                      snmplumi::Digit(Data, 0), snmplumi::Digit(Data, 1) - 1, mode,
                                      name);
}

DWORD ReadLanMan(char *Data, char *DataLen) {
  const int slot = snmplumi::Digit(Data, 0);
  const int table = snmplumi::Digit(Data, 1) - 1;
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result =
      snmplumi::SendChannelCommand(snmplumi::channel::kReadLanMan, response, slot, table);
  if (result != 0) {
    Data[0] = '\0';
    snmplumi::SetLength(DataLen, "000");
    return result;
  }
  std::snprintf(Data, snmplumi::kHandlerFieldSize, "%d%d%.*s", slot, table + 1,
                static_cast<int>(snmplumi::kServerNameSize), response + snmplumi::kLanManNameStart);
  snmplumi::SetLength(DataLen, "012");
  return result;
}

DWORD SetNetConf(char *Data, char *DataLen) {
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kSetNetConf, response,
                                              snmplumi::Digit(Data, 0), snmplumi::Digit(Data, 1));
  if (result == 0) snmplumi::SetLength(DataLen, "000");
  return result;
}

DWORD WriteTcpPortNo(char *Data, char *DataLen) {
  char table[3] = {};
  Field(Data, 1, 2).copy(table, 2);
  char port[sizeof snmplumi::kNoPortField] = {};
  const std::size_t digits = Field(Data, 3, snmplumi::kPortFieldSize).copy(port, sizeof port);
  std::memcpy(port + digits, snmplumi::kPortPadding, sizeof snmplumi::kPortPadding);
  const int mode = std::strcmp(port, snmplumi::kNoPortField) == 0 ? 0 : 1;
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kWriteTcpPortNo, response,
                                              snmplumi::SlotCharacter(Data), table, mode, port);
  if (result == 0) snmplumi::SetLength(DataLen, "000");
  return result;
}

DWORD ReadTcpPortNo(char *Data, char *DataLen) {
  char table[3] = {};
  Field(Data, 1, 2).copy(table, 2);
  char response[snmplumi::kChannelResponseSize] = {};
  DWORD result = snmplumi::SendChannelCommand(snmplumi::channel::kReadTcpPortNo, response,
                                              snmplumi::SlotCharacter(Data), table);
  if (result != 0) return result;
  char answer[std::size(snmplumi::kTcpPortPositions) + 1] = {};
  for (std::size_t i = 0; i < std::size(snmplumi::kTcpPortPositions); ++i) {
    answer[i] = response[snmplumi::kTcpPortPositions[i]];
  }
  std::snprintf(Data, snmplumi::kHandlerFieldSize, "%s", answer);
  snmplumi::SetLength(DataLen, "007");
  return result;
}

DWORD WriteMacAddress(char *Data, char *DataLen) {
  return snmplumi::WriteAddress(snmplumi::kMacAddress, Data, DataLen);
}
DWORD ReadMacAddress(char *Data, char *DataLen) {
  return snmplumi::ReadAddress(snmplumi::kMacAddress, Data, DataLen);
}
DWORD WriteIpAddress(char *Data, char *DataLen) {
  return snmplumi::WriteAddress(snmplumi::kIpAddress, Data, DataLen);
}
DWORD ReadIpAddress(char *Data, char *DataLen) {
  return snmplumi::ReadAddress(snmplumi::kIpAddress, Data, DataLen);
}
DWORD WriteSubNetAddress(char *Data, char *DataLen) {
  return snmplumi::WriteAddress(snmplumi::kSubNetAddress, Data, DataLen);
}
DWORD ReadSubNetAddress(char *Data, char *DataLen) {
  return snmplumi::ReadAddress(snmplumi::kSubNetAddress, Data, DataLen);
}
DWORD WriteGWAddress(char *Data, char *DataLen) {
  return snmplumi::WriteAddress(snmplumi::kGatewayAddress, Data, DataLen);
}
DWORD ReadGWAddress(char *Data, char *DataLen) {
  return snmplumi::ReadAddress(snmplumi::kGatewayAddress, Data, DataLen);
}
