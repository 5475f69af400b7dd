// Load-time hooks of the shared library only; tests that link the core run them themselves.
#include "runtime/paths.h"
#include "snmplumi.h"

namespace {

__attribute__((constructor)) void OnLoad() {
  snmplumi::LoadEnvironment();
  lib_init();
}

__attribute__((destructor)) void OnUnload() { lib_end(); }

}  // namespace
