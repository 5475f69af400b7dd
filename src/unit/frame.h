// The unit's 48-character command frame: cut into its fields, and rewritten in place as the
// answer. Apart from the dispatcher so that it builds and is tested on its own, in 32 bits too.
#pragma once

#include <cstddef>

#include "unit/host_channel.h"

namespace snmplumi {

// The host promises 48 characters and nothing more: the data of a request or an answer lies in
// positions 7 to 46, position 47 is the status.
inline constexpr std::size_t kFrameSize = 48;
inline constexpr std::size_t kStatusAt = 47;

// A request's fields, each terminated, in the handlers' buffers.
struct FrameFields {
  char code[4];
  // Room for a handler that answers with a whole identity text (up to 129 characters).
  char data[kHandlerFieldSize];
  char length[kHandlerFieldSize] = {};
};

// Never reads past position 46 nor past a NUL; a length past the data area is cut to it.
void ParseFrame(const char *frame, FrameFields &fields);

// The answer is not terminated: what lay beyond it stays, and the host reads by the length.
void RebuildFrame(char *frame, const FrameFields &fields, char status);

}  // namespace snmplumi
