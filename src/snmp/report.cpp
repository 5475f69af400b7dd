// The two text reports built from one reading of a UPS's input, output and battery objects: the
// status report line of the report logs, and the labelled trap report lines of the trap logs.
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "powernet.h"
#include "runtime/log_line.h"
#include "runtime/paths.h"
#include "runtime/profile.h"
#include "snmp/requests.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr char kNoReport[] = "----------------------------------------------------";
static_assert(sizeof kNoReport == 52 + 1);
constexpr std::size_t kReportLineSize = 160;  // wmsg
constexpr std::size_t kTrapLineSize = 140;
constexpr char kUpsInfoFile[] = "UPS/UPSinfo.ini";
constexpr char kSymmetra[] = "Symmetra";

// One object of the reports. The status report prints `format` or `placeholder`; the trap
// report prints `trap_format` or `trap_failure` and writes its line after a column that ends
// one. Time ticks are shown in seconds.
struct Column {
  const char *oid;
  char letter;
  int logflag;
  const char *format;
  const char *placeholder;
  const char *trap_format;  // nullptr: not in the trap report
  const char *trap_failure;
  bool ends_trap_line;
  bool symmetra_only;
};

constexpr std::array kColumns = {
    Column{mib::upsBasicInputPhase, 'i', 0, " %d ", " - ", " InputPhase:%d ", " InputPhase:- ",
           false, false},
    Column{mib::upsAdvInputLineFailCause, 'i', 0, "%02d ", "-- ", " InputLineFailCause:%02d ",
           " InputLineFailCause:-- ", false, false},
    Column{mib::upsAdvInputLineVoltage, 'u', 2, "%03d ", "--- ", "InputLineVoltage=%03d ",
           "InputLineVoltage=--- ", true, false},
    Column{mib::upsAdvInputMaxLineVoltage, 'u', 2, "%03d ", "--- ", "InputMaxLineVoltage=%03d ",
           "InputMaxLineVoltage=--- ", false, false},
    Column{mib::upsAdvInputMinLineVoltage, 'u', 2, "%03d ", "--- ", "InputMinLineVoltage=%03d ",
           "InputMinLineVoltage=--- ", true, false},
    Column{mib::upsAdvInputFrequency, 'u', 2, "%02d ", "-- ", "InputFrequency=%02d ",
           "InputFrequency=-- ", true, false},
    Column{mib::upsBasicOutputStatus, 'i', 0, " %02d ", " -- ", " OutputStatus:%02d ",
           " OutputStatus:-- ", false, false},
    Column{mib::upsBasicOutputPhase, 'i', 2, "%d ", "- ", "OutputPhase:%d ", "OutputPhase:- ", true,
           false},
    Column{mib::upsAdvOutputVoltage, 'u', 2, "%03d ", "--- ", "OutputVoltage=%03d ",
           "OutputVoltage=--- ", false, false},
    Column{mib::upsAdvOutputFrequency, 'u', 2, "%02d ", "-- ", "OutputFrequency=%02d ",
           "OutputFrequency=-- ", true, false},
    Column{mib::upsAdvOutputLoad, 'u', 2, "%04d ", "---- ", "OutputLoad=%04d ", "OutputLoad=---- ",
           false, false},
    Column{mib::upsAdvOutputCurrent, 'u', 2, "%03d ", "--- ", "OutputCurrent=%03d ",
           "OutputCurrent=--- ", true, false},
    Column{mib::upsAdvBatteryCapacity, 'u', 2, " %03d ", " --- ", " BatteryCapacity=%03d ",
           " BatteryCapacity=--- ", false, false},
    Column{mib::upsAdvBatteryTemperature, 'u', 2, "%03d ", "--- ", "BatteryTemperature=%03d ",
           "BatteryTemperature=--- ", true, false},
    // The failure text once carried a stray "%" before the dashes; it is written without it,
    // so that both texts have the same length.
    Column{mib::upsAdvBatteryRunTimeRemaining, 't', 2, "%04d  ", "----  ",
           "BatteryRunTimeRemaining=%04d  ", "BatteryRunTimeRemaining=----  ", false, false},
    Column{mib::upsAdvBatteryReplaceIndicator, 'i', 2, "%d ", "- ", "BatteryReplaceIndicator=%d ",
           "BatteryReplaceIndicator=- ", true, false},
    Column{mib::upsAdvBatteryNumOfBattPacks, 'i', 2, "[%d ", "[- ", nullptr, nullptr, false, true},
    Column{mib::upsAdvBatteryNumOfBadBattPacks, 'i', 2, "%d] ", "-] ", nullptr, nullptr, false,
           true},
};

