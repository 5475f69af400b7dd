// The start-up wait's hold on the event wait's trap session.
#pragma once

namespace snmplumi {

// Drops the trap session handle (without closing it) so that the next event wait opens anew.
void ForgetTrapSession();

}  // namespace snmplumi
