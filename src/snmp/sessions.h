// The manager session table: one net-snmp session per (card address, community) pair.
#pragma once

#include <mutex>

namespace snmplumi {

inline constexpr int kSessionEntries = 1000;
inline constexpr int kSearchedEntries = 999;  // entry 999 is never used
inline constexpr int kNoEntry = 1000;         // "none found" during a search
inline constexpr int kMaxPeerText = 31;       // address and community fit char[32]

// The outcome of the request in flight on a session. net-snmp hands it over on whichever
// thread runs the request's call-back, hence its own lock.
struct Answer {
  std::mutex mutex;
  int reqid = 0;
  bool done = false;
  int status = 0;
  struct snmp_pdu *response = nullptr;

  void Expect(int request_id) {
    std::lock_guard<std::mutex> lock(mutex);
    reqid = request_id;
    done = false;
    status = 0;
    response = nullptr;
  }
};

// What a request needs of a table entry beside its exported fields. Entries live as long as
// the process, so net-snmp may keep a pointer to one.
struct Session {
  // The library's private net-snmp single-session handle; null when closed or never opened.
  void *handle = nullptr;
  std::mutex in_use;  // one request at a time; held while the handle is used
  Answer answer;
};

// The session for ip and the current community, opened when needed; nullptr when there is no
// usable session (table full, refused address, failed open). Lock in_use, then check handle:
// the session may have been closed in between.
Session *SessionFor(const char *ip);

}  // namespace snmplumi
