// The profile store over arbitrary file contents: reads, a rewrite setting one value (which a
// well-formed file and request read back), and the line-as-format copy (for the sanitizers).
// Input: "SIZE\0SECTION\0KEY\0VALUE\0" then the file content.
#include <algorithm>
#include <filesystem>
#include <memory>

#include "fuzz_support.h"
#include "runtime/format_line.h"
#include "runtime/profile.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

using snmplumi::fuzz::Check;
using snmplumi::fuzz::NextField;

// A file whose lines survive a rewrite unchanged and are read whole (no NUL, no '%', every line
// ended and shorter than a read), and a request whose written line reads back as key=value.
bool Plain(const std::string &content, const std::string &section, const std::string &key,
           const std::string &value) {
  if (content.find_first_of(std::string("%\0", 2)) != std::string::npos) return false;
  if (!content.empty() && content.back() != '\n') return false;
  std::size_t start = 0;
  for (std::size_t end; (end = content.find('\n', start)) != std::string::npos; start = end + 1) {
    if (end - start + 1 >= snmplumi::kProfileLineSize - 1) return false;
  }
  const char *blank = " \t\n\v\f\r";
  return section.find_first_of(blank) == std::string::npos &&
         section.size() + 3 < snmplumi::kProfileLineSize - 1 && !key.empty() &&
         key.find_first_of(blank) == std::string::npos && key.find('=') == std::string::npos &&
         key[0] != '[' && value.find_first_of("\r\n") == std::string::npos &&
         (value.empty() || (value[0] != ' ' && value[0] != '\t')) &&
         key.size() + value.size() + 2 < snmplumi::kProfileLineSize - 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  [[maybe_unused]] static const bool ram = snmplumi::fuzz::PreferRamTempDir();
  static const snmplumi::testing::TempHome home;
  static const std::string file = home.data("fuzz.ini");
  const int buffer_size = std::clamp(std::atoi(NextField(data, size).c_str()), 1, 600);
  const std::string section = NextField(data, size);
  const std::string key = NextField(data, size);
  const std::string value = NextField(data, size);
  const std::string content(reinterpret_cast<const char *>(data), size);
  snmplumi::testing::PutFile(file, content);
  const char *path = file.c_str();

  std::FILE *out = std::fopen("/dev/null", "we");
  snmplumi::WriteLineAsFormat(out, content.c_str());
  std::fclose(out);

  // One byte more than asked: a value of exactly that size brings its NUL one past, by design.
  auto buffer = std::make_unique<char[]>(static_cast<std::size_t>(buffer_size) + 1);
  int stored = GetPrivateProfileString(section.c_str(), key.c_str(), "<default>", buffer.get(),
                                       buffer_size, path);
  Check(stored >= 0 && stored <= buffer_size &&
            std::strlen(buffer.get()) <= static_cast<std::size_t>(buffer_size),
        "a read stores at most its size");
  if (const char *found = ReadKeyValue(path, section.c_str(), key.c_str())) {
    Check(std::strncmp(buffer.get(), found, static_cast<std::size_t>(buffer_size) - 1) == 0,
          "both reads find the same value");
  }
  GetPrivateProfileInt(section.c_str(), key.c_str(), 7, path);
  auto config = std::make_unique<char[]>(snmplumi::kConfigValueSize);
  ReadConfigFileEx("fuzz.ini", section.c_str(), key.c_str(), config.get());

  Check(WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), path) == 1,
        "a rewrite in a writable directory succeeds");
  for (const auto &entry : std::filesystem::directory_iterator(home.data())) {
    Check(entry.path().extension() != ".TMP", "no temporary file is left behind");
  }
  if (Plain(content, section, key, value)) {
    const char *read = ReadKeyValue(path, section.c_str(), key.c_str());
    Check(read != nullptr && value == read, "a written value reads back");
  }
  std::remove(path);
  return 0;
}
