// snmplumi-logview: prints the records of ring log files oldest first, with the texts converted for
// the terminal, and follows them as they grow.
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ring.h"
#include "text.h"

namespace {

using namespace logview;

constexpr char kProgram[] = "snmplumi-logview";
constexpr int kExitOk = 0;
constexpr int kExitTrouble = 1;
constexpr int kExitUsage = 2;
constexpr useconds_t kFollowPoll = 200000;

constexpr char kHelp[] = R"(Usage: snmplumi-logview [OPTIONS] FILE...

Prints the records of snmplumi ring log files (data/snmplumi.log, data/UPS/*.LOG,
data/snmptrap/snmp*.log) in the order they were written, oldest first, with the
Japanese texts, which the library writes in EUC-JP, converted to the charset of
the locale (UTF-8 when the locale names none).

A ring file starts with a 9-byte header holding the position of the next record;
records are fixed-width lines. Once the ring has wrapped, the records after that
position are the oldest. A damaged header is reported and the records are put in
order by their times; a slot that holds no whole record (a torn record) is
reported with its byte offset and skipped.

Options:
  -f, --follow      after the records there are, print each new record as it is
                    written, until interrupted (Ctrl-C)
  --since TIME      only records written at TIME or later
  --until TIME      only records written at TIME or earlier
                    TIME is local time as in the logs: "YYYY/MM/DD[ HH:MM[:SS]]"
                    ('-' for '/' and 'T' for the blank are accepted too); a date
                    alone is the whole day
  --code CODE       only records with this code (the hexadecimal field in
                    brackets; 0x optional); may be given more than once. Report
                    logs (UPS/*.LOG) have no code field.
  --raw             print the texts as the file holds them (EUC-JP)
  --keep-padding    keep the blanks that pad each message to 80 characters
  --help            this text

Exit status: 0 when every file was read whole, 1 when a file could not be read,
is not a ring log, or had a damaged header or torn record (what could be read
is still printed), 2 for a usage error.
)";

struct Filter {
  std::string since;  // "YYYY/MM/DD HH:MM:SS", empty for no bound
  std::string until;
  std::vector<unsigned long> codes;

  bool Accepts(std::string_view record) const {
    std::string_view time = RecordTime(record);
    if (!since.empty() && time < since) return false;
    if (!until.empty() && time > until) return false;
    if (codes.empty()) return true;
    std::optional<unsigned long> code = RecordCode(record);
    if (!code) return false;
    for (unsigned long wanted : codes) {
      if (wanted == *code) return true;
    }
    return false;
  }
};

struct Options {
  bool follow = false;
  bool raw = false;
  bool keep_padding = false;
  Filter filter;
  std::vector<const char *> files;
};

// Record times compare as text; the parts left out are filled with the start or the end of the
// period given.
std::optional<std::string> ParseTime(std::string_view text, bool end_of_period) {
  std::string time(text);
  if (time.size() > 10 && time[10] == 'T') time[10] = ' ';
  for (std::size_t i = 0; i < time.size() && i < 10; ++i) {
    if (time[i] == '-') time[i] = '/';
  }
  constexpr std::string_view kPattern = "dddd/dd/dd dd:dd:dd";
  if (time.size() != 10 && time.size() != 16 && time.size() != 19) return std::nullopt;
  for (std::size_t i = 0; i < time.size(); ++i) {
    bool digit = time[i] >= '0' && time[i] <= '9';
    if (kPattern[i] == 'd' ? !digit : time[i] != kPattern[i]) return std::nullopt;
  }
  constexpr std::string_view kStart = " 00:00:00";
  constexpr std::string_view kEnd = " 23:59:59";
  time += (end_of_period ? kEnd : kStart).substr(time.size() - 10);
  return time;
}

std::optional<unsigned long> ParseCode(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  unsigned long code = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code, 16);
  if (text.empty() || text.size() > 8 || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return code;
}

[[noreturn]] void Usage(const std::string &message) {
  std::fprintf(stderr, "%s: %s (try --help)\n", kProgram, message.c_str());
  std::exit(kExitUsage);
}

Options ParseOptions(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    auto value = [&]() -> std::string_view {
      if (i + 1 >= argc) Usage(std::string(arg) + " needs a value");
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      std::fputs(kHelp, stdout);
      std::exit(kExitOk);
    } else if (arg == "-f" || arg == "--follow") {
      options.follow = true;
    } else if (arg == "--raw") {
      options.raw = true;
    } else if (arg == "--keep-padding") {
      options.keep_padding = true;
    } else if (arg == "--since" || arg == "--until") {
      std::string_view text = value();
      std::optional<std::string> time = ParseTime(text, arg == "--until");
      if (!time) Usage("bad time \"" + std::string(text) + "\", want YYYY/MM/DD[ HH:MM[:SS]]");
      (arg == "--since" ? options.filter.since : options.filter.until) = *time;
    } else if (arg == "--code") {
      std::string_view text = value();
      std::optional<unsigned long> code = ParseCode(text);
      if (!code) Usage("bad code \"" + std::string(text) + "\", want up to 8 hexadecimal digits");
      options.filter.codes.push_back(*code);
    } else if (arg.size() > 1 && arg[0] == '-') {
      Usage("unknown option " + std::string(arg));
    } else {
      options.files.push_back(argv[i]);
    }
  }
  if (options.files.empty()) Usage("no log file given");
  return options;
}

bool ReadWhole(const char *path, std::string &data) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return true;
}

class Printer {
 public:
  Printer(const Options &options, bool name_files)
      : options_(options), converter_(options.raw), name_files_(name_files) {}

  void Print(const char *path, const std::vector<Record> &records) {
    for (const Record &record : records) {
      if (!options_.filter.Accepts(record.text)) continue;
      if (name_files_ && path != last_named_) Name(path);
      std::string_view shown = record.text;
      if (!options_.keep_padding) {
        while (!shown.empty() && shown.back() == ' ') shown.remove_suffix(1);
      }
      std::string text = converter_.Convert(shown);
      text += '\n';
      std::fwrite(text.data(), 1, text.size(), stdout);
    }
    std::fflush(stdout);
  }

  // Every file is named before its records, also one that has none, as tail does.
  void Name(const char *path) {
    std::printf("%s==> %s <==\n", last_named_ != nullptr ? "\n" : "", path);
    last_named_ = path;
  }

 private:
  const Options &options_;
  Converter converter_;
  bool name_files_;
  const char *last_named_ = nullptr;
};

// Returns false when there was something to report.
bool Report(const char *path, const Problems &problems) {
  if (problems.not_a_ring) {
    std::fprintf(stderr, "%s: %s is not a ring log\n", kProgram, path);
    return false;
  }
  if (problems.damaged_header) {
    std::fprintf(stderr, "%s: %s: damaged header \"%s\"; records put in order by their times\n",
                 kProgram, path, problems.damaged_header->c_str());
  }
  for (std::size_t offset : problems.torn) {
    std::fprintf(stderr, "%s: %s: torn record at byte %zu skipped\n", kProgram, path, offset);
  }
  return !problems.damaged_header && problems.torn.empty();
}

// What following a file remembers between two looks at it.
struct Followed {
  const char *path = nullptr;
  dev_t device = 0;
  ino_t inode = 0;
  std::optional<std::size_t> position;  // unknown while the header is damaged
  std::size_t record_size = 0;
  bool in_trouble = false;  // reported once until the file reads well again
};

bool ViewFile(Followed &file, Printer &printer, bool name_file) {
  std::string data;
  struct stat status {};
  if (::stat(file.path, &status) != 0 || !ReadWhole(file.path, data)) {
    std::fprintf(stderr, "%s: cannot open %s\n", kProgram, file.path);
    file.in_trouble = true;
    return false;
  }
  Problems problems;
  std::vector<Record> records = OldestFirst(data, problems);
  bool ok = Report(file.path, problems);
  if (name_file) printer.Name(file.path);
  printer.Print(file.path, records);
  file.device = status.st_dev;
  file.inode = status.st_ino;
  file.position = problems.damaged_header ? std::nullopt : HeaderPosition(data);
  file.record_size = RecordSize(Body(data));
  return ok;
}

// The records written since the last look run from the old position to the new one, across the
// end of the ring when it wrapped. The writer puts a record in place before it moves the header,
// so everything before the header's position is whole.
void LookAgain(Followed &file, Printer &printer) {
  std::string data;
  struct stat status {};
  if (::stat(file.path, &status) != 0 || !ReadWhole(file.path, data)) {
    if (!file.in_trouble) std::fprintf(stderr, "%s: cannot open %s\n", kProgram, file.path);
    file.in_trouble = true;
    return;
  }
  if (status.st_dev != file.device || status.st_ino != file.inode) {  // replaced: a new ring
    file.device = status.st_dev;
    file.inode = status.st_ino;
    file.position = 0;
    file.record_size = 0;
  }
  std::optional<std::size_t> position = HeaderPosition(data);
  std::string_view body = Body(data);
  if (file.record_size == 0) file.record_size = RecordSize(body);
  bool misplaced = file.record_size != 0 && position &&
                   (*position % file.record_size != 0 || *position > body.size());
  bool damaged = !position || misplaced;
  if (damaged) {
    if (!file.in_trouble) {
      Problems problems;
      problems.damaged_header = PrintableHeader(data);
      Report(file.path, problems);
    }
    file.in_trouble = true;
    return;
  }
  file.in_trouble = false;
  if (!file.position) file.position = position;  // the header is whole again: go on from here
  if (*position == *file.position || file.record_size == 0) return;
  Problems problems;
  std::vector<Record> records;
  std::size_t from = *file.position;
  if (from > body.size()) from = 0;  // cut short in place: a new ring
  if (*position < from) ReadSlots(data, file.record_size, from, body.size(), records, problems);
  ReadSlots(data, file.record_size, *position < from ? 0 : from, *position, records, problems);
  file.position = position;
  Report(file.path, problems);
  printer.Print(file.path, records);
}

}  // namespace

int main(int argc, char **argv) {
  Options options = ParseOptions(argc, argv);
  bool name_files = options.files.size() > 1;
  Printer printer(options, name_files);
  std::vector<Followed> files;
  bool ok = true;
  for (const char *path : options.files) {
    files.emplace_back().path = path;
    ok = ViewFile(files.back(), printer, name_files) && ok;
  }
  if (!options.follow) return ok ? kExitOk : kExitTrouble;
  for (;;) {
    ::usleep(kFollowPoll);
    for (Followed &file : files) LookAgain(file, printer);
  }
}
