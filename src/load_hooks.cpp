// Load-time hook of the shared library only; tests that link the core run it themselves.
#include "runtime/paths.h"

namespace {

__attribute__((constructor)) void OnLoad() { snmplumi::LoadInstallDir(); }

}  // namespace
