// Where the library keeps its files: the installation directory and what lies under it.
#pragma once

#include <cstddef>

namespace snmplumi {

inline constexpr const char *kDefaultInstallDir = "/usr/local/TELMAR";
inline constexpr const char *kInstallDirEnv = "SNMPLUMI_HOME";
// The trap report sends every request to one fixed private address, a test card on the
// installer's bench; this variable names another (tests point it at a simulated card).
inline constexpr const char *kTrapReportTestAddress = "192.168.10.250";
inline constexpr const char *kTrapReportAddressEnv = "SNMPLUMI_TRAP_REPORT_IP";

// Longest installation directory accepted from the environment; leaves room for every file name
// the library builds under it within a PATH_MAX buffer.
inline constexpr std::size_t kMaxInstallDirLen = 3800;

// Reads SNMPLUMI_HOME and SNMPLUMI_TRAP_REPORT_IP (or falls back to the defaults). Runs when the
// library is loaded; tests that link the core call it after setting the variables.
void LoadEnvironment();

// "/usr/local/TELMAR" or the override, without a trailing slash.
const char *InstallDir();
// InstallDir() + "/data".
const char *DataDir();
// Where the trap report sends its requests.
const char *TrapReportAddress();

// snprintf into dest; false (and an empty dest) when the result would not fit, so that a cut
// path never names another file.
bool FormatPath(char *dest, std::size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace snmplumi
