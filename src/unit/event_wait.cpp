// The unit's event channel: the blocking wait, its stop, and the SNMP trap listener it services.
//
// The wait keeps its one-second cadence. While the trap listener is open it spends each second
// servicing that session alone (poll on its socket, then net-snmp's read of that socket), so a
// trap reaches snmp_input even when no request runs and datagrams never pile up; no other
// session is touched. When port 162 cannot be opened, each call instead reports from the status
// words that the power-state watch keeps, pausing a second before each "nothing yet".
#include "unit/event_wait.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "config/status_words.h"
#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "snmp/exchange.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"

netsnmp_session Trap_sess;
netsnmp_session *Trap_session = &Trap_sess;
netsnmp_session *Trap_ss;
char *forTrapLumiReceiveData;
int Print;
int Syslog;
int Event;
int dropauth;
int reconfig;
HANDLE hNewTraps;

namespace snmplumi {
namespace {

// Where the listener binds. net-snmp 5.9 binds its "snmp" default (port 161) for a session
// without a peer name whatever local_port says; the transport named as the peer of a server
// session (local_port non-zero) binds the trap port on every local address.
char kTrapTransport[] = "udp:162";
constexpr u_short kTrapPort = 162;

constexpr std::size_t kStatusStringSize = 49;  // 48 characters and the NUL
constexpr char kEventFormat[] =
    "8010012%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x000000000000000000000";
constexpr char kStopFormat[] = "00000000000000000000000000000000000000000000000%c";
constexpr char kStopStatus = '8';

constexpr std::chrono::seconds kCadence{1};

// SNMPv1 generic trap numbers 0 to 6.
constexpr const char *kGenericTraps[] = {
    "Cold Start",        "Warm Start",          "Link Down", "Link Up", "Authentication Failure",
    "EGP Neighbor Loss", "Enterprise Specific",
};
constexpr char kUnknownTrap[] = "Unknown Type";

// g_hMutexTovLumiStopControl, held for single reads and writes of the flags it guards.
class StopControlLock {
 public:
  StopControlLock() { pthread_mutex_lock(&g_hMutexTovLumiStopControl); }
  ~StopControlLock() { pthread_mutex_unlock(&g_hMutexTovLumiStopControl); }
  StopControlLock(const StopControlLock &) = delete;
  StopControlLock &operator=(const StopControlLock &) = delete;
};

// The flags are plain exported ints that other threads write; each access is one atomic access,
// so a reader outside the lock sees a whole value.
std::atomic_ref<int> Flag(int &flag) { return std::atomic_ref<int>(flag); }

void SetRunFlag(BOOL value) { Flag(TovLumiGet_RunFlag).store(value, std::memory_order_relaxed); }

bool StopRequested() { return Flag(TovLumiStopFlag).load(std::memory_order_acquire) == 1; }

void ConsumeStop() {
  StopControlLock lock;
  if (Flag(TovLumiStopFlag).load(std::memory_order_relaxed) == 1) {
    Flag(TovLumiStopFlag).store(0, std::memory_order_relaxed);
  }
}

// Clears TrapRetStatus; true when it was set.
bool TakeTrapEvent() {
  StopControlLock lock;
  return Flag(TrapRetStatus).exchange(0, std::memory_order_relaxed) != 0;
}

void WriteStopString(char *out) { std::snprintf(out, kStatusStringSize, kStopFormat, kStopStatus); }

// The nine words of slot, then the other group's summary.
void WriteEventString(char *out, int slot) {
  int(&words)[9] = ups_X1[slot];
  std::snprintf(out, kStatusStringSize, kEventFormat, LoadWord(words[0]), LoadWord(words[1]),
                LoadWord(words[2]), LoadWord(words[3]), LoadWord(words[4]), LoadWord(words[5]),
                LoadWord(words[6]), LoadWord(words[7]), LoadWord(words[8]),
                LoadWord(ups_Other_X1_t));
}

// The stop honoured: the stop string, and the wait is over.
int ReturnStopped(char *out) {
  LumiLocalLog("TovLumiGet Break! by TovLumiStopFlag", 0);
  ConsumeStop();
  SetRunFlag(0);
  WriteStopString(out);
  LumiLocalLog("<====TovLumiGet error", 0);
  return 1;
}

// Opens the listener on port 162; false when the port cannot be had (taken, or not permitted).
bool OpenTrapListener() {
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    EnsureNetSnmp();
    snmp_sess_init(Trap_session);
    Trap_session->peername = kTrapTransport;
    Trap_session->version = SNMP_DEFAULT_VERSION;
    Trap_session->community = reinterpret_cast<u_char *>(UpsCommunity);
    Trap_session->community_len = strnlen(UpsCommunity, sizeof UpsCommunity);
    Trap_session->retries = SNMP_DEFAULT_RETRIES;
    Trap_session->timeout = SNMP_DEFAULT_TIMEOUT;
    Trap_session->local_port = kTrapPort;
    Trap_session->callback = snmp_input;
    Trap_session->callback_magic = nullptr;
    Trap_session->authenticator = nullptr;
  }
  {
    StopControlLock lock;
    Flag(running).store(0, std::memory_order_relaxed);
    Flag(TrapRetStatus).store(0, std::memory_order_relaxed);
  }
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  Trap_ss = snmp_open(Trap_session);
  return Trap_ss != nullptr;
}

void CloseTrapListener() {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  if (Trap_ss != nullptr) snmp_close(Trap_ss);
  Trap_ss = nullptr;
}

// One second of the wait: the trap session serviced throughout when it is open, else a sleep.
void WaitOneSecond() {
  void *listener = nullptr;
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    // Null also when net-snmp no longer knows the session (snmp_shutdown closed it).
    if (Trap_ss != nullptr) listener = snmp_sess_pointer(Trap_ss);
  }
  if (listener == nullptr) {
    CurrentClock().SleepSeconds(1);
    return;
  }
  using SteadyClock = std::chrono::steady_clock;
  const SteadyClock::time_point end = SteadyClock::now() + kCadence;
  for (SteadyClock::time_point now = SteadyClock::now(); now < end; now = SteadyClock::now()) {
    ServiceSession(listener, std::chrono::ceil<std::chrono::milliseconds>(end - now));
  }
}

