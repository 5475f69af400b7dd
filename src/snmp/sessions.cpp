// Each entry holds two net-snmp sessions to its card. The library's own requests use a private
// single-session handle (snmp_sess_open): a request reads its own socket only, so requests to
// different cards run in parallel and a silent card delays only the requests made to it. The
// host gets a traditional session (snmp_open), opened when it first asks for it, to use with
// net-snmp's own calls. They are kept apart because the traditional calls read and time out
// every traditional session of the process without any lock: sharing one session would let a
// host thread in snmp_synch_response process, or free, a request the library is waiting on.
// What it costs: a second socket for a card the host asks for; requests to the same card wait
// for each other (one outstanding request per session); every library call into net-snmp is
// serialised by one mutex, held for microseconds, never across a wait; and a waiting request
// does not service the other sessions (the trap listener among them): the event wait reads
// the trap session itself.
#include "snmp/sessions.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "runtime/log_line.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"

st_session_tbl g_session_tbl[1000];

namespace snmplumi {
namespace {

std::array<Session, kSessionEntries> g_sessions;
// Guards the search and the insertion: two threads must not fill the same free entry.
std::mutex g_table_mutex;

std::string_view Field(const char (&field)[32]) { return {field, strnlen(field, sizeof field)}; }

void CopyField(char (&field)[32], std::string_view text) {
  std::memset(field, 0, sizeof field);
  std::memcpy(field, text.data(), text.size());
}

// A text too long for an entry is refused, never cut into another card's name. Logged once per
// text, not once per request of a polling loop.
bool RefuseLongText(const char *what, std::string_view text, std::string &last_refused) {
  if (text.size() <= static_cast<std::size_t>(kMaxPeerText)) return false;
  if (text != last_refused) {
    last_refused.assign(text);
    LogLine(0, " session refused: %s longer than %d characters [%.*s]", what, kMaxPeerText,
            static_cast<int>(text.size()), text.data());
  }
  return true;
}

// A private single-session handle, or a traditional session (a netsnmp_session *) for the host.
void *OpenSession(const char *ip, const char *community, bool traditional) {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  EnsureNetSnmp();
  netsnmp_session description;
  snmp_sess_init(&description);
  description.version = SNMP_VERSION_1;
  // No port is added: the card's standard port, or snmp.conf's defaultPort, applies.
  std::string peer(ip);
  description.peername = peer.data();
  std::string name(community);
  description.community = reinterpret_cast<u_char *>(name.data());
  description.community_len = name.size();
  void *session =
      traditional ? static_cast<void *>(snmp_open(&description)) : snmp_sess_open(&description);
  if (session == nullptr) snmp_sess_perror("libsnmp", &description);
  return session;
}

// Index of the entry for ip, opening a session when needed, or kNoEntry. Caller holds
// g_table_mutex.
int FindOrOpen(const char *ip) {
  static std::string last_long_address;
  static std::string last_long_community;
  if (ip == nullptr) return kNoEntry;
  std::string_view address(ip);
  std::string_view community(UpsCommunity, strnlen(UpsCommunity, sizeof UpsCommunity));
  if (RefuseLongText("address", address, last_long_address) ||
      RefuseLongText("community", community, last_long_community)) {
    return kNoEntry;
  }
  int free_entry = kNoEntry;
  for (int i = 0; i < kSearchedEntries; ++i) {
    st_session_tbl &entry = g_session_tbl[i];
    if (free_entry == kNoEntry && entry.IP[0] == '\0') {
      free_entry = i;
      // Entries fill from the first free one and are freed only all together, so no entry in
      // use follows a free one: only an empty address, which matches free entries, looks on.
      if (!address.empty()) break;
    }
    if (Field(entry.IP) == address && Field(entry.UPSCommunity) == community) return i;
  }
  // An empty address would open a session that its entry cannot hold (an empty address marks
  // a free entry), leaking one socket per call.
  if (free_entry == kNoEntry || address.empty()) return kNoEntry;

  std::string community_text(community);
  void *session = OpenSession(ip, community_text.c_str(), false);
  st_session_tbl &entry = g_session_tbl[free_entry];
  g_sessions[free_entry].handle = session;
  entry.session = nullptr;  // the host's session, opened when the host asks for it
  if (session == nullptr) {
    CopyField(entry.IP, "");
    CopyField(entry.UPSCommunity, "");
    return free_entry;
  }
  CopyField(entry.IP, address);
  CopyField(entry.UPSCommunity, community);
  return free_entry;
}

}  // namespace

Session *SessionFor(const char *ip) {
  std::lock_guard<std::mutex> lock(g_table_mutex);
  int index = FindOrOpen(ip);
  // A free entry can match (an empty address against a stale community); it has no session.
  if (index == kNoEntry || g_session_tbl[index].IP[0] == '\0') return nullptr;
  return g_sessions[index].handle != nullptr ? &g_sessions[index] : nullptr;
}

}  // namespace snmplumi

LPSNMP_MGR_SESSION AC_SnmpMgrOpen(const char *IP) {
  std::lock_guard<std::mutex> lock(snmplumi::g_table_mutex);
  int index = snmplumi::FindOrOpen(IP);
  if (index == snmplumi::kNoEntry) return nullptr;
  st_session_tbl &entry = g_session_tbl[index];
  // A free entry can match (an empty address against a stale community): its stored value.
  if (entry.IP[0] != '\0' && entry.session == nullptr) {
    entry.session =
        static_cast<LPSNMP_MGR_SESSION>(snmplumi::OpenSession(entry.IP, entry.UPSCommunity, true));
  }
  return entry.session;
}

void SnmpEnd(void) {
  std::lock_guard<std::mutex> lock(snmplumi::g_table_mutex);
  for (int i = 0; i < snmplumi::kSearchedEntries; ++i) {
    if (g_session_tbl[i].IP[0] == '\0') continue;
    snmplumi::Session &session = snmplumi::g_sessions[i];
    {
      // Waits for a request still running on this session.
      std::lock_guard<std::mutex> busy(session.in_use);
      std::lock_guard<std::mutex> library(snmplumi::NetSnmpMutex());
      if (session.handle != nullptr) snmp_sess_close(session.handle);
      session.handle = nullptr;
      if (g_session_tbl[i].session != nullptr) snmp_close(g_session_tbl[i].session);
    }
    // UPSCommunity and session keep their values (session a closed one, never used again: a
    // new open of the entry clears it); only the empty address frees the entry.
    g_session_tbl[i].IP[0] = '\0';
  }
}
