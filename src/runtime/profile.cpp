// Profile files: sections of key=value lines, read one value at a time and rewritten whole
// through a temporary file that replaces the target in one rename on the target's filesystem.
#include "runtime/profile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "runtime/format_line.h"
#include "runtime/log_line.h"
#include "runtime/paths.h"
#include "runtime/platform.h"
#include "runtime/system_error.h"
#include "snmplumi.h"

pthread_mutex_t g_hLocalIniFileMutex = PTHREAD_MUTEX_INITIALIZER;

namespace snmplumi {
namespace {

constexpr int kReadLockTag = 1000;
constexpr int kWriteLockTag = 1001;

struct FileCloser {
  void operator()(std::FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The first blank-delimited word of text, as [begin, begin + length).
const char *FirstWord(const char *text, std::size_t *length) {
  while (IsBlank(*text)) ++text;
  const char *end = text;
  while (*end != '\0' && !IsBlank(*end)) ++end;
  *length = static_cast<std::size_t>(end - text);
  return text;
}

// A "\n" or "\r" in the last position goes, then one in the position before the original last:
// "\r\n" endings disappear. Trailing blanks stay.
void CutLineEnd(char *value) {
  std::size_t length = std::strlen(value);
  if (length >= 1 && (value[length - 1] == '\n' || value[length - 1] == '\r')) {
    value[length - 1] = '\0';
  }
  if (length >= 2 && (value[length - 2] == '\n' || value[length - 2] == '\r')) {
    value[length - 2] = '\0';
  }
}

// The directory part of path: "." for a bare name, "/" for a file in the root.
bool DirectoryOf(const char *path, char *dir, std::size_t size) {
  if (!FormatPath(dir, size, "%s", path)) return false;
  char *slash = std::strrchr(dir, '/');
  if (slash == nullptr) {
    std::strcpy(dir, ".");
  } else if (slash == dir) {
    dir[1] = '\0';
  } else {
    *slash = '\0';
  }
  return true;
}

// Makes a rename durable: without it a power cut can bring back the old file, or none.
void SyncDirectoryOf(const char *path) {
  char dir[4096];
  if (!DirectoryOf(path, dir, sizeof dir)) return;
  int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

// Copies from over to, and waits until the copy is on the disk.
bool CopyToDisk(const char *from, const char *to) {
  File in(std::fopen(from, "rbe"));
  File out(std::fopen(to, "wbe"));
  if (!in || !out) return false;
  char buffer[8192];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, in.get())) > 0) {
    if (std::fwrite(buffer, 1, n, out.get()) != n) return false;
  }
  bool copied =
      std::ferror(in.get()) == 0 && std::fflush(out.get()) == 0 && fsync(fileno(out.get())) == 0;
  return (std::fclose(out.release()) == 0) && copied;
}

// rename(2) stops at the edge of a filesystem, and hosts name targets anywhere: the finished
// file is copied next to the target first, so that the target still changes in one step.
bool RenameAcrossFilesystems(const char *finished, const char *target) {
  char dir[4096];
  char beside[4096];
  if (!DirectoryOf(target, dir, sizeof dir) ||
      !CreateTempFile(dir, "_um", beside, sizeof beside, nullptr)) {
    return false;
  }
  if (!CopyToDisk(finished, beside) || rename(beside, target) != 0) {
    unlink(beside);
    return false;
  }
  return true;
}

// Puts the finished temporary file in place of target; the temporary file is gone either way.
bool Replace(const char *temp_path, const char *target) {
  if (rename(temp_path, target) != 0) {
    const bool moved = errno == EXDEV && RenameAcrossFilesystems(temp_path, target);
    unlink(temp_path);
    if (!moved) return false;
  }
  SyncDirectoryOf(target);
  return true;
}

// Copies source (nullptr: an empty file) into out with key set to value in every section named
// section. False on a read or write error.
bool CopyWithKey(std::FILE *source, std::FILE *out, const char *section, const char *key,
                 const char *value) {
  char line[kProfileLineSize];
  char work[kProfileLineSize];
  char ignored[kProfileLineSize];
  bool in_section = false;
  bool section_found = false;
  bool key_written = false;
  while (source != nullptr && std::fgets(line, sizeof line, source) != nullptr) {
    if (in_section) {
      if (line[0] == '[') {
        // A new key lands just before the next section, after any blank lines.
        if (!key_written) std::fprintf(out, "%s=%s\n", key, value);
        key_written = true;
        in_section = false;
      } else {
        std::memcpy(work, line, sizeof line);
        if (GetKeyName(work, key, ignored)) {
          std::fprintf(out, "%s=%s\n", key, value);  // every such line, not only the first
          key_written = true;
        } else {
          WriteLineAsFormat(out, line);
        }
        continue;
      }
    }
    WriteLineAsFormat(out, line);
    if (IsAppName(line, section)) in_section = section_found = true;
  }
  if (in_section && !key_written) std::fprintf(out, "%s=%s\n", key, value);
  if (!section_found) std::fprintf(out, "\n[%s]\n%s=%s\n", section, key, value);
  return std::ferror(out) == 0 && (source == nullptr || std::ferror(source) == 0);
}

// Whether line holds key, as GetKeyName decides (the first '=' read as a blank), without
// storing its value.
bool HoldsKey(const char *line, const char *key) {
  const char *equals = std::strchr(line, '=');
  if (equals == nullptr) return false;
  const char *word = line;
  while (*word != '\0' && (IsBlank(*word) || word == equals)) ++word;
  const char *end = word;
  while (*end != '\0' && end != equals && !IsBlank(*end)) ++end;
  std::size_t length = static_cast<std::size_t>(end - word);
  return length > 0 && length == std::strlen(key) && std::strncmp(word, key, length) == 0;
}

}  // namespace

// The value of key in the first section named section, the lines coming from next as fgets
// gives them; nullptr when absent. Only that section is searched, up to the next line that
// starts with '['.
template <typename NextLine>
char *FindValue(NextLine next, const char *section, const char *key, char (&line)[kProfileLineSize],
                char (&value)[kProfileLineSize]) {
  bool in_section = false;
  while (!in_section) {
    if (!next(line)) return nullptr;
    in_section = IsAppName(line, section) != 0;
  }
  while (next(line)) {
    if (line[0] == '[') return nullptr;
    if (HoldsKey(line, key) && GetKeyName(line, key, value)) {
      char *start = value;
      while (*start == ' ' || *start == '\t') ++start;
      return start;
    }
  }
  return nullptr;
}

bool DataFilePath(char *dest, std::size_t size, const char *file_name) {
  return file_name != nullptr && FormatPath(dest, size, "%s/%s", DataDir(), file_name);
}

int StoreValue(const char *found, const char *fallback, char *dest, int nSize) {
  if (dest == nullptr || nSize < 1) return 0;
  const auto size = static_cast<std::size_t>(nSize);
  if (found != nullptr) {
    std::size_t length = std::strlen(found);
    if (length > size) {
      std::memcpy(dest, found, size - 1);
      dest[size - 1] = '\0';
      return nSize - 1;
    }
    // A value of exactly nSize characters is stored whole with its NUL at [nSize]: the test is
    // "greater than", kept so; the caller's buffer has room for it.
    std::memcpy(dest, found, length + 1);
    return static_cast<int>(length);
  }
  if (fallback == nullptr) fallback = "";
  std::size_t length = std::min(std::strlen(fallback), size - 1);
  std::memcpy(dest, fallback, length);
  dest[length] = '\0';
  dest[size - 1] = '\0';
  return nSize - 1;
}

ProfileSnapshot::ProfileSnapshot(const char *file_name) {
  int lock = kavac_pthread_mutex_lock(&g_hLocalIniFileMutex, kReadLockTag);
  FileCheck(file_name);
  char path[4096];
  if (DataFilePath(path, sizeof path, file_name)) {
    File file(std::fopen(path, "re"));
    if (file) {
      exists_ = true;
      char chunk[4096];
      std::size_t n;
      while ((n = std::fread(chunk, 1, sizeof chunk, file.get())) > 0) text_.append(chunk, n);
    }
  }
  kavac_pthread_mutex_unlock(&g_hLocalIniFileMutex, lock, kReadLockTag);
}

void ProfileSnapshot::Read(const char *section, const char *key, char *dest) const {
  if (dest == nullptr) return;
  std::strcpy(dest, kDefaultValue);
  if (!exists_ || section == nullptr || key == nullptr) return;
  char line[kProfileLineSize];
  char value[kProfileLineSize];
  std::size_t at = 0;
  // The lines as fgets would give them: up to and with the newline, at most 511 characters.
  auto next = [this, &at](char(&into)[kProfileLineSize]) {
    if (at >= text_.size()) return false;
    std::size_t end = text_.find('\n', at);
    std::size_t length =
        std::min((end == std::string::npos ? text_.size() : end + 1) - at, sizeof into - 1);
    std::memcpy(into, text_.data() + at, length);
    into[length] = '\0';
    at += length;
    return true;
  };
  StoreValue(FindValue(next, section, key, line, value), kDefaultValue, dest, kConfigReadSize);
}

}  // namespace snmplumi

