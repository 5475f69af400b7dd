// The host's own unit, simulated: the library asks it, through the host's call-backs, for what
// no UPS card can tell (the unit's clock, reap counter, event log and alarm flags). Answers
// start with the two command letters; the data follows from position 2.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string_view>

#include "host.h"

namespace host {
namespace {

constexpr int kReapCounter = 1;

struct LogEntry {
  char log_class;
  const char *event;  // four characters
  int month, day, hour, minute;
};
constexpr LogEntry kEventLog[] = {
    {'1', "ACFL", 11, 21, 9, 15},
    {'1', "ACOK", 11, 21, 9, 17},
    {'2', "TEST", 11, 22, 3, 0},
};

// Positions 2 to 16 of the "Cp" answer, one alarm flag each: a healthy unit raises none.
constexpr char kAlarmFlags[] = "000000000000000";

std::mutex exchanges_mutex;
std::vector<std::string> exchanges;

DWORD Clock(std::string_view, char *response) {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::snprintf(response, 256, "CM%02d%02d%02d%02d%02d%02d", local.tm_year % 100, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return 0;
}

DWORD Reap(std::string_view, char *response) {
  std::snprintf(response, 256, "CU%d", kReapCounter);
  return 0;
}

DWORD Log(std::string_view command, char *response) {
  int number = -1;
  if (command.size() != 4 || std::sscanf(command.data() + 2, "%2d", &number) != 1 || number < 0 ||
      number >= static_cast<int>(std::size(kEventLog))) {
    return UPS_E_INVALID_PARAM;  // no such entry
  }
  const LogEntry &entry = kEventLog[number];
  std::snprintf(response, 256, "CG%02d%c%.4s%02d%02d%02d%02d", number, entry.log_class, entry.event,
                entry.month, entry.day, entry.hour, entry.minute);
  return 0;
}

DWORD Alarms(std::string_view, char *response) {
  std::snprintf(response, 256, "Cp%s", kAlarmFlags);
  return 0;
}

struct ChannelCommand {
  std::string_view prefix;
  std::size_t length;  // of the whole command
  DWORD (*answer)(std::string_view command, char *response);
};
constexpr ChannelCommand kChannelCommands[] = {
    {"CM", 2, Clock},
    {"CU", 2, Reap},
    {"CG", 4, Log},
    {"Cp", 2, Alarms},
};

DWORD IssueUpsCommand(const char *cmd, int, char *response) {
  std::string_view command = cmd != nullptr ? cmd : "";
  DWORD result = UPS_E_NOT_COMMAND_UPS;  // the network settings belong to a real unit
  for (const ChannelCommand &row : kChannelCommands) {
    if (command.size() == row.length && command.substr(0, 2) == row.prefix) {
      result = row.answer(command, response);
    }
  }
  char line[320];
  if (result == 0) {
    std::snprintf(line, sizeof line, "%s -> %s", cmd, response);
  } else {
    std::snprintf(line, sizeof line, "%s -> error 0x%08x", cmd, result);
  }
  std::lock_guard<std::mutex> lock(exchanges_mutex);
  exchanges.emplace_back(line);
  return result;
}

DWORD GetUpsSignals(DWORD *signal1, DWORD *signal2, DWORD, DWORD) {
  if (signal1 != nullptr) *signal1 = 0;
  if (signal2 != nullptr) *signal2 = 0;
  return 0;
}

}  // namespace

void InstallLocalUnit(const Library &library) {
  HOST_VAR(library, DromIssueUpsCommand) = IssueUpsCommand;
  HOST_VAR(library, DromIssueUpsCommandAV) = IssueUpsCommand;
  HOST_VAR(library, DromGetUpsSignals) = GetUpsSignals;
}

std::vector<std::string> TakeUnitExchanges() {
  std::lock_guard<std::mutex> lock(exchanges_mutex);
  std::vector<std::string> taken;
  taken.swap(exchanges);
  return taken;
}

}  // namespace host
