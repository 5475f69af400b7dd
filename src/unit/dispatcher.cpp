// The unit's command channel: a 48-character frame (code, length, data) is cut into its fields,
// handed to the handler its code selects, and rewritten in place as the answer with a status
// character in its last position.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "runtime/log_line.h"
#include "snmplumi.h"
#include "unit/host_channel.h"

namespace snmplumi {
namespace {

// The host promises 48 characters and nothing more: the data of a request or an answer lies in
// positions 7 to 46, position 47 is the status.
constexpr std::size_t kFrameSize = 48;
constexpr std::size_t kDataStart = 7;
constexpr std::size_t kStatusAt = 47;
constexpr std::size_t kDataArea = kHandlerFieldSize - 1;  // sData

struct Command {
  std::string_view code;
  CommandHandler handler;  // nullptr: answered here with result, the request echoed
  DWORD result;
};

// Compared whole, in this order; the first match wins.
constexpr std::array kCommands = {
    Command{"002", ReadPKG, 0},          Command{"012", ReadStatus, 0},
    Command{"021", WriteP0x, 0},         Command{"022", ReadP0x, 0},
    Command{"031", WriteP1x, 0},         Command{"032", ReadP1x, 0},
    Command{"041", WriteRS232CTime, 0},  Command{"042", ReadRS232CTime, 0},
    Command{"071", StopPTL, 0},          Command{"081", RestartPTL, 0},
    Command{"091", ClearLumi, 0},        Command{"0B1", nullptr, 0},
    Command{"0D2", ReadX0x, 0},          Command{"0F2", ReadRomRev, 0},
    Command{"111", nullptr, 0},          Command{"131", nullptr, 0},
    Command{"132", ReadClock, 0},        Command{"141", nullptr, 0},
    Command{"142", ReadReap, 0},         Command{"151", WriteDPTime, 0},
    Command{"152", ReadDPTime, 0},       Command{"S30", ReadLog, 0},
    Command{"181", WriteOnTime, 0},      Command{"182", ReadOnTime, 0},
    Command{"1B1", WriteOffWT, 0},       Command{"1B2", ReadOffWT, 0},
    Command{"V00", KavPcShutDown, 0},    Command{"BT0", WriteBootCheck, 0},
    Command{"BT1", ReadBootCheck, 0},    Command{"BT2", WriteRetryOn, 0},
    Command{"BT3", ReadRetryOn, 0},      Command{"PCM", WritePowerOffMode, 0},
    Command{"H01", ReadSerialNumber, 0},
};
constexpr Command kUnknown{"", nullptr, UPS_E_INVALID_PARAM};

const Command &Find(std::string_view code) {
  for (const Command &command : kCommands) {
    if (command.code == code) return command;
  }
  return kUnknown;
}

// The n characters of the frame from at, never past its data area and never past a NUL.
void CopyField(char *dest, const char *frame, std::size_t at, std::size_t n) {
  std::size_t i = 0;
  while (i < n && at + i < kStatusAt && frame[at + i] != '\0') {
    dest[i] = frame[at + i];
    ++i;
  }
  dest[i] = '\0';
}

}  // namespace
}  // namespace snmplumi

int TovLumiSend(int, unsigned char, char *sInData, int) {
  using namespace snmplumi;
  if (sInData == nullptr) return -1;
  char Cmd[4];
  // Room for a handler that answers with a whole identity text (up to 129 characters).
  char sData[kDataArea + 1];
  char sDataLen[kDataArea + 1] = {};
  CopyField(Cmd, sInData, 0, 3);
  CopyField(sDataLen, sInData, 4, 3);
  int iDataLen = 0;
  if (std::sscanf(sDataLen, "%x", &iDataLen) != 1 || iDataLen < 0) iDataLen = 0;
  // A length past the data area is cut to it; the frame's own end comes first.
  CopyField(sData, sInData, kDataStart,
            std::min<std::size_t>(static_cast<std::size_t>(iDataLen), kDataArea));
  LogLine(0, "TovLumiSend(Cmd:%s / Len:%s / Resp:%s)", Cmd, sDataLen, sData);

  const Command &command = Find(Cmd);
  DWORD ret = command.handler != nullptr ? command.handler(sData, sDataLen) : command.result;

  std::memcpy(sInData, Cmd, std::strlen(Cmd));
  sInData[3] = '0';
  for (std::size_t i = 0; i < 3 && sDataLen[i] != '\0'; ++i) sInData[4 + i] = sDataLen[i];
  // The answer is not terminated: what lay beyond it stays, and the host reads by the length.
  const std::size_t answer = std::min(std::strlen(sData), kStatusAt - kDataStart);
  std::memcpy(sInData + kDataStart, sData, answer);
  sInData[kStatusAt] = SetErs2Status(0, ret);

  if (sInData[kStatusAt] == '0') {
    LogLine(0, "TovLumiSend(RespData:%.*s)", static_cast<int>(kFrameSize), sInData);
    return 0;
  }
  LogLine(0, "TovLumiSendError(CMD:%s / LEN:%s / DATA:%s)", Cmd, sDataLen, sData);
  return -1;
}
