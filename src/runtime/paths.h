// Where the library keeps its files: the installation directory and what lies under it.
#pragma once

#include <cstddef>

namespace snmplumi {

inline constexpr const char *kDefaultInstallDir = "/usr/local/TELMAR";
inline constexpr const char *kInstallDirEnv = "SNMPLUMI_HOME";

// Longest installation directory accepted from the environment; leaves room for every file name
// the library builds under it within a PATH_MAX buffer.
inline constexpr std::size_t kMaxInstallDirLen = 3800;

// Reads SNMPLUMI_HOME (or falls back to the default). Runs when the library is loaded; tests that
// link the core call it after setting the variable.
void LoadInstallDir();

// "/usr/local/TELMAR" or the override, without a trailing slash.
const char *InstallDir();
// InstallDir() + "/data".
const char *DataDir();

// snprintf into dest; false (and an empty dest) when the result would not fit, so that a cut
// path never names another file.
bool FormatPath(char *dest, std::size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace snmplumi