using snmplumi::File;
using snmplumi::kProfileLineSize;

int IsAppName(const char *line, const char *pAppName) {
  if (line == nullptr || pAppName == nullptr || line[0] != '[') return 0;
  std::size_t length = 0;
  const char *word = snmplumi::FirstWord(line, &length);
  std::size_t name_length = std::strlen(pAppName);
  return length == name_length + 2 && word[length - 1] == ']' &&
         strncasecmp(word + 1, pAppName, name_length) == 0;
}

int GetKeyName(char *line, const char *pKeyName, char *value) {
  if (line == nullptr) return 0;
  char *equals = std::strchr(line, '=');
  if (equals == nullptr) return 0;
  *equals = ' ';
  if (value != nullptr) {
    std::strcpy(value, equals + 1);
    snmplumi::CutLineEnd(value);
  }
  if (pKeyName == nullptr) return 0;
  std::size_t length = 0;
  const char *word = snmplumi::FirstWord(line, &length);
  return length > 0 && length == std::strlen(pKeyName) && std::strncmp(word, pKeyName, length) == 0;
}

char *ReadKeyValue(const char *lpFileName, const char *lpAppName, const char *lpKeyName) {
  // Per-thread buffers: host threads read profiles concurrently.
  thread_local char line[kProfileLineSize];
  thread_local char value[kProfileLineSize];
  if (lpFileName == nullptr || lpAppName == nullptr || lpKeyName == nullptr) return nullptr;
  File file(std::fopen(lpFileName, "re"));
  if (!file) return nullptr;
  auto next = [&file](char(&into)[kProfileLineSize]) {
    return std::fgets(into, sizeof into, file.get()) != nullptr;
  };
  return snmplumi::FindValue(next, lpAppName, lpKeyName, line, value);
}

