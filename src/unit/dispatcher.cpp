// The unit's command channel: a 48-character frame (code, length, data) is cut into its fields,
// handed to the handler its code selects, and rewritten in place as the answer with a status
// character in its last position.
#include <array>
#include <string_view>

#include "runtime/log_line.h"
#include "snmplumi.h"
#include "unit/frame.h"
#include "unit/host_channel.h"

namespace snmplumi {
namespace {

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

}  // namespace
}  // namespace snmplumi

int TovLumiSend(int, unsigned char, char *sInData, int) {
  using namespace snmplumi;
  if (sInData == nullptr) return -1;
  FrameFields fields;
  ParseFrame(sInData, fields);
  LogLine(0, "TovLumiSend(Cmd:%s / Len:%s / Resp:%s)", fields.code, fields.length, fields.data);

  const Command &command = Find(fields.code);
  DWORD ret =
      command.handler != nullptr ? command.handler(fields.data, fields.length) : command.result;
  RebuildFrame(sInData, fields, SetErs2Status(0, ret));

  if (sInData[kStatusAt] == '0') {
    LogLine(0, "TovLumiSend(RespData:%.*s)", static_cast<int>(kFrameSize), sInData);
    return 0;
  }
  LogLine(0, "TovLumiSendError(CMD:%s / LEN:%s / DATA:%s)", fields.code, fields.length,
          fields.data);
  return -1;
}
