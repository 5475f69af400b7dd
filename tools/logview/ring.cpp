#include "ring.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace logview {
namespace {

constexpr std::string_view kFreshHeader = "00000\n";
constexpr std::string_view kTimePattern = "dddd/dd/dd dd:dd:dd ";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool AllZero(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\0'; });
}

bool StartsWithTime(std::string_view slot) {
  if (slot.size() < kTimePattern.size()) return false;
  for (std::size_t i = 0; i < kTimePattern.size(); ++i) {
    if (kTimePattern[i] == 'd' ? !IsDigit(slot[i]) : slot[i] != kTimePattern[i]) return false;
  }
  return true;
}

// The message may hold any byte but NUL; only the frame of the record is checked.
bool IsRecord(std::string_view slot, std::size_t record_size) {
  if (slot.size() != record_size || slot.back() != '\n' || !StartsWithTime(slot)) return false;
  return record_size != kRecordSizes[0] || (slot[20] == '[' && slot[29] == ']');
}

std::string Printable(std::string_view bytes) {
  std::string shown;
  for (unsigned char c : bytes) {
    if (c == '\n') {
      shown += "\\n";
    } else if (std::isprint(c)) {
      shown += static_cast<char>(c);
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      shown += escaped;
    }
  }
  return shown;
}

}  // namespace

std::string_view Body(std::string_view file) {
  return file.size() > kHeaderSize ? file.substr(kHeaderSize) : std::string_view();
}

std::optional<std::size_t> HeaderPosition(std::string_view file) {
  // Between its creation and its first record a file holds the short header, then a hole.
  if (file.empty()) return 0;
  if (file.starts_with(kFreshHeader) &&
      AllZero(file.substr(kFreshHeader.size(), kHeaderSize - kFreshHeader.size()))) {
    return 0;
  }
  if (file.size() < kHeaderSize || file[kHeaderSize - 1] != '\n') return std::nullopt;
  std::size_t position = 0;
  for (std::size_t i = 0; i + 1 < kHeaderSize; ++i) {
    if (!IsDigit(file[i])) return std::nullopt;
    position = position * 10 + static_cast<std::size_t>(file[i] - '0');
  }
  return position;
}

std::size_t RecordSize(std::string_view body) {
  constexpr std::size_t kSlotsJudged = 8;
  std::size_t best = 0;
  std::size_t best_votes = 0;
  for (std::size_t size : kRecordSizes) {
    std::size_t votes = 0;
    for (std::size_t at = 0; at < body.size() && at < size * kSlotsJudged; at += size) {
      if (IsRecord(body.substr(at, size), size)) ++votes;
    }
    if (votes > best_votes) {
      best = size;
      best_votes = votes;
    }
  }
  return best;
}

void ReadSlots(std::string_view file, std::size_t record_size, std::size_t from, std::size_t to,
               std::vector<Record> &records, Problems &problems) {
  std::string_view body = Body(file);
  to = std::min(to, body.size());
  for (std::size_t at = from; at < to; at += record_size) {
    std::string_view slot = body.substr(at, std::min(record_size, to - at));
    if (AllZero(slot)) continue;
    if (IsRecord(slot, record_size)) {
      slot.remove_suffix(1);
      records.push_back({slot, kHeaderSize + at});
    } else {
      problems.torn.push_back(kHeaderSize + at);
    }
  }
}

std::vector<Record> OldestFirst(std::string_view file, Problems &problems) {
  std::string_view body = Body(file);
  std::vector<Record> records;
  std::size_t record_size = RecordSize(body);
  if (record_size == 0) {
    problems.not_a_ring = !AllZero(body) || !HeaderPosition(file);
    return records;
  }
  std::optional<std::size_t> position = HeaderPosition(file);
  if (position && *position % record_size == 0 && *position <= body.size()) {
    ReadSlots(file, record_size, *position, body.size(), records, problems);  // wrapped part
    ReadSlots(file, record_size, 0, *position, records, problems);
    return records;
  }
  problems.damaged_header = PrintableHeader(file);
  ReadSlots(file, record_size, 0, body.size(), records, problems);
  // The oldest record follows the newest one, where the times step back.
  auto oldest = std::adjacent_find(
      records.begin(), records.end(),
      [](const Record &a, const Record &b) { return RecordTime(b.text) < RecordTime(a.text); });
  if (oldest != records.end()) std::rotate(records.begin(), oldest + 1, records.end());
  return records;
}

std::string PrintableHeader(std::string_view file) {
  return Printable(file.substr(0, kHeaderSize));
}

std::string_view RecordTime(std::string_view record) { return record.substr(0, 19); }

std::optional<unsigned long> RecordCode(std::string_view record) {
  if (record.size() < 30 || record[20] != '[' || record[29] != ']') return std::nullopt;
  unsigned long code = 0;
  auto [end, error] = std::from_chars(record.data() + 21, record.data() + 29, code, 16);
  if (error != std::errc() || end != record.data() + 29) return std::nullopt;
  return code;
}

}  // namespace logview
