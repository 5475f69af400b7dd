// printf-style front end of the library log.
#pragma once

#include "snmplumi.h"

namespace snmplumi {

// Formats into a 512-character message buffer and writes one record of the library log with
// code (the record keeps the first 80 characters).
void LogLine(DWORD code, const char *format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace snmplumi