// Step 3: until the host signals an event or asks to stop.
int WaitLoop(char *out) {
  while (true) {
    if (TakeTrapEvent()) {
      LumiLocalLog("---->TovLumiGet end...", 0);
      return 0;
    }
    if (StopRequested()) break;
    WaitOneSecond();
  }
  TakeTrapEvent();
  int result = ReturnStopped(out);
  CloseTrapListener();
  return result;
}

bool InService(int slot) { return (LoadWord(ups_X1[slot][1]) & kOutOfService) == 0; }
bool TimedOut(int slot) { return (LoadWord(ups_X1[slot][0]) & kPowerFailWait) != 0; }

// Step 4: the trap port is unavailable; report from the status words.
int PollingFallback(char *out) {
  if (StopRequested()) return ReturnStopped(out);
  if ((LoadWord(ups_Other_X1_t) & kPowerFailWait) != 0) {
    // Slot 0 whatever its own state, deliberately.
    SetRunFlag(0);
    WriteEventString(out, 0);
    LumiLocalLog("<****TovLumiGet return", 1);
    return 0;
  }
  int running_ups = 0;
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (std::strcmp(UpsIp[slot], kUnusedSlot) != 0 && InService(slot) && !TimedOut(slot)) {
      ++running_ups;
    }
  }
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    if (!InService(slot) || !TimedOut(slot)) continue;
    if (running_ups == 0) {
      // Every UPS in service has timed out: the first one is the event.
      SetRunFlag(0);
      WriteEventString(out, slot);
      LumiLocalLog("<----TovLumiGet return", 1);
      return 0;
    }
    // Others still run: out of service, never reported on its own.
    SetBits(ups_X1[slot][1], kOutOfService);
  }
  LumiLocalLog("---->TovLumiGet error...[sleep start]", 0);
  CurrentClock().SleepSeconds(1);
  LumiLocalLog("---->TovLumiGet error...[sleep end]", 0);
  return -1;
}

}  // namespace

void ForgetTrapSession() {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  Trap_ss = nullptr;
}

int TrapListenerSocket() {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  void *listener = Trap_ss != nullptr ? snmp_sess_pointer(Trap_ss) : nullptr;
  netsnmp_transport *transport = listener != nullptr ? snmp_sess_transport(listener) : nullptr;
  return transport != nullptr ? transport->sock : -1;
}

}  // namespace snmplumi

using snmplumi::Flag;

int TovLumiGet(int, unsigned short *, char *sLumiReceiveData) {
  snmplumi::SetRunFlag(1);
  LumiLocalLog("---->TovLumiGet start...", 0);
  forTrapLumiReceiveData = sLumiReceiveData;
  if (Trap_ss == nullptr && NO_TRAP_SERVICE == 0) {
    if (!snmplumi::OpenTrapListener()) return snmplumi::PollingFallback(sLumiReceiveData);
    if (g_bDebugMode == 1) LumiLocalLog(" snmp_open end", 0);
  }
  return snmplumi::WaitLoop(sLumiReceiveData);
}

int TovLumiStop(void) {
  LumiLocalLog("TovLumiStop...", 0);
  snmplumi::StopControlLock lock;
  Flag(TovLumiStopFlag).store(1, std::memory_order_release);
  return 0;
}

int TovLumiSendOnly(int, unsigned char, char *) {
  LumiLocalLog(" xxxx TovLumiSendOnly xxxx", 0);
  return 0;
}

// Runs inside net-snmp's read of the trap socket, under NetSnmpMutex: its one debug line is the
// only log record written while that mutex is held.
int snmp_input(int, netsnmp_session *, int, netsnmp_pdu *, void *) {
  if (g_bDebugMode == 1) {
    int state = 0;
    {
      snmplumi::StopControlLock lock;
      state = Flag(running).load(std::memory_order_relaxed);
    }
    LumiLocalLog(" [snmp_input] end", static_cast<DWORD>(state));
  }
  return 0;
}

const char *trap_description(int trap) {
  if (trap < 0 || trap >= static_cast<int>(std::size(snmplumi::kGenericTraps))) {
    return snmplumi::kUnknownTrap;
  }
  return snmplumi::kGenericTraps[trap];
}

void update_config(void) {}
