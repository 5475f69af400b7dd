// The lock wrapper of the profile store, the record lock offered to the host, and Sleep.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "runtime/system_error.h"
#include "snmplumi.h"

BOOL g_bDebugMode = 0;
int g_iMutexMode = 0;

namespace snmplumi {
namespace {

constexpr int kTrylockAttempts = 26;
constexpr unsigned long kTrylockPauseMicros = 200000;

void LogLockError(const char *tag, int count) {
  int error_number = errno;  // the log readers know errno's text, not the lock call's result
  LogLine(static_cast<DWORD>(error_number), "%s p=%d c=%d :%s", tag, static_cast<int>(getpid()),
          count, ErrnoText(error_number));
}

const char *LockTypeName(int type) {
  switch (type) {
    case F_UNLCK:
      return "F_UNLCK";
    case F_RDLCK:
      return "F_RDLCK";
    default:
      return "F_WRLCK";  // F_WRLCK, and any type the kernel will refuse anyway
  }
}

}  // namespace
}  // namespace snmplumi

int kavac_pthread_mutex_lock(pthread_mutex_t *lock_mutex, int count) {
  int result;
  switch (g_iMutexMode) {
    case 0:
      result = pthread_mutex_lock(lock_mutex);
      if (result != 0) snmplumi::LogLockError("[lck err]", count);
      return result;
    case 1:
      // About five seconds at most: 25 pauses between 26 tries.
      for (int attempt = 1;; ++attempt) {
        result = pthread_mutex_trylock(lock_mutex);
        if (result == 0 || attempt == snmplumi::kTrylockAttempts) break;
        snmplumi::CurrentClock().SleepMicros(snmplumi::kTrylockPauseMicros);
      }
      if (result != 0) snmplumi::LogLockError(" [trylock error]", count);
      return result;
    default:
      return -1;
  }
}

int kavac_pthread_mutex_unlock(pthread_mutex_t *lock_mutex, int lock_result, int count) {
  (void)count;
  if (lock_result == 0) pthread_mutex_unlock(lock_mutex);
  return 0;
}

// One non-blocking attempt, never retried: hosts rely on it failing at once on a locked file.
BOOL getlock(int fd, int type) {
  struct flock lock = {};
  lock.l_type = static_cast<short>(type);
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;
  if (fcntl(fd, F_SETLK, &lock) == 0) return 1;
  int error_number = errno;
  snmplumi::LogLine(static_cast<DWORD>(error_number), "fcntl retry over(%s)-p(%d):%s",
                    snmplumi::LockTypeName(type), static_cast<int>(lock.l_pid),
                    snmplumi::ErrnoText(error_number));
  return 0;
}

void Sleep(DWORD cMillisecond) {
  if (cMillisecond >= 1000) {
    snmplumi::CurrentClock().SleepSeconds(cMillisecond / 1000);
  } else {
    snmplumi::CurrentClock().SleepMicros(static_cast<unsigned long>(cMillisecond) * 1000);
  }
}
