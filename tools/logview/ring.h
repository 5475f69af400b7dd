// Reading snmplumi ring files: a 9-byte header holding the next write position, then fixed-width
// records that wrap to the first one. Nothing here trusts the file: a damaged header or a torn
// record is reported and the rest is still read.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/ring_log.h"

namespace logview {

inline constexpr std::size_t kHeaderSize = snmplumi::kRingHeaderSize;

// The library log and trap logs have 112-byte records with a code, the report logs 101-byte
// records without one.
inline constexpr std::size_t kRecordSizes[] = {snmplumi::kLibraryLogShape.record_width + 1u,
                                               snmplumi::kReportLogShape.record_width + 1u};

struct Record {
  std::string_view text;  // without its newline
  std::size_t offset;     // in the file
};

struct Problems {
  std::optional<std::string> damaged_header;  // the header as found, made printable
  std::vector<std::size_t> torn;              // file offsets of slots that hold no whole record
  bool not_a_ring = false;                    // data, but no slot of either width holds a record
};

// The write position the header names; nullopt when the header is damaged. A fresh file's short
// header "00000\n" reads as 0.
std::optional<std::size_t> HeaderPosition(std::string_view file);

// What follows the header.
std::string_view Body(std::string_view file);

// The record width used in the file, judged from its first slots; 0 when none holds a record.
std::size_t RecordSize(std::string_view body);

// Sorts the slots of body[from, to) into records, in file order, and torn slots. Zero-filled
// slots are holes and are neither.
void ReadSlots(std::string_view file, std::size_t record_size, std::size_t from, std::size_t to,
               std::vector<Record> &records, Problems &problems);

// Every record of a ring file, oldest first. Once the ring has wrapped the records after the
// header's position are the oldest; with a damaged header the order is taken from the times in
// the records instead.
std::vector<Record> OldestFirst(std::string_view file, Problems &problems);

// The header of a file as it stands, with the bytes that are not printable escaped.
std::string PrintableHeader(std::string_view file);

// The time stamp that starts every record, "YYYY/MM/DD HH:MM:SS".
std::string_view RecordTime(std::string_view record);

// The code of a library or trap log record ("[%08x]"); nullopt for a report log record.
std::optional<unsigned long> RecordCode(std::string_view record);

}  // namespace logview
