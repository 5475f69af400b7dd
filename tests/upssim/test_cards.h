// Shared by the simulator's tests: the OIDs they use and short ways to reach a card.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "snmp_client.h"
#include "upssim_fixture.h"

namespace upssim::testing {

namespace oid {
inline constexpr char kSysDescr[] = ".1.3.6.1.2.1.1.1.0";
inline constexpr char kModel[] = ".1.3.6.1.4.1.318.1.1.1.1.1.1.0";
inline constexpr char kIdentName[] = ".1.3.6.1.4.1.318.1.1.1.1.1.2.0";
inline constexpr char kSerialNumber[] = ".1.3.6.1.4.1.318.1.1.1.1.2.3.0";
inline constexpr char kTimeOnBattery[] = ".1.3.6.1.4.1.318.1.1.1.2.1.2.0";
inline constexpr char kBatteryCapacity[] = ".1.3.6.1.4.1.318.1.1.1.2.2.1.0";
inline constexpr char kInputVoltage[] = ".1.3.6.1.4.1.318.1.1.1.3.2.1.0";
inline constexpr char kLineFailCause[] = ".1.3.6.1.4.1.318.1.1.1.3.2.5.0";
inline constexpr char kOutputStatus[] = ".1.3.6.1.4.1.318.1.1.1.4.1.1.0";
inline constexpr char kOutputVoltage[] = ".1.3.6.1.4.1.318.1.1.1.4.2.1.0";
inline constexpr char kOutputLoad[] = ".1.3.6.1.4.1.318.1.1.1.4.2.3.0";
inline constexpr char kHighTransferVolt[] = ".1.3.6.1.4.1.318.1.1.1.5.2.2.0";
inline constexpr char kConfigAlarm[] = ".1.3.6.1.4.1.318.1.1.1.5.2.4.0";
inline constexpr char kSensitivity[] = ".1.3.6.1.4.1.318.1.1.1.5.2.7.0";
inline constexpr char kShutoffDelay[] = ".1.3.6.1.4.1.318.1.1.1.5.2.10.0";
inline constexpr char kSleepTime[] = ".1.3.6.1.4.1.318.1.1.1.5.2.11.0";
inline constexpr char kConserveBattery[] = ".1.3.6.1.4.1.318.1.1.1.6.1.1.0";
inline constexpr char kUpsOff[] = ".1.3.6.1.4.1.318.1.1.1.6.2.1.0";
inline constexpr char kUpsSleep[] = ".1.3.6.1.4.1.318.1.1.1.6.2.3.0";
inline constexpr char kTurnOn[] = ".1.3.6.1.4.1.318.1.1.1.6.2.6.0";
inline constexpr char kCommStatus[] = ".1.3.6.1.4.1.318.1.1.1.8.1.0";
inline constexpr char kScgMultiCastIp[] = ".1.3.6.1.4.1.318.1.1.1.10.1.5.0";
inline constexpr char kOutputState[] = ".1.3.6.1.4.1.318.1.1.1.11.1.1.0";
}  // namespace oid

// How long to wait for an answer that must not come: far above a loopback round trip.
inline constexpr std::chrono::milliseconds kNoAnswerWait{250};

// A test with a running simulator, which must stop cleanly at the end: under the sanitizers a leak
// or undefined behaviour in the simulator shows as its exit status.
class SimulatorTest : public ::testing::Test {
 protected:
  explicit SimulatorTest(std::unique_ptr<Simulator> simulator) : simulator_(std::move(simulator)) {}
  void TearDown() override {
    simulator_->Stop();
    EXPECT_EQ(simulator_->ExitStatus(), 0) << "the simulator did not stop cleanly";
  }

  std::unique_ptr<Simulator> simulator_;
};

// Cards named ups0, ups1, ... with the default community.
inline std::unique_ptr<Simulator> StartCards(int count) {
  std::vector<CardOptions> cards;
  for (int i = 0; i < count; ++i) cards.push_back({.name = "ups" + std::to_string(i)});
  return Simulator::Start(cards);
}

inline Target CardTarget(const Simulator &simulator, const std::string &card) {
  return Target{simulator.Address(card), simulator.Port()};
}

// The value of a one-variable GET that must succeed.
inline Variable Read(const Target &target, const std::string &oid) {
  Answer answer = Get(target, {oid});
  if (!answer.answered || answer.error_status != 0) {
    throw std::runtime_error("GET " + oid + ": no answer or error " +
                             std::to_string(answer.error_status));
  }
  return answer.Only();
}

}  // namespace upssim::testing
