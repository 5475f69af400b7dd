#include "journal.h"

#include <chrono>
#include <ctime>

namespace upssim {

Journal::~Journal() {
  if (file_ != nullptr) std::fclose(file_);
}

bool Journal::Open(const std::string &path) {
  file_ = std::fopen(path.c_str(), "w");
  return file_ != nullptr;
}

void Journal::Write(std::string_view card, std::string_view oid, char type, std::string_view value,
                    std::string_view answer) {
  if (file_ == nullptr) return;
  auto now = std::chrono::system_clock::now();
  std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
  std::fprintf(file_, "%s.%03d\t%.*s\t%.*s\t%c\t%.*s\t%.*s\n", stamp, static_cast<int>(millis),
               static_cast<int>(card.size()), card.data(), static_cast<int>(oid.size()), oid.data(),
               type, static_cast<int>(value.size()), value.data(), static_cast<int>(answer.size()),
               answer.data());
  std::fflush(file_);
}

}  // namespace upssim