// A line that grows by appending; what does not fit is cut, never written past the end.
template <std::size_t N>
class Line {
 public:
  void Append(const char *format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(text_ + length_, N - length_, format, args);
    va_end(args);
    if (n > 0) length_ = std::min(N - 1, length_ + static_cast<std::size_t>(n));
  }
  void Clear() {
    length_ = 0;
    text_[0] = '\0';
  }
  const char *text() const { return text_; }

 private:
  char text_[N] = {};
  std::size_t length_ = 0;
};

// Reads one column's value; ticks become seconds. False when the read failed.
bool ReadColumn(const char *ip, const Column &column, int logflag, int32_t *value) {
  int32_t raw = 0;
  if (GetValue(ip, column.oid, column.letter, &raw, sizeof raw, logflag) != 0) return false;
  *value = column.letter == 't' ? static_cast<int32_t>(static_cast<uint32_t>(raw) / 100) : raw;
  return true;
}

bool IsEmptySlot(const char *address) {
  return address[0] == '\0' || std::strcmp(address, "127.0.0.1") == 0;
}

// The address a status report index names, or "" (and symmetra false).
void ReportAddress(int index, char (&address)[kConfigValueSize], bool *symmetra) {
  address[0] = '\0';
  *symmetra = false;
  const char *row = nullptr;
  if (index >= 9000 && index <= 9004) {
    if (std::strcmp(UpsIp[index - 9000], "127.0.0.1") != 0) row = UpsIp[index - 9000];
  } else if (index <= 15) {
    if (index >= 0 && !IsEmptySlot(UpsIpServer[index])) row = UpsIpServer[index];
  } else if (index >= 100 && index <= 115) {
    if (!IsEmptySlot(UpsIpOther[index - 100])) row = UpsIpOther[index - 100];
  } else if (index >= 1000 && index <= 8999) {
    char section[16];
    std::snprintf(section, sizeof section, "%d", index);
    ReadConfigFileEx(kUpsInfoFile, section, "IP", address);
    if (std::strcmp(address, kDefaultValue) == 0 || std::strcmp(address, "0.0.0.0") == 0) {
      address[0] = '\0';
      return;
    }
    char type[kConfigValueSize];
    ReadConfigFileEx(kUpsInfoFile, section, "UPS_type", type);
    *symmetra = std::string_view(type).substr(0, 8) == kSymmetra;
    return;
  }
  if (row != nullptr) std::snprintf(address, sizeof address, "%.*s", 63, row);
}

// The address row a trap report index names, or nullptr. Above 8999 the index picks a server
// or other UPS by its last three digits; at most 8999 it would pick row index - 9000 of UpsIp,
// which does not exist, so it names none.
const char *TrapReportRow(int index) {
  const char *row = nullptr;
  if (index > 8999) {
    int r = index % 1000;
    if (r <= 15) {
      row = UpsIpServer[r];
    } else if (r >= 100 && r <= 115) {
      row = UpsIpOther[r - 100];
    }
  }
  return row == nullptr || IsEmptySlot(row) ? nullptr : row;
}

}  // namespace
}  // namespace snmplumi

DWORD SnmpGetReport(int index, char *msg) {
  using snmplumi::kColumns;
  char address[snmplumi::kConfigValueSize];
  bool symmetra = false;
  snmplumi::ReportAddress(index, address, &symmetra);
  if (address[0] == '\0') {
    if (msg != nullptr) std::memcpy(msg, snmplumi::kNoReport, sizeof snmplumi::kNoReport);
    return 0;
  }
  snmplumi::Line<snmplumi::kReportLineSize> line;
  // Every column is tried, whatever the others gave.
  for (const snmplumi::Column &column : kColumns) {
    if (column.symmetra_only && !symmetra) continue;
    int32_t value = 0;
    if (snmplumi::ReadColumn(address, column, column.logflag, &value)) {
      line.Append(column.format, value);
    } else {
      line.Append("%s", column.placeholder);
    }
  }
  if (msg != nullptr) std::strcpy(msg, line.text());
  return 1;
}

DWORD GetTrapReport(int index) {
  if (snmplumi::TrapReportRow(index) == nullptr) return 0;
  // The index only decides whether the report runs: every reading comes from the test card.
  const char *address = snmplumi::TrapReportAddress();
  snmplumi::LogLine(0, "  GetTrapReport ip=%s", address);
  snmplumi::Line<snmplumi::kTrapLineSize> line;
  for (const snmplumi::Column &column : snmplumi::kColumns) {
    if (column.trap_format == nullptr) continue;
    int32_t value = 0;
    if (snmplumi::ReadColumn(address, column, 0, &value)) {
      line.Append(column.trap_format, value);
    } else {
      line.Append("%s", column.trap_failure);
    }
    if (column.ends_trap_line) {
      LumiLocalLogM(index, line.text(), 0);
      line.Clear();
    }
  }
  return 1;
}
