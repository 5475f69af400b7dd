// What a ring log must look like whatever happened to its writers.
#pragma once

#include <fstream>
#include <regex>
#include <string>

namespace snmplumi::testing {

// "" when the ring log at path has a valid header: the "00000\n" of a new file (with a hole
// behind it once a record follows), or eight digits naming a record boundary below limit that
// the file reaches; with record, every record must match it too. Otherwise what is wrong.
inline std::string CheckRing(const std::string &path, long record_size, long limit,
                             const std::regex *record = nullptr) {
  std::ifstream in(path, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(in), {});
  const long size = static_cast<long>(text.size());
  const std::string header = text.substr(0, 9);
  bool valid =
      (header == "00000\n" && size == 6) || (header == std::string("00000\n\0\0\0", 9) && size > 9);
  if (!valid && std::regex_match(header, std::regex(R"(\d{8}\n)"))) {
    valid = std::stol(header) < limit && std::stol(header) % record_size == 0 &&
            9 + std::stol(header) <= size;
  }
  if (!valid) return path + ": header \"" + header + "\" in " + std::to_string(size) + " bytes";
  for (long at = 9; record != nullptr && at < size; at += record_size) {
    const std::string one = text.substr(static_cast<std::size_t>(at), record_size);
    if (!std::regex_match(one, *record)) return path + ": torn record \"" + one + "\"";
  }
  return "";
}

}  // namespace snmplumi::testing
