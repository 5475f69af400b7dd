// Win32-named calls on POSIX, with the reduced semantics the library and its hosts rely on.
#include "runtime/platform.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr DWORD kGenericRead = 0x80000000u;
constexpr DWORD kGenericWrite = 0x40000000u;
constexpr DWORD kAttributeReadOnly = 0x1;
constexpr DWORD kAttributeTemporary = 0x100;

enum Disposition : DWORD {
  kCreateNew = 1,
  kCreateAlways = 2,
  kOpenExisting = 3,
  kOpenAlways = 4,
  kTruncateExisting = 5,
};

// Win32 start routines return nothing; pthread's return a pointer. Calling one through the
// other's type is undefined, so the thread starts here and calls the routine by its own type.
struct ThreadStart {
  void (*routine)(void *);
  void *argument;
};

void *RunThread(void *raw) {
  ThreadStart start = *static_cast<ThreadStart *>(raw);
  delete static_cast<ThreadStart *>(raw);
  start.routine(start.argument);
  return nullptr;
}

bool FormatTempName(char *dest, std::size_t size, const char *dir, const char *prefix,
                    unsigned int counter) {
  int n = std::snprintf(dest, size, "%s/%.3s%4.4x%s", dir, prefix != nullptr ? prefix : "", counter,
                        ".TMP");
  return n >= 0 && static_cast<std::size_t>(n) < size;
}

}  // namespace

bool CreateTempFile(const char *dir, const char *prefix, char *dest, std::size_t size,
                    unsigned int *counter_used) {
  if (dir == nullptr || dest == nullptr) return false;
  unsigned int counter = GetTickCount();
  for (unsigned int attempt = 0; attempt < kTempNameAttempts; ++attempt, ++counter) {
    if (!FormatTempName(dest, size, dir, prefix, counter)) return false;
    HANDLE fd = CreateFile(dest, kGenericWrite, 0, nullptr, kCreateNew, kAttributeTemporary, 0);
    if (fd != INVALID_HANDLE_VALUE) {
      CloseHandle(fd);
      if (counter_used != nullptr) *counter_used = counter;
      return true;
    }
  }
  return false;
}

}  // namespace snmplumi

void *GlobalAlloc(unsigned int uFlags, size_t dwBytes) {
  (void)uFlags;  // GMEM_ZEROINIT included: callers never relied on zeroed memory
  return std::malloc(dwBytes);
}

void *GlobalFree(void *hMem) {
  std::free(hMem);
  return nullptr;
}

uintptr_t _beginthread(void (*start_address)(void *), unsigned int stack_size, void *arglist) {
  (void)stack_size;
  auto *start = new (std::nothrow) snmplumi::ThreadStart{start_address, arglist};
  if (start == nullptr) return 0;
  pthread_t thread;
  if (pthread_create(&thread, nullptr, snmplumi::RunThread, start) != 0) {
    delete start;
    return 0;
  }
  pthread_detach(thread);
  return static_cast<uintptr_t>(thread);
}

int CloseHandle(HANDLE hObject) { return close(hObject); }

DWORD GetTickCount(void) {
  struct sysinfo info;
  if (sysinfo(&info) != 0) return 0;
  return static_cast<DWORD>(info.uptime) * 1000u;
}

HANDLE CreateFile(const char *lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                  void *lpSecurityAttributes, DWORD dwCreationDisposition,
                  DWORD dwFlagsAndAttributes, HANDLE hTemplateFile) {
  (void)dwShareMode;
  (void)lpSecurityAttributes;
  (void)hTemplateFile;
  using namespace snmplumi;
  int flags;
  if ((dwDesiredAccess & kGenericRead) && (dwDesiredAccess & kGenericWrite)) {
    flags = O_RDWR;
  } else if (dwDesiredAccess & kGenericWrite) {
    flags = O_WRONLY;
  } else {
    flags = O_RDONLY;
  }
  mode_t mode = (dwFlagsAndAttributes & kAttributeReadOnly) ? 0444 : 0644;
  switch (dwCreationDisposition) {
    case kCreateNew:
      return open(lpFileName, flags | O_CREAT | O_EXCL, mode);
    case kCreateAlways:
      return open(lpFileName, flags | O_CREAT | O_TRUNC, mode);
    case kOpenAlways: {
      int fd = open(lpFileName, flags);
      return fd >= 0 ? fd : open(lpFileName, flags | O_CREAT, mode);
    }
    case kTruncateExisting:
      return INVALID_HANDLE_VALUE;
    case kOpenExisting:
    default:
      return open(lpFileName, flags);
  }
}

BOOL WriteFile(HANDLE hFile, const void *lpBuffer, DWORD nNumberOfBytesToWrite,
               DWORD *lpNumberOfBytesWritten, OVERLAPPED *lpOverlapped) {
  if (lpNumberOfBytesWritten != nullptr) *lpNumberOfBytesWritten = 0;
  if (lpOverlapped != nullptr) lseek(hFile, static_cast<off_t>(lpOverlapped->Offset), SEEK_SET);
  ssize_t written = write(hFile, lpBuffer, nNumberOfBytesToWrite);
  if (written < 0) return 0;
  if (lpNumberOfBytesWritten != nullptr) *lpNumberOfBytesWritten = static_cast<DWORD>(written);
  return 1;
}

unsigned int GetTempFileName(const char *lpPathName, const char *lpPrefixString,
                             unsigned int uUnique, char *lpTempFileName) {
  if (lpPathName == nullptr || lpTempFileName == nullptr) return 0;
  // The caller's buffer size is not passed; the name is at most the directory plus 17 bytes.
  std::size_t size = std::strlen(lpPathName) + 18;
  if (uUnique != 0) {
    snmplumi::FormatTempName(lpTempFileName, size, lpPathName, lpPrefixString, uUnique);
    return uUnique;
  }
  unsigned int counter = 0;
  if (!snmplumi::CreateTempFile(lpPathName, lpPrefixString, lpTempFileName, size, &counter)) {
    return 0;
  }
  return counter;
}

DWORD GetModuleFileName(void *hModule, char *lpFilename, DWORD nSize) {
  if (hModule != nullptr || lpFilename == nullptr || nSize == 0) return 0;
  char link[32];
  std::snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(getpid()));
  char target[4096];
  ssize_t length = readlink(link, target, sizeof target - 1);
  if (length < 0) length = 0;  // an unreadable link gives an empty name
  target[length] = '\0';
  DWORD len = static_cast<DWORD>(length);
  if (len + 1 > nSize) {
    std::memcpy(lpFilename, target, nSize - 1);
    lpFilename[nSize - 1] = '\0';
    return nSize - 1;
  }
  std::memcpy(lpFilename, target, len + 1);
  return len;
}

DWORD GetTempPath(DWORD nBufferLength, char *lpBuffer) {
  char module[256];
  GetModuleFileName(nullptr, module, sizeof module);
  char *slash = std::strrchr(module, '/');
  if (slash != nullptr) {
    slash[1] = '\0';
  } else {
    std::strcpy(module, "/");
  }
  if (lpBuffer == nullptr || std::strlen(module) + 1 > nBufferLength) return 0;
  std::strcpy(lpBuffer, module);
  return 1;
}

int kav_strlen(const char *str) { return str == nullptr ? 0 : static_cast<int>(std::strlen(str)); }
