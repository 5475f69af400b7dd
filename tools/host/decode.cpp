#include "decode.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "host.h"

namespace host {
namespace {

constexpr int kNotRead = 99999;

constexpr Named kInputStatusRows[] = {
    {1, "input good"},
    {2, "input lost (0 V)"},
    {3, "input good, battery below the minimum return capacity"},
    {5, "input at or above the high transfer voltage"},
    {6, "input at or below the low transfer voltage"},
};

// The bits the library sets, by field of the unit status string.
struct WordBit {
  int field;
  int bit;
  const char *meaning;
};
constexpr WordBit kWordBits[] = {
    {0, 0x10, "on battery"},
    {0, 0x08, "power-fail wait exceeded"},
    {1, 0x80, "out of service"},
    {9, 0x10, "an other UPS on battery"},
    {9, 0x08, "an other UPS past its power-fail wait"},
};
constexpr int kOtherField = 9;

constexpr Named kStringCodes[] = {
    {801, "event"},
    {0, "no event: the wait was stopped"},
};

struct StatusCharacter {
  char status;
  const char *name;
};
// What SetErs2Status makes of the host status codes, and the stop string's '8'.
constexpr StatusCharacter kStatusCharacters[] = {
    {'0', "success"},
    {'7', "no answer or busy (UPS_E_NO_SERVER, UPSC_E_PROCESS_NOW)"},
    {'8', "stopped"},
    {'9', "a manager is connected (UPS_E_MANAGER_CONNECTED)"},
    {'A', "refused (UPS_E_INVALID_PARAM, UPS_E_UNAVAILABLE, UPS_E_NOT_COMMAND_UPS)"},
    {'F', "failed (UPS_E_CANT_ACCESS, UPS_ERROR and the other errors)"},
};

// The dispatcher's command table, in its order.
constexpr FrameCommand kCommands[] = {
    {"002", "ReadPKG", "package registers"},
    {"012", "ReadStatus", "unit status byte"},
    {"021", "WriteP0x", "write registers P0x"},
    {"022", "ReadP0x", "read registers P0x"},
    {"031", "WriteP1x", "write registers P1x"},
    {"032", "ReadP1x", "read registers P1x"},
    {"041", "WriteRS232CTime", "write the serial line timing"},
    {"042", "ReadRS232CTime", "read the serial line timing"},
    {"071", "StopPTL", "stop the protocol"},
    {"081", "RestartPTL", "restart the protocol"},
    {"091", "ClearLumi", "clear the unit"},
    {"0B1", "", "accepted, request echoed"},
    {"0D2", "ReadX0x", "read registers X0x"},
    {"0F2", "ReadRomRev", "firmware revision of the first UPS"},
    {"111", "", "accepted, request echoed"},
    {"131", "", "accepted, request echoed"},
    {"132", "ReadClock", "the host unit's clock (yy mm dd hh mm ss, hex)", DataKind::kClock},
    {"141", "", "accepted, request echoed"},
    {"142", "ReadReap", "the host unit's reap counter"},
    {"151", "WriteDPTime", "return delay of every UPS (DATA: minutes, hex)"},
    {"152", "ReadDPTime", "return delay of the first UPS", DataKind::kMinutes},
    {"S30", "ReadLog", "entry of the host unit's event log (DATA: two digits)",
     DataKind::kLogEntry},
    {"181", "WriteOnTime", "power-on time of every UPS (DATA: MMDDhhmm, hex)"},
    {"182", "ReadOnTime", "power-on time"},
    {"1B1", "WriteOffWT", "shutdown delay of every UPS (DATA: minutes, hex)"},
    {"1B2", "ReadOffWT", "shutdown delay of the first UPS", DataKind::kMinutes},
    {"V00", "KavPcShutDown", "shutdown: every UPS in service is ordered down"},
    {"BT0", "WriteBootCheck", "write the boot check"},
    {"BT1", "ReadBootCheck", "read the boot check"},
    {"BT2", "WriteRetryOn", "write the retry switch"},
    {"BT3", "ReadRetryOn", "read the retry switch"},
    {"PCM", "WritePowerOffMode", "write the power-off mode"},
    {"H01", "ReadSerialNumber", "serial number of the first UPS"},
};

// Columns of SnmpGetReport, the last two for a Symmetra only.
constexpr ReportColumn kReportColumns[] = {
    {"input phase"},
    {"fail cause", kLineFailCause},
    {"input V"},
    {"input max V"},
    {"input min V"},
    {"input Hz"},
    {"output status", kOutputStatus},
    {"output phase"},
    {"output V"},
    {"output Hz"},
    {"load %"},
    {"output A"},
    {"capacity %"},
    {"battery C"},
    {"run time s"},
    {"replace battery", kReplaceIndicator},
    {"battery packs"},
    {"bad battery packs"},
};

int Hex(std::string_view text) {
  return static_cast<int>(std::strtol(std::string(text).c_str(), nullptr, 16));
}

void PrintData(const FrameCommand *command, std::string_view data) {
  switch (command != nullptr ? command->data : DataKind::kText) {
    case DataKind::kMinutes:
      if (data.size() == 2) Print("  data    %-6s  %d min\n", std::string(data).c_str(), Hex(data));
      return;
    case DataKind::kClock:
      if (data.size() == 12) {
        Print("  data    %s  20%02d-%02d-%02d %02d:%02d:%02d\n", std::string(data).c_str(),
              Hex(data.substr(0, 2)), Hex(data.substr(2, 2)), Hex(data.substr(4, 2)),
              Hex(data.substr(6, 2)), Hex(data.substr(8, 2)), Hex(data.substr(10, 2)));
        return;
      }
      break;
    case DataKind::kLogEntry:
      if (data.size() == 15 && data.find('Z') == std::string_view::npos) {
        std::string d(data);
        Print("  data    %s  entry %.2s, class %.1s, event %.4s, %.2s/%.2s %.2s:%.2s\n", d.c_str(),
              d.c_str(), d.c_str() + 2, d.c_str() + 3, d.c_str() + 7, d.c_str() + 9, d.c_str() + 11,
              d.c_str() + 13);
        return;
      }
      if (data.size() == 15) {
        Print("  data    %s  (no such entry)\n", std::string(data).c_str());
        return;
      }
      break;
    case DataKind::kText:
      break;
  }
  Print("  data    \"%s\"\n", std::string(data).c_str());
}

}  // namespace

const std::span<const Named> kInputStatus = kInputStatusRows;

const char *NameOf(std::span<const Named> table, int value) {
  for (const Named &row : table) {
    if (row.value == value) return row.name.data();
  }
  return "?";
}

std::string Described(std::span<const Named> table, int value) {
  if (value == kNotRead) return "-";
  return std::to_string(value) + " " + NameOf(table, value);
}

std::string WordMeaning(int field, int word) {
  std::string meaning;
  int known = 0;
  for (const WordBit &row : kWordBits) {
    if (row.field != field) continue;
    known |= row.bit;
    if ((word & row.bit) == 0) continue;
    meaning += (meaning.empty() ? "" : ", ");
    meaning += row.meaning;
  }
  if ((word & ~known) != 0) {
    char unknown[32];
    std::snprintf(unknown, sizeof unknown, "%sbits 0x%02x", meaning.empty() ? "" : ", ",
                  word & ~known);
    meaning += unknown;
  }
  return meaning.empty() ? "no event" : meaning;
}

const FrameCommand *FindCommand(std::string_view code) {
  for (const FrameCommand &command : kCommands) {
    if (code == command.code) return &command;
  }
  return nullptr;
}

std::span<const FrameCommand> Commands() { return kCommands; }

const char *StatusCharacterName(char status) {
  for (const StatusCharacter &row : kStatusCharacters) {
    if (row.status == status) return row.name;
  }
  return "?";
}

std::span<const ReportColumn> ReportColumns() { return kReportColumns; }

void PrintFrame(std::string_view frame) {
  std::string code(frame.substr(0, 3));
  std::string length(frame.substr(4, 3));
  const FrameCommand *command = FindCommand(code);
  if (command == nullptr) {
    Print("  code    %s     unknown to the unit\n", code.c_str());
  } else {
    Print("  code    %s     %s%s%s\n", code.c_str(), command->handler,
          *command->handler != '\0' ? ": " : "", command->what);
  }
  std::size_t count = static_cast<std::size_t>(Hex(length));
  Print("  length  %s     %zu characters\n", length.c_str(), count);
  std::size_t shown = std::min({count, kDataArea, frame.size() - kDataStart});
  PrintData(command, frame.substr(kDataStart, shown));
  char status = frame.size() > kStatusAt ? frame[kStatusAt] : '?';
  Print("  status  %c       %s\n", status, StatusCharacterName(status));
}

void PrintStatusString(std::string_view text) {
  if (text.size() != kFrameSize) {
    Print("  (%zu characters, not a status string)\n", text.size());
    return;
  }
  std::string code(text.substr(0, 3));
  Print("  code    %s     %s\n", code.c_str(), NameOf(kStringCodes, std::atoi(code.c_str())));
  Print("  length  %.3s\n", text.data() + 4);
  std::string words;
  std::string meanings;
  for (int field = 0; field < kOtherField; ++field) {
    std::string_view hex = text.substr(kDataStart + 2 * field, 2);
    words += std::string(hex) + " ";
    int word = Hex(hex);
    if (word != 0) {
      meanings += (meanings.empty() ? "" : "; ") + std::string("word ") + std::to_string(field) +
                  ": " + WordMeaning(field, word);
    }
  }
  Print("  words   %s %s\n", words.c_str(), meanings.empty() ? "no event" : meanings.c_str());
  std::string_view others = text.substr(kDataStart + 2 * kOtherField, 2);
  Print("  others  %.2s      other group: %s\n", others.data(),
        WordMeaning(kOtherField, Hex(others)).c_str());
  Print("  status  %c       %s\n", text[kStatusAt], StatusCharacterName(text[kStatusAt]));
}

}  // namespace host
