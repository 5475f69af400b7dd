// The UPS behind the card: power orders, power failures and self-tests change what it reports.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <thread>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using std::chrono::milliseconds;

constexpr int kOnLine = 2, kOnBattery = 3, kTimedSleeping = 5, kOff = 7;
constexpr int kSleepingUntilPowerReturn = 11;

class BehaviourTest : public SimulatorTest {
 protected:
  BehaviourTest() : SimulatorTest(StartCards(3)) {}
  long Status() { return Read(ups0_, oid::kOutputStatus).number; }
  long Order(const char *object, const char *code) {
    Answer answer = Set(ups0_, {{object, 'i', code}});
    if (!answer.answered) throw std::runtime_error("no answer to an order");
    return answer.error_status;
  }

  Target ups0_ = CardTarget(*simulator_, "ups0");
};

// Each step: an order over SNMP (object, code) or a control line; then what the card shows. Time
// on battery counts only on battery.
TEST_F(BehaviourTest, OrdersAndPowerFailuresMoveTheOutputThroughItsStates) {
  struct Step {
    const char *object, *code;
    long answer;
    int status, volts, load;
    const char *flags;
  };
  constexpr long kOk = SNMP_ERR_NOERROR;
  const Step steps[] = {
      {oid::kUpsOff, "2", kOk, kOff, 0, 0, "000001"},  // turnUpsOff
      {oid::kTurnOn, "2", kOk, kOnLine, 100, 23, "000101"},
      {oid::kUpsOff, "3", kOk, kOff, 0, 0, "000001"},  // turnUpsOffGracefully
      {oid::kTurnOn, "2", kOk, kOnLine, 100, 23, "000101"},
      {oid::kUpsOff, "1", kOk, kOnLine, 100, 23, "000101"},  // noTurnUpsOff does nothing
      {oid::kConserveBattery, "2", SNMP_ERR_BADVALUE, kOnLine, 100, 23, "000101"},  // on line
      {nullptr, "power ups0 fail", kOk, kOnBattery, 100, 23, "010001"},
      {oid::kConserveBattery, "2", kOk, kSleepingUntilPowerReturn, 0, 0, "000001"},
      {nullptr, "power ups0 restore", kOk, kOnLine, 100, 23, "000101"},
      {nullptr, "power ups0 fail", kOk, kOnBattery, 100, 23, "010001"},
      {oid::kUpsSleep, "2", kOk, kSleepingUntilPowerReturn, 0, 0, "000001"},
      {oid::kTurnOn, "2", kOk, kOnBattery, 100, 23, "010001"},  // still without mains
      {oid::kUpsSleep, "3", kOk, kSleepingUntilPowerReturn, 0, 0, "000001"},
      {nullptr, "power ups0 restore", kOk, kOnLine, 100, 23, "000101"},
  };
  for (const Step &step : steps) {
    SCOPED_TRACE(std::string(step.object ? step.object : "") + " " + step.code);
    if (step.object != nullptr) {
      ASSERT_EQ(Order(step.object, step.code), step.answer);
    } else {
      simulator_->Command(step.code);
    }
    EXPECT_EQ(Status(), step.status);
    EXPECT_EQ(Read(ups0_, oid::kOutputVoltage).number, step.volts);
    EXPECT_EQ(Read(ups0_, oid::kOutputLoad).number, step.load);
    EXPECT_EQ(Read(ups0_, oid::kOutputState).octets.substr(0, 6), step.flags);
    long on_battery = Read(ups0_, oid::kTimeOnBattery).number;
    EXPECT_TRUE(step.status == kOnBattery || on_battery == 0) << on_battery;
    EXPECT_EQ(Read(ups0_, step.object ? step.object : oid::kUpsOff).number, 1);  // orders: idle
  }
}

// Timed changes follow real time: one card sleeps for its sleep time, one counts time on battery
// through a power failure, one runs a short self-test on battery; all during the same wait.
TEST_F(BehaviourTest, SleepTimeSelfTestAndTimeOnBatteryFollowRealTime) {
  Target ups1 = CardTarget(*simulator_, "ups1"), ups2 = CardTarget(*simulator_, "ups2");
  ASSERT_EQ(Set(ups0_, {{oid::kSleepTime, 't', "100"}}).error_status, SNMP_ERR_NOERROR);
  ASSERT_EQ(Order(oid::kUpsSleep, "3"), SNMP_ERR_NOERROR);  // putUpsToSleepGracefully
  EXPECT_EQ(Status(), kTimedSleeping);
  simulator_->PowerFailure("ups1", true);
  EXPECT_EQ(Read(ups1, oid::kLineFailCause).number, 4);  // blackout
  EXPECT_EQ(Read(ups1, oid::kInputVoltage).number, 0);
  simulator_->SelfTest("ups2", std::chrono::seconds(1));
  EXPECT_EQ(Read(ups2, oid::kOutputStatus).number, kOnBattery);
  long first = Read(ups1, oid::kTimeOnBattery).number;
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_NEAR(Read(ups1, oid::kTimeOnBattery).number - first, 220, 80);  // hundredths of a second
  EXPECT_EQ(Status(), kOnLine);
  EXPECT_EQ(Read(ups0_, oid::kOutputVoltage).number, 100);
  EXPECT_EQ(Read(ups2, oid::kOutputStatus).number, kOnLine);
  EXPECT_EQ(Read(ups2, oid::kTimeOnBattery).number, 0);
  EXPECT_EQ(Read(ups2, oid::kLineFailCause).number, 9);  // selfTest, the last cause, stays

  simulator_->PowerFailure("ups1", false);
  EXPECT_EQ(Read(ups1, oid::kTimeOnBattery).number, 0);
  EXPECT_EQ(Read(ups1, oid::kInputVoltage).number, 100);
  simulator_->PowerFailure("ups1", true, 3);
  EXPECT_EQ(Read(ups1, oid::kLineFailCause).number, 3);  // brownout
}

}  // namespace
}  // namespace upssim::testing
