// One synchronous SNMP exchange on one session.
#pragma once

#include "snmp/netsnmp.h"
#include "snmp/sessions.h"

namespace snmplumi {

// Sends pdu on the session and waits for its answer or the session's final time-out, holding
// the net-snmp mutex only while net-snmp runs, never during the wait. Takes pdu in every case.
// Returns STAT_SUCCESS with *response (free it under NetSnmpMutex), STAT_TIMEOUT or STAT_ERROR.
int Exchange(Session &session, netsnmp_pdu *pdu, netsnmp_pdu **response);

}  // namespace snmplumi
