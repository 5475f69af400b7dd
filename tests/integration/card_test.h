#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"
#include "upssim_fixture.h"

namespace snmplumi::testing {

// A report line of a card that answered nothing.
inline constexpr char kNoReading[] = " - -- --- --- --- --  -- - --- -- ---- ---  --- --- ----  - ";

template <class T>
char *Raw(T &number) {
  return reinterpret_cast<char *>(&number);
}

// A 48-character request: code, a position 3 nobody reads, length, data; the rest '.'.
inline std::string Frame(const std::string &code, const std::string &length,
                         const std::string &data) {
  std::string frame = code + "?" + length + data;
  frame.resize(48, '.');
  return frame;
}

// The frame as TovLumiSend leaves it, whose result follows the status at position 47.
inline std::string Send(std::string frame) {
  frame.resize(48);
  // Exactly 48 bytes on the heap: a read or write past them is AddressSanitizer's to see.
  auto buffer = std::make_unique<char[]>(48);
  std::memcpy(buffer.get(), frame.data(), 48);
  const int result = TovLumiSend(0, 0, buffer.get(), 48);
  EXPECT_EQ(result, buffer[47] == '0' ? 0 : -1) << frame;
  return std::string(buffer.get(), 48);
}

class CardTest : public ::testing::Test {
 protected:
  // Starts the cards and points net-snmp at them: call before any request of the process.
  void StartCards(std::initializer_list<const char *> names) {
    std::vector<upssim::CardOptions> cards;
    for (const char *name : names) cards.push_back({.name = name});
    sim_ = upssim::Simulator::Start(cards);
    setenv("SNMPCONFPATH", sim_->ClientConfigDir().c_str(), 1);
    std::strcpy(UpsCommunity, "public");
  }
  void TearDown() override { SnmpEnd(); }

  const char *Ip(const std::string &card) const { return sim_->Address(card).c_str(); }
  // The SETs the cards carried out from journal entry `first` on (the journal has lost ones too).
  std::vector<upssim::JournalEntry> Applied(std::size_t first = 0) const {
    std::vector<upssim::JournalEntry> applied, journal = sim_->Journal();
    for (std::size_t i = first; i < journal.size(); ++i)
      if (journal[i].answer != "dropped") applied.push_back(journal[i]);
    return applied;
  }
  // The library log's records that begin so (and carry that code, unless it is -1).
  long Logged(const std::string &start, long code = -1) const {
    return std::ranges::count_if(LibraryLog(home_), [&](const LogRecord &record) {
      return record.message.starts_with(start) &&
             (code == -1 || record.code == static_cast<unsigned>(code));
    });
  }
  void ClearLog() const { std::remove(home_.data("snmplumi.log").c_str()); }

  TempHome home_;
  std::unique_ptr<upssim::Simulator> sim_;
};

}  // namespace snmplumi::testing
