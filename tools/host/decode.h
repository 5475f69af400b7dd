// Names for what the library hands back: status words, unit status strings, command frames,
// status characters and PowerNet values. Each decoder reads one small table.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "powernet_values.h"

namespace host {

using Named = powernet_values::EnumValue;

// The name of value in table, or "?".
const char *NameOf(std::span<const Named> table, int value);
// "2 onLine", or "-" for the 99999 a query leaves in what it could not read.
std::string Described(std::span<const Named> table, int value);

// The PowerNet value names, the simulator's too.
using powernet_values::kConfigAlarm;
using powernet_values::kDiagnosticSchedule;
using powernet_values::kLineFailCause;
using powernet_values::kOutputStatus;
using powernet_values::kReplaceIndicator;
using powernet_values::kScgActiveMembership;
using powernet_values::kSensitivity;
extern const std::span<const Named> kInputStatus;  // GetUpsInputStatusFromSnmp's classes

// What the set bits of a status word mean ("on battery, power-fail wait exceeded"), or
// "no event". field is the word's position in the unit status string: 0 to 8 the words of a
// slot, 9 the other group's summary.
std::string WordMeaning(int field, int word);

// The unit protocol's 48-character strings: a command frame or the event wait's status string.
inline constexpr std::size_t kFrameSize = 48;
inline constexpr std::size_t kDataStart = 7;
inline constexpr std::size_t kDataArea = 40;  // positions 7 to 46
inline constexpr std::size_t kStatusAt = 47;

// How an answer's data reads, beyond its characters.
enum class DataKind { kText, kMinutes, kClock, kLogEntry };

// The handler the dispatcher selects for code and what it does, or nullptr for an unknown code.
struct FrameCommand {
  const char *code;
  const char *handler;  // "" for the codes answered without one
  const char *what;
  DataKind data = DataKind::kText;
};
const FrameCommand *FindCommand(std::string_view code);
std::span<const FrameCommand> Commands();

// The name of a status character at position 47.
const char *StatusCharacterName(char status);

// Prints a unit answer field by field, each line indented by two blanks.
void PrintFrame(std::string_view frame);
// Prints the event wait's string: event or stop, the nine words, the other group, the status.
void PrintStatusString(std::string_view text);

// The columns of a status report line (SnmpGetReport), in order.
struct ReportColumn {
  const char *label;
  std::span<const Named> names = {};
};
std::span<const ReportColumn> ReportColumns();

}  // namespace host
