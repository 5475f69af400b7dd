// What loading and unloading the library does.
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "config/settings.h"
#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "runtime/paths.h"
#include "runtime/ring_log.h"
#include "runtime/system_error.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"

namespace snmplumi {
namespace {

constexpr int kMutexAttempts = 10;
constexpr int kApiSupportLevel = 9612;

struct MutexRow {
  pthread_mutex_t *mutex;
  const char *created;  // logged in debug mode
};

// Created in this order; the reads before them rely on the zero state of the logging and
// profile mutexes being a usable unlocked mutex.
const MutexRow kMutexes[] = {
    {&g_hMutexTovLumiStopControl, "[snmplumi] g_hMutexTovLumiStopControl ok"},
    {&g_hLocalLoggingMutex, "[snmplumi] g_hLocalLoggingMutex ok"},
    {&g_hLocalLogging2Mutex, "[snmplumi] g_hLocalLogging2Mutex ok"},
    {&g_hLocalLogging3Mutex, "[snmplumi] g_hLocalLogging3Mutex ok"},
    {&g_hLocalIniFileMutex, "[snmplumi] INI File Mutex ok"},
};

void DebugLog(const char *message) {
  if (g_bDebugMode == 1) LumiLocalLog(message, 0);
}

void CreateMutexes() {
  for (const MutexRow &row : kMutexes) {
    for (int attempt = 0; attempt < kMutexAttempts; ++attempt) {
      if (pthread_mutex_init(row.mutex, nullptr) == 0) {
        DebugLog(row.created);
        break;
      }
      CurrentClock().SleepSeconds(1);
    }
  }
}

// Records written after unload still lock these; a destroyed mutex is put back into the state
// a record before load would have found.
void DestroyToZeroState(pthread_mutex_t &mutex) {
  pthread_mutex_destroy(&mutex);
  static const pthread_mutex_t kZeroState = PTHREAD_MUTEX_INITIALIZER;
  mutex = kZeroState;
}

}  // namespace
}  // namespace snmplumi

void DebugModeCheck(void) { snmplumi::ReadDebugSwitch(); }

void lib_init(void) {
  g_iMutexMode = 0;
  DebugModeCheck();
  snmplumi::DebugLog("[snmplumi] lib_init start");

  std::memset(ups_X1, 0, sizeof ups_X1);
  std::memset(ups_Other_X1, 0, sizeof ups_Other_X1);
  ups_Falut = 0;
  std::memset(ups_Server_Falut, 0, sizeof ups_Server_Falut);
  std::memset(ups_Other_Falut, 0, sizeof ups_Other_Falut);
  OID2upsSCGMembershipGroupNumberErrorCount = 0;
  UpscApiSupportLevel = snmplumi::kApiSupportLevel;
  SignalResponse1 = 0;
  SignalResponse2 = 0;
  // The installation directory actually in use ("/usr/local/TELMAR" unless overridden).
  std::snprintf(LumiPathName, sizeof LumiPathName, "%s", snmplumi::InstallDir());

  {
    // Not across CreateMutexes: the batch ends under the logging mutex it re-creates.
    snmplumi::LibraryLogBatch batch;
    snmplumi::ReadSettings();
  }
  snmplumi::CreateMutexes();
  snmplumi::DebugLog("[snmplumi] lib_init end");
}

void lib_end(void) {
  snmplumi::DebugLog("[snmplumi] lib_end start");
  SnmpEnd();
  {
    // Frees what net-snmp holds, so that unloading the library leaks nothing; it writes no
    // state file (persistent saving is switched off at initialisation).
    std::lock_guard<std::mutex> lock(snmplumi::NetSnmpMutex());
    snmplumi::ShutdownNetSnmp();
  }
  snmplumi::DestroyToZeroState(g_hLocalLoggingMutex);
  snmplumi::DestroyToZeroState(g_hLocalLogging2Mutex);
  snmplumi::DestroyToZeroState(g_hLocalLogging3Mutex);
  if (g_bDebugMode == 1) {
    int error_number = errno;
    snmplumi::LogLine(static_cast<DWORD>(error_number), "[snmplumi] lib_end end : %s",
                      snmplumi::ErrnoText(error_number));
  }
}
