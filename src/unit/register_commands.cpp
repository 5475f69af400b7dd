// The unit's register, status and identity commands. The registers have no counterpart on a
// UPS card and answer as a healthy, idle unit; the identity reads ask the first configured UPS.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "config/status_words.h"
#include "powernet.h"
#include "runtime/log_line.h"
#include "snmp/requests.h"
#include "unit/commands.h"
#include "unit/host_channel.h"

namespace snmplumi {
namespace {

constexpr char kEighteenZeros[] = "000000000000000000";
constexpr std::size_t kIdentityValueSize = 130;

// The identity reads' differences.
struct IdentityRead {
  const char *oid;
  const char *error_line;
  const char *failure_line;
  const char *success_line;
  bool trim_blanks;
};

constexpr IdentityRead kRomRev{
    mib::upsAdvIdentFirmwareRevision, " [ReadRomRev] SnmpGet err (%d) counter=%d",
    "  Ups%d RomRev. read error %x", "  Ups%d RomRev.(%s) len = %03x", false};
constexpr IdentityRead kSerialNumber{
    mib::upsAdvIdentSerialNumber, " [ReadSerialNumber] SnmpGet err (%d) counter=%d",
    "  Ups%d SerialNumber read error %x", "  Ups%d SerialNumber(%s) len =%03x", true};

DWORD ReadIdentity(const IdentityRead &read, char *Data, char *DataLen) {
  if (Data == nullptr || DataLen == nullptr) return UPS_E_INVALID_PARAM;
  const int index = FirstConfiguredUps();
  // Cleared for as many bytes as the code of the length's first character says ("000": 48), as
  // the host expects; its buffer holds that much.
  std::memset(Data, 0, static_cast<unsigned char>(DataLen[0]));
  char value[kIdentityValueSize] = {};
  DWORD result =
      GetWithRetries(index, index, read.oid, 's', value, sizeof value - 1, read.error_line);
  if (result != 0) {
    Data[0] = '\0';
    std::strcpy(DataLen, "000");
    LogLine(0, read.failure_line, index, result);
    return result;
  }
  int length = std::snprintf(Data, sizeof value, "%s", value);
  while (read.trim_blanks && length > 0 && Data[length - 1] == ' ') Data[--length] = '\0';
  std::snprintf(DataLen, 4, "%03x", static_cast<unsigned>(length) & 0xfff);
  LogLine(0, read.success_line, index, Data, static_cast<unsigned>(length));
  return 0;
}

DWORD Fixed(char *Data, char *DataLen, const char *data, const char *length) {
  if (data != nullptr && Data != nullptr) std::strcpy(Data, data);
  if (length != nullptr && DataLen != nullptr) std::strcpy(DataLen, length);
  return 0;
}

}  // namespace

int FirstConfiguredUps() {
  for (int index = 0; index < SNMPLUMI_UPS_SLOTS; ++index) {
    if (std::strcmp(UpsIp[index], kUnusedSlot) != 0) return index;
  }
  return kNoUps;
}

DWORD GetWithRetries(int index, int shown, const char *oid_text, char letter, void *value,
                     std::size_t value_size, const char *error_line) {
  DWORD result = 1;
  for (unsigned int counter = 0; result != 0 && counter < GetRetryMax; ++counter) {
    // No configured UPS: the slot past the table answers as a card that is not there.
    const char *address = SlotAddress(index);
    result = address == nullptr ? UPS_E_NO_SERVER
                                : GetValue(address, oid_text, letter, value, value_size, 0);
    if (result == UPS_E_NO_SERVER || result == UPS_E_CANT_ACCESS) {
      LogLine(result, error_line, shown, static_cast<int>(counter));
      break;
    }
  }
  return result;
}

DWORD SetWithRetries(int index, int shown, const char *oid_text, char letter, const void *value,
                     const char *error_line) {
  DWORD result = 1;
  for (unsigned int counter = 0; result != 0 && counter < SetRetryMax; ++counter) {
    const char *address = SlotAddress(index);
    result = address == nullptr ? UPS_E_NO_SERVER : SetValue(address, oid_text, letter, value);
    if (result == UPS_E_NO_SERVER || result == UPS_E_CANT_ACCESS) {
      LogLine(result, error_line, shown, static_cast<int>(counter));
      break;
    }
  }
  return result;
}

DWORD SetOnEveryUps(const char *oid_text, char letter, const void *value, const char *first_line,
                    const char *other_line) {
  DWORD result = SetWithRetries(0, 0, oid_text, letter, value, first_line);
  for (int index = 1; index < SNMPLUMI_UPS_SLOTS; ++index) {
    if (std::strcmp(UpsIp[index], kUnusedSlot) == 0) continue;
    result = SetWithRetries(index, index, oid_text, letter, value, other_line);
  }
  return result;
}

void Answer(char *Data, char *DataLen, const char *text) {
  std::strcpy(Data, text);
  std::snprintf(DataLen, 4, "%03x", static_cast<unsigned>(std::strlen(text)) & 0xfff);
}

}  // namespace snmplumi

