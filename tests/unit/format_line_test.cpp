#include "runtime/format_line.h"

#include <cstdio>

#include "unit_test.h"

namespace snmplumi {
namespace {

TEST(FormatLineTest, LinePrintsAsAFormatWithoutArguments) {
  // The line, what it prints, errno when it is written.
  const std::tuple<const char *, std::string, int> rows[] = {
      {"[%5d|%-3i|%05u|%+d|% d]", "[    0|0  |00000|+0| 0]", 0},
      {"%x %X %#o %lld %hhu %zd %jd", "0 0 0 0 0 0 0", 0},
      {"%f %.2e %g %5.1F|%p|%b", "0.000000 0.00e+00 0   0.0|(nil)|0", 0},
      {"name=%s![%5s][%-3c][%c][%ls]", "name=![     ][   ][][]", 0},
      {"[%m]", "[No such file or directory]", ENOENT},
      {"[%-12.6m][%3m]", "[Operat      ][Operation not permitted]", EPERM},
      {"50%% off|count=%n.|%hhn%lln|", "50% off|count=.||", 0},
      {"%*d|%.*f|%1$s|%2$*3$d", "0|0||0", 0},
      {"a%yb 100%\n", "a%yb 100%\n", 0},
      {"ends with %", "ends with ", 0},
      {"ends with %-5", "ends with %-5", 0},
      {"%999999999999d", std::string(4095, ' ') + "0", 0},
  };
  for (const auto &[line, printed, error] : rows) {
    char *buffer = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&buffer, &size);
    errno = error;
    WriteLineAsFormat(out, line);
    std::fclose(out);
    EXPECT_EQ(std::string(buffer, size), printed) << line;
    std::free(buffer);
  }
}

}  // namespace
}  // namespace snmplumi
