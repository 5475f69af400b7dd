#include "test_home.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

#include "runtime/paths.h"

namespace snmplumi::testing {

TempHome::TempHome() {
  root_ = (std::filesystem::temp_directory_path() / "snmplumi-XXXXXX").string();
  if (mkdtemp(root_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  std::filesystem::create_directories(root_ + "/data/UPS");
  std::filesystem::create_directory(root_ + "/data/snmptrap");
  setenv("SNMPLUMI_HOME", root_.c_str(), 1);
  setenv(kTrapReportAddressEnv, kQuietTrapReportIp, 0);
  LoadEnvironment();
}

TempHome::~TempHome() {
  std::error_code ignored;  // later writes of the library fail instead of going elsewhere
  std::filesystem::remove_all(root_, ignored);
}

void FakeClock::SleepMicros(unsigned long micros) {
  sleeps.push_back(micros);
  micros_ += micros;
  now_ += static_cast<std::time_t>(micros_ / 1000000);
  micros_ %= 1000000;
}

std::vector<std::string> RingRecords(const std::string &path, std::size_t record_size) {
  std::string content = FileText(path);
  std::vector<std::string> records;
  for (std::size_t at = 9; at + record_size <= content.size(); at += record_size)
    records.push_back(content.substr(at, record_size - 1));
  return records;
}

std::vector<LogRecord> CodedLog(const std::string &path) {
  std::vector<LogRecord> records;
  for (const std::string &record : RingRecords(path, 112)) {
    std::string message = record.substr(31);
    message.erase(message.find_last_not_of(' ') + 1);
    records.push_back(
        {static_cast<unsigned>(std::stoul(record.substr(21, 8), nullptr, 16)), message});
  }
  return records;
}

std::vector<std::string> LogMessages(const TempHome &home) {
  std::vector<std::string> messages;
  for (const LogRecord &record : LibraryLog(home)) messages.push_back(record.message);
  return messages;
}

}  // namespace snmplumi::testing
