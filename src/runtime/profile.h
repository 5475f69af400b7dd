// The profile (INI) store's internals shared with the rest of the library.
#pragma once

#include <cstddef>

namespace snmplumi {

// The value the library's read calls give for an absent file, section or key.
inline constexpr char kDefaultValue[] = "<default>";
// What ReadConfigFileEx and its variants may store: 250 characters and the NUL, plus the byte
// GetPrivateProfileString writes past a value of exactly 250 characters.
inline constexpr std::size_t kConfigValueSize = 251;
inline constexpr int kConfigReadSize = 250;
// Lines are read in pieces of at most 511 characters.
inline constexpr std::size_t kProfileLineSize = 512;

// Full path of a file named relative to the data directory; false when it does not fit.
bool DataFilePath(char *dest, std::size_t size, const char *file_name);

}  // namespace snmplumi
