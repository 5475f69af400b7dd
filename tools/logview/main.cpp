// snmplumi-logview: prints the records of ring log files oldest first.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kHeaderSize = 9;

void PrintHelp(const char *program) {
  std::printf(
      "Usage: %s [--keep-padding] FILE...\n"
      "\n"
      "Prints the records of snmplumi ring log files (snmplumi.log, UPS/*.LOG,\n"
      "snmptrap/snmp*.log) in the order they were written, oldest first.\n"
      "\n"
      "A ring file starts with a 9-byte header holding the position of the next\n"
      "record; records are fixed-width lines. Once the ring has wrapped, the records\n"
      "after that position are the oldest.\n"
      "\n"
      "  --keep-padding  keep the blanks that pad each message to 80 characters\n"
      "  --help          this text\n",
      program);
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// A record slot holds a record when it is a whole line that does not start with a NUL (the
// hole a fresh file leaves).
void PrintRecords(std::string_view body, std::size_t record_size, bool keep_padding) {
  for (std::size_t at = 0; at + record_size <= body.size(); at += record_size) {
    std::string_view record = body.substr(at, record_size);
    if (record.front() == '\0' || record.back() != '\n') continue;
    record.remove_suffix(1);
    std::string_view shown = keep_padding ? record : TrimRight(record);
    std::fwrite(shown.data(), 1, shown.size(), stdout);
    std::fputc('\n', stdout);
  }
}

bool ViewFile(const char *path, bool keep_padding) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "snmplumi-logview: cannot open %s\n", path);
    return false;
  }
  std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (data.size() <= kHeaderSize) return true;  // a fresh file: header only, no records
  long position = std::atol(data.substr(0, 8).c_str());
  std::string_view body(data);
  body.remove_prefix(kHeaderSize);
  std::size_t first_line = body.find('\n');
  if (first_line == std::string_view::npos || position < 0 ||
      static_cast<std::size_t>(position) > body.size()) {
    std::fprintf(stderr, "snmplumi-logview: %s is not a ring log\n", path);
    return false;
  }
  std::size_t record_size = first_line + 1;
  auto split = static_cast<std::size_t>(position);
  PrintRecords(body.substr(split), record_size, keep_padding);  // empty until the ring wraps
  PrintRecords(body.substr(0, split), record_size, keep_padding);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  bool keep_padding = false;
  std::vector<const char *> files;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
      PrintHelp(argv[0]);
      return 0;
    }
    if (std::strcmp(argv[i], "--keep-padding") == 0) {
      keep_padding = true;
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      std::fprintf(stderr, "snmplumi-logview: unknown option %s (try --help)\n", argv[i]);
      return 2;
    } else {
      files.push_back(argv[i]);
    }
  }
  if (files.empty()) {
    PrintHelp(argv[0]);
    return 2;
  }
  bool ok = true;
  for (const char *file : files) {
    if (files.size() > 1) std::printf("==> %s <==\n", file);
    ok = ViewFile(file, keep_padding) && ok;
  }
  return ok ? 0 : 1;
}
