#include "runtime/format_line.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

namespace snmplumi {
namespace {

constexpr int kMaxFieldWidth = 4096;

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Reads a decimal number, saturating at kMaxFieldWidth.
int ReadNumber(const char *&p) {
  int value = 0;
  while (IsDigit(*p)) {
    value = value * 10 + (*p - '0');
    if (value > kMaxFieldWidth) value = kMaxFieldWidth;
    ++p;
  }
  return value;
}

// "*" or "*n$": the field takes an argument that does not exist, taken as 0.
void SkipStar(const char *&p) {
  ++p;
  const char *q = p;
  while (IsDigit(*q)) ++q;
  if (*q == '$') p = q + 1;
}

}  // namespace

void WriteLineAsFormat(std::FILE *out, const char *line) {
  // %m shows errno as the caller left it, not as the writes of this line leave it.
  const int caller_errno = errno;
  const char *p = line;
  while (*p != '\0') {
    const char *percent = std::strchr(p, '%');
    if (percent == nullptr) {
      std::fputs(p, out);
      return;
    }
    std::fwrite(p, 1, static_cast<std::size_t>(percent - p), out);
    p = percent + 1;

    // Positional argument "n$": there are no arguments, so the position changes nothing.
    const char *q = p;
    while (IsDigit(*q)) ++q;
    if (*q == '$' && q != p) p = q + 1;

    std::string directive = "%";
    while (*p != '\0' && std::strchr("-+ #0'I", *p) != nullptr) {
      if (*p != '\'' && *p != 'I') directive += *p;  // grouping and locale digits never show on 0
      ++p;
    }
    if (*p == '*') {
      SkipStar(p);
    } else if (IsDigit(*p)) {
      directive += std::to_string(ReadNumber(p));
    }
    std::string precision;
    if (*p == '.') {
      ++p;
      if (*p == '*') {
        SkipStar(p);
        precision = ".0";
      } else {
        precision = "." + std::to_string(ReadNumber(p));
      }
    }
    while (*p != '\0' && std::strchr("hlLqjzZt", *p) != nullptr) ++p;

    const char conversion = *p;
    switch (conversion) {
      case '%':
        std::fputc('%', out);
        break;
      case 'd':
      case 'i':
        std::fprintf(out, (directive + precision + "d").c_str(), 0);
        break;
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        std::fprintf(out, (directive + precision + conversion).c_str(), 0u);
        break;
      case 'b':
      case 'B':  // binary; zero looks the same in decimal
        std::fprintf(out, (directive + precision + "u").c_str(), 0u);
        break;
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        std::fprintf(out, (directive + precision + conversion).c_str(), 0.0);
        break;
      case 'p':
        std::fprintf(out, (directive + "p").c_str(), static_cast<void *>(nullptr));
        break;
      case 'c':
      case 'C':
      case 's':
      case 'S':
        std::fprintf(out, (directive + "s").c_str(), "");
        break;
      case 'm':
        // The C library formats %m itself (the '#' flag included); it takes no argument, the
        // one passed is never read.
        errno = caller_errno;
        std::fprintf(out, (directive + precision + "m").c_str(), "");
        break;
      case 'n':
        break;
      case '\0':
        // A '%' that ends the line prints nothing; anything after it that is no conversion
        // is shown as written.
        if (p != percent + 1) std::fwrite(percent, 1, static_cast<std::size_t>(p - percent), out);
        return;
      default:
        std::fwrite(percent, 1, static_cast<std::size_t>(p + 1 - percent), out);
        break;
    }
    ++p;
  }
}

}  // namespace snmplumi