using snmplumi::Fixed;

DWORD ReadPKG(char *Data, char *DataLen) {
  int words[8] = {};
  char text[32];
  std::snprintf(text, sizeof text, "%02x%02x%02x%02x%02x000000", words[0], words[1], words[2],
                words[3], words[4]);
  return Fixed(Data, DataLen, text, "010");
}

DWORD ReadStatus(char *Data, char *DataLen) {
  constexpr int kSw = 0x40;    // the unit runs
  constexpr int kInfo = 0x02;  // nothing to report
  char text[4];
  std::snprintf(text, sizeof text, "%02x", kSw | kInfo);
  return Fixed(Data, DataLen, text, "002");
}

DWORD WriteP0x(char *, char *) { return 0; }
DWORD ReadP0x(char *Data, char *DataLen) {
  return Fixed(Data, DataLen, snmplumi::kEighteenZeros, "012");
}
DWORD WriteP1x(char *, char *) { return 0; }
DWORD ReadP1x(char *Data, char *DataLen) {
  return Fixed(Data, DataLen, snmplumi::kEighteenZeros, "012");
}
// The "000" writers leave the request's data behind their zero length; the host reads by the
// length. WritePowerOffMode empties it.
DWORD WriteRS232CTime(char *Data, char *DataLen) { return Fixed(Data, DataLen, nullptr, "000"); }
DWORD ReadRS232CTime(char *Data, char *DataLen) { return Fixed(Data, DataLen, "0101", "004"); }
DWORD StopPTL(char *Data, char *DataLen) { return Fixed(Data, DataLen, nullptr, "000"); }
DWORD RestartPTL(char *Data, char *DataLen) { return Fixed(Data, DataLen, nullptr, "000"); }
DWORD ClearLumi(char *, char *) { return 0; }
DWORD ReadX0x(char *Data, char *DataLen) {
  return Fixed(Data, DataLen, snmplumi::kEighteenZeros, "012");
}
DWORD WriteBootCheck(char *Data, char *DataLen) { return Fixed(Data, DataLen, nullptr, "000"); }
DWORD ReadBootCheck(char *Data, char *DataLen) { return Fixed(Data, DataLen, "00", "002"); }
DWORD WriteRetryOn(char *Data, char *DataLen) { return Fixed(Data, DataLen, nullptr, "000"); }
DWORD ReadRetryOn(char *Data, char *DataLen) { return Fixed(Data, DataLen, "00", "002"); }
DWORD WritePowerOffMode(char *Data, char *DataLen) { return Fixed(Data, DataLen, "", "000"); }

DWORD ReadRomRev(char *Data, char *DataLen) {
  return snmplumi::ReadIdentity(snmplumi::kRomRev, Data, DataLen);
}

DWORD ReadSerialNumber(char *Data, char *DataLen) {
  return snmplumi::ReadIdentity(snmplumi::kSerialNumber, Data, DataLen);
}

DWORD ReadX1x(char *Data, char *DataLen) {
  int words[9] = {};
  char response[snmplumi::kChannelResponseSize] = {};
  // A failed exchange answers success with the request's data, as the host expects.
  if (snmplumi::SendChannelCommand(snmplumi::channel::kReadX1x, response) != 0) return 0;
  auto on = [&response](int position) { return response[position] == '1'; };
  if (on(6)) words[0] |= 0x01;
  if (on(3)) words[1] |= 0x08;
  if (on(4) || on(7)) words[1] |= 0x04;
  for (int word = 2; word <= 4; ++word) {
    const int position = 11 + 2 * (word - 2);
    if (on(position)) words[word] |= 0x08;
    if (on(position + 1)) words[word] |= 0x04;
  }
  if (Data == nullptr || DataLen == nullptr) return 0;
  char *at = Data;
  for (int word : words) at += std::snprintf(at, 3, "%02x", word & 0xff);
  std::strcpy(DataLen, "012");
  return 0;
}
