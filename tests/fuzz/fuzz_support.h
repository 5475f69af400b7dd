// Shared by the fuzzers.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace snmplumi::fuzz {

// Every input writes files: on a RAM filesystem when there is one, so that the fsyncs of the
// profile rewrites do not set the pace. Call before the TempHome is made.
inline bool PreferRamTempDir() {
  return access("/dev/shm", W_OK) != 0 || setenv("TMPDIR", "/dev/shm", 0) == 0;
}

// A finding: libFuzzer reports the abort with its input.
inline void Check(bool condition, const char *what, const char *detail = "") {
  if (condition) return;
  std::fprintf(stderr, "fuzzer finding: %s %s\n", what, detail);
  std::abort();
}

// The input up to its next NUL (a C string cannot hold one) or end, as one text field.
inline std::string NextField(const uint8_t *&data, std::size_t &size) {
  const std::string field(reinterpret_cast<const char *>(data),
                          strnlen(reinterpret_cast<const char *>(data), size));
  const std::size_t used = std::min(field.size() + 1, size);
  data += used;
  size -= used;
  return field;
}

}  // namespace snmplumi::fuzz
