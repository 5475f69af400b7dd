// Fixed-size ring files: a 9-byte header holding the write position, then fixed-width records
// that wrap to the first one at a size limit. Nothing is ever shifted or deleted.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace snmplumi {

struct RingShape {
  int record_width;  // R: the record is R + 1 bytes long
  int records;       // the ring wraps once the position reaches R * records
};

inline constexpr RingShape kLibraryLogShape{.record_width = 111, .records = 8000};
inline constexpr RingShape kReportLogShape{.record_width = 100, .records = 10000};

inline constexpr std::size_t kLogMessageWidth = 80;
inline constexpr std::size_t kRingHeaderSize = 9;

// Writes one record (already formatted, R + 1 bytes) at the position the header names and moves
// the header on. Creates the file, with the short header "00000\n", when it is missing. The
// caller holds the writer's mutex. False when the file can be neither opened nor created.
bool AppendRingRecord(const char *path, const RingShape &shape, const char *record,
                      std::size_t length);

// Writes one record at the position the header of the open file fd names.
void WriteRingRecord(int fd, const RingShape &shape, const char *record, std::size_t length);

// While a batch is open, the library log stays open between records instead of being opened
// for each: loading writes some 150 records in a row and a watch pass several per card, and the
// opens cost more than the writes. Each record still reads and moves the header, so records of
// other writers interleave correctly; a log removed during a batch receives the batch's
// remaining records in the removed file. Batches nest and may span threads.
class LibraryLogBatch {
 public:
  LibraryLogBatch();
  ~LibraryLogBatch();
  LibraryLogBatch(const LibraryLogBatch &) = delete;
  LibraryLogBatch &operator=(const LibraryLogBatch &) = delete;
};

// pthread_mutex_lock for the span of a scope; a failed lock is not unlocked.
class ScopedMutex {
 public:
  explicit ScopedMutex(pthread_mutex_t &mutex)
      : mutex_(mutex), locked_(pthread_mutex_lock(&mutex) == 0) {}
  ~ScopedMutex() { Unlock(); }
  void Unlock() {
    if (locked_) pthread_mutex_unlock(&mutex_);
    locked_ = false;
  }
  ScopedMutex(const ScopedMutex &) = delete;
  ScopedMutex &operator=(const ScopedMutex &) = delete;

 private:
  pthread_mutex_t &mutex_;
  bool locked_;
};

}  // namespace snmplumi
