// The event wait's trap listener, as tests and later parts see it.
#pragma once

namespace snmplumi {

// The socket of the open trap listener (Trap_ss), or -1 when none is open.
int TrapListenerSocket();

// Drops the trap listener's handle so that the next wait opens one anew. It is not closed: a
// wait on another thread may be servicing it this very moment.
void ForgetTrapSession();

}  // namespace snmplumi
