/* A plain C program against the public header and the shared library. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "snmplumi.h"

static int failures;

#define CHECK(cond)                                                            \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                              \
    }                                                                          \
  } while (0)

static void make_dir(const char *path) {
  if (mkdir(path, 0755) != 0 && errno != EEXIST) {
    perror(path);
    exit(2);
  }
}

static size_t read_file(const char *path, char *buffer, size_t size) {
  FILE *file = fopen(path, "rb");
  size_t n;
  if (file == NULL) return 0;
  n = fread(buffer, 1, size, file);
  fclose(file);
  return n;
}

int main(void) {
  /* Every export is declared by the header and defined by the library. */
  uintptr_t exports[] = {
#define SNMPLUMI_EXPORT(name) (uintptr_t) & name,
#include "snmplumi_exports.inc"
#undef SNMPLUMI_EXPORT
  };
  size_t i;
  const char *home = getenv("SNMPLUMI_HOME");
  char path[1024];
  char data[512];
  size_t length;

  for (i = 0; i < sizeof exports / sizeof exports[0]; ++i) CHECK(exports[i] != 0);

  CHECK(running == 1);
  CHECK(TovLumiStopFlag == 0 && TrapRetStatus == 0 && TovLumiGet_RunFlag == 0);
  CHECK(DisableDromUpsFlag == 0 && upsAdvConfigRatedOutputVoltage == 0);
  CHECK(sizeof UpsIp == 130 * 64 && sizeof ups_X1 == 130 * 9 * sizeof(int));

  /* The library took its installation directory from the environment when it was loaded. */
  if (home == NULL) {
    fprintf(stderr, "SNMPLUMI_HOME is not set\n");
    return 2;
  }
  make_dir(home);
  snprintf(path, sizeof path, "%s/data", home);
  make_dir(path);
  snprintf(path, sizeof path, "%s/data/snmplumi.log", home);
  remove(path);
  LumiLocalLog("hello from C", 0x2a);
  length = read_file(path, data, sizeof data - 1);
  data[length] = '\0';
  CHECK(length == 9 + 112);
  CHECK(strncmp(data, "00000112\n", 9) == 0);
  CHECK(length > 9 && strstr(data + 9, "[0000002a] hello from C") != NULL);

  CHECK(SetErs2Status(3, UPS_E_NO_SERVER) == '7');
  CHECK(SetErs2Status(3, 0) == '0');
  CHECK(kav_strlen(NULL) == 0 && kav_strlen("abc") == 3);
  CHECK(GlobalFree(GlobalAlloc(0, 16)) == NULL);

  if (failures == 0) printf("C API: %zu exports, all checks passed\n", i);
  return failures == 0 ? 0 : 1;
}
