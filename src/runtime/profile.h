// The profile (INI) store's internals shared with the rest of the library.
#pragma once

#include <cstddef>
#include <string>

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

// GetPrivateProfileString's storing of a found value (or, when found is null, of fallback).
int StoreValue(const char *found, const char *fallback, char *dest, int nSize);

// A profile file of the data directory read once, answering ReadConfigFileEx's questions from
// memory: for a burst of reads (the settings at load) that would otherwise open and scan the
// file once per key. It is taken as ReadConfigFileEx takes a file: under the profile mutex,
// after the removal of an empty file.
class ProfileSnapshot {
 public:
  explicit ProfileSnapshot(const char *file_name);
  // What ReadConfigFileEx would store into dest (kConfigValueSize bytes).
  void Read(const char *section, const char *key, char *dest) const;

 private:
  std::string text_;
  bool exists_ = false;
};

}  // namespace snmplumi
