#include "runtime/ring_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "runtime/clock.h"
#include "runtime/log_line.h"
#include "runtime/paths.h"
#include "snmplumi.h"

// Each writer holds its own mutex for the whole record, so records of one process never
// interleave; another process writing the same file is not guarded against.
pthread_mutex_t g_hLocalLoggingMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_hLocalLogging2Mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_hLocalLogging3Mutex = PTHREAD_MUTEX_INITIALIZER;

namespace snmplumi {
namespace {

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }

 private:
  int fd_;
};

// The short header reads as position 0; the full one replaces it after the first record.
constexpr char kNewHeader[] = "00000\n";

// Write errors are ignored like every other: the header is then read as position 0.
void WriteNewHeader(int fd) { (void)!::write(fd, kNewHeader, sizeof kNewHeader - 1); }

// A new ring appears under its name with its header already written, so that a writer killed
// in between leaves no file rather than an empty one: an unnamed file is linked in once
// written. Another writer that linked first wins. False when the filesystem cannot do it.
bool LinkNewRing(const char *path) {
  char dir[4096];
  if (!FormatPath(dir, sizeof dir, "%s", path)) return false;
  char *slash = std::strrchr(dir, '/');
  if (slash == nullptr) return false;
  slash[slash == dir ? 1 : 0] = '\0';
  Fd unnamed(::open(dir, O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (!unnamed.ok()) return false;
  WriteNewHeader(unnamed.get());
  char name[64];
  std::snprintf(name, sizeof name, "/proc/self/fd/%d", unnamed.get());
  return ::linkat(AT_FDCWD, name, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0 || errno == EEXIST;
}

int OpenOrCreateRing(const char *path) {
  int fd = ::open(path, O_RDWR | O_CLOEXEC);
  if (fd >= 0) return fd;
  if (!LinkNewRing(path)) {
    Fd created(::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (!created.ok()) return -1;
    WriteNewHeader(created.get());
  }
  return ::open(path, O_RDWR | O_CLOEXEC);
}

long ReadPosition(int fd, const RingShape &shape) {
  char header[kRingHeaderSize] = {};
  ssize_t n = ::pread(fd, header, 8, 0);
  if (n <= 0) return 0;
  for (ssize_t i = 0; i < n; ++i) {
    if (header[i] == '\n') header[i] = '\0';
  }
  long position = std::atol(header);
  // Only a header damaged by hand names a place outside the ring, or inside a record: the ring
  // starts again, or the record goes to the boundary before, so the file never outgrows a full
  // ring and its records stay aligned.
  if (position < 0 || position >= static_cast<long>(shape.record_width) * shape.records) return 0;
  return position - position % (shape.record_width + 1);
}

// The local time of a record, from the clock seam so tests can fix it.
std::tm LocalNow() {
  std::time_t now = CurrentClock().Now();
  std::tm tm{};
  localtime_r(&now, &tm);
  return tm;
}

const char *OrEmpty(const char *text) { return text != nullptr ? text : ""; }

// "%-80.80s" is the 80-character message field: cut after 80, padded with blanks to 80.
std::size_t FormatCodedRecord(char (&record)[160], const char *msg, DWORD code) {
  std::tm t = LocalNow();
  int n = std::snprintf(record, sizeof record, "%02d/%02d/%02d %02d:%02d:%02d [%08x] %-80.80s\n",
                        t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                        static_cast<unsigned>(code), OrEmpty(msg));
  return static_cast<std::size_t>(n);
}

bool WriteCodedRecord(const char *path, const char *msg, DWORD code) {
  char record[160];
  std::size_t n = FormatCodedRecord(record, msg, code);
  return AppendRingRecord(path, kLibraryLogShape, record, n);
}

// The library log held open by the open batches; under g_hLocalLoggingMutex.
struct HeldLibraryLog {
  int batches = 0;
  int fd = -1;
  char path[4096] = {};
};
HeldLibraryLog g_held;

void CloseHeldLog() {
  if (g_held.fd >= 0) ::close(g_held.fd);
  g_held.fd = -1;
}

// The held descriptor of path, opened on first use; -1 outside a batch or when it cannot open.
int HeldLogFor(const char *path) {
  if (g_held.batches == 0) return -1;
  if (g_held.fd >= 0 && std::strcmp(g_held.path, path) == 0) return g_held.fd;
  CloseHeldLog();
  g_held.fd = OpenOrCreateRing(path);
  std::snprintf(g_held.path, sizeof g_held.path, "%s", path);
  return g_held.fd;
}

bool WriteReportRecord(const char *path, const char *msg) {
  std::tm t = LocalNow();
  char record[160];
  int n = std::snprintf(record, sizeof record, "%04d/%02d/%02d %02d:%02d:%02d %-80.80s\n",
                        t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                        OrEmpty(msg));
  return AppendRingRecord(path, kReportLogShape, record, static_cast<std::size_t>(n));
}

// The report log of a UPS index: the main UPS and its companions by 9000 + n, the records of
// the UPS information file by 1000..8999, the server and other UPSs by their small numbers.
bool ReportLogPath(char *path, std::size_t size, int index) {
  const char *dir = DataDir();
  if (index == 9000) return FormatPath(path, size, "%s/UPS/MYUPS.LOG", dir);
  if (index > 9000) return FormatPath(path, size, "%s/UPS/MYUPS_%d.LOG", dir, index - 9000);
  if (index >= 1000) return FormatPath(path, size, "%s/UPS/UPS%04d.LOG", dir, index);
  return FormatPath(path, size, "%s/UPS/UPS%03d.LOG", dir, index);
}

}  // namespace

void WriteRingRecord(int fd, const RingShape &shape, const char *record, std::size_t length) {
  long position = ReadPosition(fd, shape);
  // Seek and write errors are ignored: a full disk loses this record and nothing else.
  (void)!::pwrite(fd, record, length, static_cast<off_t>(kRingHeaderSize + position));
  long next = position + shape.record_width + 1;
  if (static_cast<long>(shape.record_width) * shape.records <= next) next = 0;
  char header[24];  // next is below the ring limit: always eight digits
  std::snprintf(header, sizeof header, "%08ld\n", next);
  (void)!::pwrite(fd, header, kRingHeaderSize, 0);
}

bool AppendRingRecord(const char *path, const RingShape &shape, const char *record,
                      std::size_t length) {
  Fd fd(OpenOrCreateRing(path));
  if (!fd.ok()) return false;
  WriteRingRecord(fd.get(), shape, record, length);
  return true;
}

LibraryLogBatch::LibraryLogBatch() {
  ScopedMutex lock(g_hLocalLoggingMutex);
  ++g_held.batches;
}

LibraryLogBatch::~LibraryLogBatch() {
  ScopedMutex lock(g_hLocalLoggingMutex);
  if (--g_held.batches == 0) CloseHeldLog();
}

}  // namespace snmplumi

using snmplumi::FormatPath;
using snmplumi::ScopedMutex;

void LumiLocalLog(const char *Msg, DWORD ErrorCode) {
  ScopedMutex lock(g_hLocalLoggingMutex);
  char path[4096];
  if (!FormatPath(path, sizeof path, "%s/snmplumi.log", snmplumi::DataDir())) return;
  int held = snmplumi::HeldLogFor(path);
  if (held < 0) {
    snmplumi::WriteCodedRecord(path, Msg, ErrorCode);
    return;
  }
  char record[160];
  std::size_t n = snmplumi::FormatCodedRecord(record, Msg, ErrorCode);
  snmplumi::WriteRingRecord(held, snmplumi::kLibraryLogShape, record, n);
}

void LumiLocalLogM(int index, const char *Msg, DWORD ErrorCode) {
  char path[4096];
  bool written;
  {
    ScopedMutex lock(g_hLocalLogging2Mutex);
    written = FormatPath(path, sizeof path, "%s/data/snmptrap/snmp%03d.log", snmplumi::InstallDir(),
                         index) &&
              snmplumi::WriteCodedRecord(path, Msg, ErrorCode);
  }
  // Reported only after our own mutex is released: no thread ever holds two log mutexes.
  if (!written) {
    snmplumi::LogLine(0, " can't open [%s]", path);
  }
}

void ReportLog(int index, const char *Msg) {
  char path[4096];
  bool written;
  {
    ScopedMutex lock(g_hLocalLogging3Mutex);
    written =
        snmplumi::ReportLogPath(path, sizeof path, index) && snmplumi::WriteReportRecord(path, Msg);
  }
  if (!written) {
    snmplumi::LogLine(0, " Can't make [%s]!", path);
  }
}