int GetPrivateProfileString(const char *lpAppName, const char *lpKeyName, const char *lpDefault,
                            char *lpReturnedString, int nSize, const char *lpFileName) {
  return snmplumi::StoreValue(ReadKeyValue(lpFileName, lpAppName, lpKeyName), lpDefault,
                              lpReturnedString, nSize);
}

unsigned int GetPrivateProfileInt(const char *lpAppName, const char *lpKeyName, int nDefault,
                                  const char *lpFileName) {
  const char *found = ReadKeyValue(lpFileName, lpAppName, lpKeyName);
  if (found == nullptr) return static_cast<unsigned int>(nDefault);
  int value = std::atoi(found);
  return value < 0 ? 0u : static_cast<unsigned int>(value);
}

BOOL WriteStringToFile(const char *lpFileName, const char *lpAppName, const char *lpKeyName,
                       const char *lpString) {
  if (lpFileName == nullptr || lpAppName == nullptr || lpKeyName == nullptr ||
      lpString == nullptr) {
    return 0;
  }
  // A missing file is created empty first: until the rename it reads as absent.
  const bool exists = access(lpFileName, F_OK) == 0;
  File source(std::fopen(lpFileName, exists ? "re" : "we"));
  if (!source) return 0;
  if (!exists) source.reset();

  char temp_path[4096];
  if (!snmplumi::CreateTempFile(snmplumi::DataDir(), "_um", temp_path, sizeof temp_path, nullptr)) {
    return 0;
  }
  File out(std::fopen(temp_path, "we"));
  if (!out) {
    unlink(temp_path);
    return 0;
  }
  bool copied = snmplumi::CopyWithKey(source.get(), out.get(), lpAppName, lpKeyName, lpString);
  source.reset();
  // The target is replaced only by a complete copy that has reached the disk: a full disk or a
  // killed process leaves the old file in place.
  copied = copied && std::fflush(out.get()) == 0 && fsync(fileno(out.get())) == 0;
  copied = (std::fclose(out.release()) == 0) && copied;
  if (!copied) {
    unlink(temp_path);
    return 0;
  }
  return snmplumi::Replace(temp_path, lpFileName) ? 1 : 0;
}

