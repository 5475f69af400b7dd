// The manager session table: one net-snmp session per (card address, community) pair.
#pragma once

#include <mutex>

namespace snmplumi {

inline constexpr int kSessionEntries = 1000;
inline constexpr int kSearchedEntries = 999;  // entry 999 is never used
inline constexpr int kNoEntry = 1000;         // "none found" during a search
inline constexpr int kMaxPeerText = 31;       // address and community fit char[32]

// What a request needs of a table entry beside its exported fields.
struct Session {
  void *handle = nullptr;  // net-snmp single-session handle; null when closed or never opened
  std::mutex in_use;       // one request at a time; held while the handle is used
};

// The session for ip and the current community, opened when needed; nullptr when there is no
// usable session (table full, refused address, failed open). Lock in_use, then check handle:
// the session may have been closed in between.
Session *SessionFor(const char *ip);

}  // namespace snmplumi
