#include "runtime/paths.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace snmplumi {
namespace {

char g_install_dir[kMaxInstallDirLen + 1] = "/usr/local/TELMAR";
char g_data_dir[kMaxInstallDirLen + sizeof("/data")] = "/usr/local/TELMAR/data";
char g_trap_report_address[64] = "";

}  // namespace

void LoadEnvironment() {
  const char *address = std::getenv(kTrapReportAddressEnv);
  if (address == nullptr || *address == '\0' ||
      std::strlen(address) >= sizeof g_trap_report_address) {
    address = kTrapReportTestAddress;
  }
  std::snprintf(g_trap_report_address, sizeof g_trap_report_address, "%s", address);

  const char *dir = std::getenv(kInstallDirEnv);
  if (dir == nullptr || *dir == '\0') {
    dir = kDefaultInstallDir;
  } else if (std::strlen(dir) > kMaxInstallDirLen) {
    // No log exists yet to say so; stderr is the only witness.
    std::fprintf(stderr, "snmplumi: %s is longer than %zu characters; using %s\n", kInstallDirEnv,
                 kMaxInstallDirLen, kDefaultInstallDir);
    dir = kDefaultInstallDir;
  }
  std::size_t len = std::strlen(dir);
  while (len > 1 && dir[len - 1] == '/') --len;  // "/x/" and "/x" name the same place
  std::snprintf(g_install_dir, sizeof g_install_dir, "%.*s", static_cast<int>(len), dir);
  std::snprintf(g_data_dir, sizeof g_data_dir, "%s/data", g_install_dir);
}

const char *InstallDir() { return g_install_dir; }

const char *DataDir() { return g_data_dir; }

const char *TrapReportAddress() {
  return g_trap_report_address[0] != '\0' ? g_trap_report_address : kTrapReportTestAddress;
}

bool FormatPath(char *dest, std::size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(dest, size, format, args);
  va_end(args);
  if (n < 0 || static_cast<std::size_t>(n) >= size) {
    if (size > 0) dest[0] = '\0';
    return false;
  }
  return true;
}

}  // namespace snmplumi
