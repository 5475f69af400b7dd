// The ring-log writers with arbitrary messages, codes and indexes, each over a file whose first
// bytes the input sets (or no file). Input: writer (1 byte: library, trap or report log), index
// and code (4 bytes each, little-endian), n (1 byte), n - 1 bytes of file content (n = 0: no
// file), then the message. The file must stay a ring holding the record where its header says.
#include <algorithm>
#include <filesystem>

#include "fuzz_support.h"
#include "runtime/ring_log.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

using snmplumi::fuzz::Check;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  [[maybe_unused]] static const bool ram = snmplumi::fuzz::PreferRamTempDir();
  static const snmplumi::testing::TempHome home;
  static snmplumi::testing::FakeClock clock{snmplumi::testing::kSomeTime};
  if (size < 10) return 0;
  const int writer = data[0] % 3;
  int index = 0;
  DWORD code = 0;
  std::memcpy(&index, data + 1, 4);  // little-endian, as the corpus was written
  std::memcpy(&code, data + 5, 4);
  const std::size_t n = data[9];
  const std::size_t content_size = n == 0 ? 0 : std::min(n - 1, size - 10);
  const std::string content(reinterpret_cast<const char *>(data + 10), content_size);
  data += 10 + content_size;
  size -= 10 + content_size;
  const std::string message = snmplumi::fuzz::NextField(data, size);

  // The file each writer writes; %03d gives the four digits of 1000 to 8999 as well.
  char name[64];
  std::snprintf(name, sizeof name,
                writer == 0     ? "snmplumi.log"
                : writer == 1   ? "snmptrap/snmp%03d.log"
                : index == 9000 ? "UPS/MYUPS.LOG"
                : index > 9000  ? "UPS/MYUPS_%d.LOG"
                                : "UPS/UPS%03d.LOG",
                writer == 2 && index > 9000 ? index - 9000 : index);
  const std::string path = home.data(name);
  std::remove(path.c_str());
  if (n != 0) snmplumi::testing::PutFile(path, content);
  if (writer == 0) LumiLocalLog(message.c_str(), code);
  if (writer == 1) LumiLocalLogM(index, message.c_str(), code);
  if (writer == 2) ReportLog(index, message.c_str());

  const snmplumi::RingShape &shape =
      writer == 2 ? snmplumi::kReportLogShape : snmplumi::kLibraryLogShape;
  const long record_size = shape.record_width + 1;
  const long limit = static_cast<long>(shape.record_width) * shape.records;
  const long last_record = (limit - 1) / record_size * record_size;
  const long header_size = snmplumi::kRingHeaderSize;
  const std::string text = snmplumi::testing::FileText(path);
  Check(std::filesystem::exists(path) &&
            static_cast<long>(text.size()) <= header_size + last_record + record_size,
        "the file is there, no longer than a full ring", name);
  const std::string header = text.substr(0, static_cast<std::size_t>(header_size));
  const long next = std::atol(header.c_str());
  Check(header.size() == static_cast<std::size_t>(header_size) &&
            header.find_first_not_of("0123456789") == 8 && header[8] == '\n' && next < limit &&
            next % record_size == 0,
        "a header of eight digits naming a record boundary", name);

  const long at = header_size + (next == 0 ? last_record : next - record_size);
  const std::string record = text.substr(std::min(static_cast<std::size_t>(at), text.size()),
                                         static_cast<std::size_t>(record_size));
  std::string field = message.substr(0, snmplumi::kLogMessageWidth);
  field.resize(snmplumi::kLogMessageWidth, ' ');
  Check(record.size() == static_cast<std::size_t>(record_size) && record.back() == '\n' &&
            record.compare(record.size() - 1 - field.size(), field.size(), field) == 0,
        "the record is there and ends with the message field", name);
  char coded[16];
  std::snprintf(coded, sizeof coded, "[%08x]", static_cast<unsigned>(code));
  Check(writer == 2 || record.compare(20, 10, coded) == 0, "the record shows the code", name);
  std::remove(path.c_str());
  return 0;
}
