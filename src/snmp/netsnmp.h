// The one door to net-snmp. Debian's libnetsnmp is built without its own locking, so every call
// into it happens under one process-wide mutex; the waits for answers happen outside it.
#pragma once

#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <mutex>

namespace snmplumi {

// Held for every net-snmp call. Never held while waiting on the network or writing a log, except
// for the trap listener's call-back (snmp_input), whose debug line net-snmp's read runs.
std::mutex &NetSnmpMutex();

// Initialises net-snmp on first use (caller holds NetSnmpMutex): numeric OIDs only, no MIB
// files, no persistent state files read or written, snmp.conf (timeout, retries, defaultPort)
// honoured. The host's environment is left alone.
void EnsureNetSnmp();

// Releases what net-snmp allocated, when we initialised it (caller holds NetSnmpMutex).
void ShutdownNetSnmp();

}  // namespace snmplumi
