/* A plain C program: the public header compiles as C, and links and runs against the library. */
#include <stdio.h>

#include "snmplumi.h"

#define CHECK(cond) ((cond) ? 0 : (fprintf(stderr, "check failed: %s\n", #cond), 1))

int main(void) {
  uintptr_t exports[] = {
#define SNMPLUMI_EXPORT(name) (uintptr_t) & name,
#include "snmplumi_exports.inc"
#undef SNMPLUMI_EXPORT
  };
  size_t i;
  int failures = 0;

  for (i = 0; i < sizeof exports / sizeof exports[0]; ++i) failures += CHECK(exports[i] != 0);

  printf("C API: %zu exports, %d failed checks\n", i, failures);
  return failures == 0 ? 0 : 1;
}
