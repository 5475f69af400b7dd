#include "unit/frame.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace snmplumi {
namespace {

constexpr std::size_t kDataStart = 7;
constexpr std::size_t kDataArea = kHandlerFieldSize - 1;

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

void ParseFrame(const char *frame, FrameFields &fields) {
  CopyField(fields.code, frame, 0, 3);
  CopyField(fields.length, frame, 4, 3);
  int length = 0;
  if (std::sscanf(fields.length, "%x", &length) != 1 || length < 0) length = 0;
  CopyField(fields.data, frame, kDataStart,
            std::min<std::size_t>(static_cast<std::size_t>(length), kDataArea));
}

void RebuildFrame(char *frame, const FrameFields &fields, char status) {
  std::memcpy(frame, fields.code, std::strlen(fields.code));
  frame[3] = '0';
  // An answer longer than the frame (a card's identity text) is cut, and its length with it:
  // the host reads by the length, and a longer one would take it past its 48 bytes.
  const std::size_t whole = std::strlen(fields.data);
  const std::size_t answer = std::min(whole, kStatusAt - kDataStart);
  char cut[4];
  const char *length = fields.length;
  if (answer < whole) {
    std::snprintf(cut, sizeof cut, "%03zx", answer);
    length = cut;
  }
  for (std::size_t i = 0; i < 3 && length[i] != '\0'; ++i) frame[4 + i] = length[i];
  std::memcpy(frame + kDataStart, fields.data, answer);
  frame[kStatusAt] = status;
}

}  // namespace snmplumi
