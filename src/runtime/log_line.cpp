#include "runtime/log_line.h"

#include <cstdarg>
#include <cstdio>

namespace snmplumi {

void LogLine(DWORD code, const char *format, ...) {
  char message[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  LumiLocalLog(message, code);
}

}  // namespace snmplumi