BOOL WritePrivateProfileString(const char *lpAppName, const char *lpKeyName, const char *lpString,
                               const char *lpFileName) {
  return WriteStringToFile(lpFileName, lpAppName, lpKeyName, lpString);
}

void FileCheck(const char *pFileName) {
  char path[4096];
  if (!snmplumi::DataFilePath(path, sizeof path, pFileName)) return;
  struct stat status;
  if (lstat(path, &status) != 0) {
    int error_number = errno;
    if (error_number != ENOENT) {
      snmplumi::LogLine(static_cast<DWORD>(error_number), "[%s] stat err... ", pFileName);
    }
    return;
  }
  // A file left empty by an interrupted rewrite is treated as absent.
  if (status.st_size == 0) {
    snmplumi::LogLine(0, "[%s]delete...", pFileName);
    unlink(path);
  }
}

void ReadConfigFileEx2(const char *pFileName, const char *pAppName, const char *pKeyName,
                       char *pReturnedString) {
  if (pReturnedString == nullptr) return;
  std::strcpy(pReturnedString, snmplumi::kDefaultValue);
  char path[4096];
  if (!snmplumi::DataFilePath(path, sizeof path, pFileName)) return;
  GetPrivateProfileString(pAppName, pKeyName, snmplumi::kDefaultValue, pReturnedString,
                          snmplumi::kConfigReadSize, path);
}

void ReadConfigFileEx3(const char *pFileName, const char *pAppName, const char *pKeyName,
                       char *pReturnedString) {
  FileCheck(pFileName);
  ReadConfigFileEx2(pFileName, pAppName, pKeyName, pReturnedString);
}

void ReadConfigFileEx(const char *pFileName, const char *pAppName, const char *pKeyName,
                      char *pReturnedString) {
  int lock = kavac_pthread_mutex_lock(&g_hLocalIniFileMutex, snmplumi::kReadLockTag);
  ReadConfigFileEx3(pFileName, pAppName, pKeyName, pReturnedString);
  kavac_pthread_mutex_unlock(&g_hLocalIniFileMutex, lock, snmplumi::kReadLockTag);
}

void WriteConfigFileEx2(const char *pFileName, const char *pAppName, const char *pKeyName,
                        const char *pString) {
  char path[4096];
  if (!snmplumi::DataFilePath(path, sizeof path, pFileName)) return;
  WritePrivateProfileString(pAppName, pKeyName, pString, path);
}

void WriteConfigFileEx3(const char *pFileName, const char *pAppName, const char *pKeyName,
                        const char *pString) {
  FileCheck(pFileName);
  WriteConfigFileEx2(pFileName, pAppName, pKeyName, pString);
}

void WriteConfigFileEx(const char *pFileName, const char *pAppName, const char *pKeyName,
                       const char *pString) {
  int lock = kavac_pthread_mutex_lock(&g_hLocalIniFileMutex, snmplumi::kWriteLockTag);
  WriteConfigFileEx3(pFileName, pAppName, pKeyName, pString);
  kavac_pthread_mutex_unlock(&g_hLocalIniFileMutex, lock, snmplumi::kWriteLockTag);
}

void InitCfgParameterName(void) {}
