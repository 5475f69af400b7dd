#include "test_home.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "runtime/paths.h"

namespace snmplumi::testing {

TempHome::TempHome() {
  std::string pattern = (std::filesystem::temp_directory_path() / "snmplumi-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  root_ = pattern;
  std::filesystem::create_directories(root_ + "/data/UPS");
  std::filesystem::create_directory(root_ + "/data/snmptrap");
  setenv("SNMPLUMI_HOME", root_.c_str(), 1);
  // A loopback address where nothing answers, unless the test names a simulated card.
  setenv("SNMPLUMI_TRAP_REPORT_IP", "127.0.0.9", 0);
  LoadEnvironment();
}

TempHome::~TempHome() {
  // The library keeps pointing here: later writes fail instead of reaching a real installation.
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

std::string TempHome::data(const std::string &relative) const {
  return relative.empty() ? root_ + "/data" : root_ + "/data/" + relative;
}

void FakeClock::SleepSeconds(unsigned int seconds) {
  sleeps.push_back(seconds * 1000000UL);
  now_ += seconds;
}

void FakeClock::SleepMicros(unsigned long micros) {
  sleeps.push_back(micros);
  micros_ += micros;
  now_ += static_cast<std::time_t>(micros_ / 1000000);
  micros_ %= 1000000;
}

std::string FileText(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void PutFile(const std::string &path, const std::string &content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

bool FileExists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

std::vector<std::string> RingRecords(const std::string &path, std::size_t record_size) {
  std::string content = FileText(path);
  std::vector<std::string> records;
  for (std::size_t at = 9; at + record_size <= content.size(); at += record_size) {
    records.push_back(content.substr(at, record_size - 1));
  }
  return records;
}

std::vector<LogRecord> LibraryLog(const TempHome &home) {
  std::vector<LogRecord> records;
  for (const std::string &record : RingRecords(home.data("snmplumi.log"), 112)) {
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

void UseUtc() {
  setenv("TZ", "UTC", 1);
  tzset();
}

}  // namespace snmplumi::testing
