// The host command channel: commands for the host's own unit, passed through the host's
// call-backs (DromIssueUpsCommand), and the form of the unit's command handlers.
#pragma once

#include "snmplumi.h"

namespace snmplumi {

// Every command handler: the command's data and its three-hex-digit length, both writable
// buffers of kHandlerFieldSize bytes, rewritten when the handler answers; 0 for success.
using CommandHandler = DWORD (*)(char *Data, char *DataLen);
inline constexpr int kHandlerFieldSize = 256;

// A channel response: positions 0-1 echo the command letters, the data starts at 2.
inline constexpr int kChannelResponseSize = 256;
inline constexpr int kChannelDataStart = 2;

// A channel command: the printf format of its text and the response length the host is told.
struct ChannelCommand {
  const char *format;
  int response_length;
};

// The channel commands and their response lengths (the address commands are rows of
// host_channel.cpp).
namespace channel {
inline constexpr ChannelCommand kReadX1x{"Cp", 17};                    // alarm flags
inline constexpr ChannelCommand kReadClock{"CM", 14};                  // clock
inline constexpr ChannelCommand kReadReap{"CU", 3};                    // reap counter
inline constexpr ChannelCommand kReadLog{"CG%02d", 17};                // log number
inline constexpr ChannelCommand kWriteLanMan{"PACP%d1%02d%d%s", 23};   // slot, table, mode, name
inline constexpr ChannelCommand kReadLanMan{"CP%d1%02d", 23};          // slot, table
inline constexpr ChannelCommand kSetNetConf{"PAGC%d%d", 4};            // slot, mode
inline constexpr ChannelCommand kWriteTcpPortNo{"PACP%c2%s%d%s", 23};  // slot, table, mode, port
inline constexpr ChannelCommand kReadTcpPortNo{"CP%c2%s", 23};         // slot, table
}  // namespace channel

// Formats the command with the arguments and sends it with SendDromCommand; the host's answer
// lands in response (kChannelResponseSize bytes). The channel's result.
DWORD SendChannelCommand(const ChannelCommand &command, char *response, ...);

}  // namespace snmplumi
