// Shared by the fuzzers: splitting an input into fields, and a temporary directory that is fast
// to write.
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
inline void PreferRamTempDir() {
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
}

// A finding: says what went wrong and aborts, which libFuzzer reports with the input.
inline void Check(bool condition, const char *what, const char *detail = "") {
  if (!condition) {
    std::fprintf(stderr, "fuzzer finding: %s %s\n", what, detail);
    std::abort();
  }
}

// Consumes the input up to the next NUL (or its end) as one text field: a NUL cannot be part of
// a C string anyway, and seeds stay readable.
inline std::string NextField(const uint8_t *&data, std::size_t &size) {
  const std::string rest(reinterpret_cast<const char *>(data), size);
  const std::string field = rest.substr(0, rest.find('\0'));
  const std::size_t used = std::min(field.size() + 1, size);
  data += used;
  size -= used;
  return field;
}

}  // namespace snmplumi::fuzz
