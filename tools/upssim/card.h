// One simulated UPS network card: its objects, the UPS behind it (power orders, power failures,
// self-tests) and the faults a test has asked it to show.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mib.h"
#include "value.h"

namespace upssim {

using Clock = std::chrono::steady_clock;

// SNMP v1 error-status values.
enum ErrorStatus : int {
  kNoError = 0,
  kTooBig = 1,
  kNoSuchName = 2,
  kBadValue = 3,
  kReadOnly = 4,
  kGenErr = 5,
};
std::string ErrorStatusName(int status);
// "noSuchName", "badValue", "readOnly", "genErr", "tooBig", their numbers 1 to 5, or 6 to 18.
std::optional<int> ParseErrorStatus(std::string_view text);

enum class Operation { kGet, kSet };

struct Faults {
  bool silent = false;  // drop every request
  std::chrono::milliseconds delay{0};
  std::map<std::pair<std::size_t, Operation>, int> errors;  // (object, operation) -> error status
  std::map<std::size_t, std::size_t> oversize;              // string object -> answered length
  long drop_next = 0;                                       // requests still to lose
  long drop_every = 0;                                      // lose every K-th request; 0: off
  long drop_count = 0;                        // requests seen since drop_every was set
  std::optional<std::uint64_t> hostile_seed;  // every GET answered with hostile values
  std::uint64_t hostile_count = 0;            // hostile values given since the seed was set

  // Counts one request that reached the card; true when the network is to lose it.
  bool Lose();
};

class Card {
 public:
  // `number` (from 1) makes the serial number unique in the run.
  Card(std::string name, std::string address, std::uint16_t port, std::string community,
       std::size_t number);

  const std::string &name() const { return name_; }
  const std::string &address() const { return address_; }
  std::uint16_t port() const { return port_; }
  const std::string &community() const { return community_; }
  Faults &faults() { return faults_; }
  const Faults &faults() const { return faults_; }
  // Requests with the card's community that reached it, answered or not: what a client paid.
  long requests() const { return requests_; }
  void CountRequest() { ++requests_; }

  // The value a GET of `object` answers now.
  Value Read(std::size_t object, Clock::time_point now);
  // The v1 error status a SET of `object` to `value` gets: noSuchName for a read-only object,
  // badValue for a wrong type or a value the object does not take.
  int CheckSet(std::size_t object, const Value &value, Clock::time_point now);
  // Carries out a SET that CheckSet accepted.
  void ApplySet(std::size_t object, const Value &value, Clock::time_point now);
  // A control-channel write: any object, any type, no checks.
  void Force(std::size_t object, const Value &value, Clock::time_point now);

  void PowerFailure(int cause, Clock::time_point now);
  void PowerRestore(Clock::time_point now);
  void SelfTest(std::chrono::milliseconds on_battery, Clock::time_point now);

  // One line: output status, power, time on battery, faults.
  std::string Describe(Clock::time_point now);

 private:
  int OutputStatus() const;
  void Advance(Clock::time_point now);
  void SetOutputStatus(int status, Clock::time_point now);
  void Order(std::size_t object, long code, Clock::time_point now);
  void SetFlag(std::size_t position, bool on);

  std::string name_;
  std::string address_;
  std::uint16_t port_;
  std::string community_;
  long requests_ = 0;
  Faults faults_;

  std::vector<Value> values_;  // parallel to Objects()
  bool power_failed_ = false;
  // While the output status is onBattery, time on battery is base + time since `since`.
  Clock::time_point on_battery_since_{};
  std::uint32_t on_battery_base_ = 0;
  std::optional<Clock::time_point> wake_at_;  // end of a timed sleep or of the return delay
  std::optional<Clock::time_point> self_test_until_;
  // Readings that go to 0 while the output is off or the mains are out, and come back after.
  std::vector<std::pair<std::size_t, Value>> held_output_;
  std::optional<Value> held_input_voltage_;
};

}  // namespace upssim
