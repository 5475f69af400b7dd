// The power-state watch's state that the start-up wait resets.
#pragma once

namespace snmplumi {

// Passes since the trap watch was last satisfied; the start-up wait sets it to 0 once a UPS
// answered.
void ResetTrapChecker();
int TrapCheckerForTesting();

}  // namespace snmplumi
