#include "runtime/system_error.h"

#include <cstring>

namespace snmplumi {

const char *ErrnoText(int error_number) {
  thread_local char buffer[256];
  // GNU strerror_r: returns either a static text or the buffer.
  return strerror_r(error_number, buffer, sizeof buffer);
}

}  // namespace snmplumi
