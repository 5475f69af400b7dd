// One synchronous SNMP exchange on one session, and the servicing of one session's socket.
#pragma once

#include <chrono>

#include "snmp/netsnmp.h"
#include "snmp/sessions.h"

namespace snmplumi {

// Sends pdu on the session and waits until net-snmp holds no request for it any more: the
// answer came, or the last retransmission timed out. Holds the net-snmp mutex only while
// net-snmp runs, never during the wait. Takes pdu in every case. Returns STAT_SUCCESS with
// *response (free it under NetSnmpMutex), STAT_TIMEOUT or STAT_ERROR.
int Exchange(Session &session, netsnmp_pdu *pdu, netsnmp_pdu **response);

// Waits at most max_wait for a datagram on this session's socket, or for its next
// retransmission time, and lets net-snmp handle it: read that socket only, or run that
// session's time-outs. No other session is touched. Returns false when the session holds no
// outstanding request afterwards. single_session is a net-snmp single-session handle.
bool ServiceSession(void *single_session, std::chrono::milliseconds max_wait);

}  // namespace snmplumi
