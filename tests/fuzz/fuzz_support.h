// Shared by the fuzzers: splitting an input into fields, and a temporary directory that is fast
// to write.
#pragma once

#include <unistd.h>

#include <cstddef>
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
  const void *nul = std::memchr(data, '\0', size);
  std::size_t length =
      nul != nullptr ? static_cast<std::size_t>(static_cast<const uint8_t *>(nul) - data) : size;
  std::string field(reinterpret_cast<const char *>(data), length);
  std::size_t used = nul != nullptr ? length + 1 : length;
  data += used;
  size -= used;
  return field;
}

}  // namespace snmplumi::fuzz
