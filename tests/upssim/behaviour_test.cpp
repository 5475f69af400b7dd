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
  BehaviourTest() : SimulatorTest(StartCards(1)) {}
  long Status() { return Read(ups0_, oid::kOutputStatus).number; }
  long OutputVoltage() { return Read(ups0_, oid::kOutputVoltage).number; }
  long Order(const char *object, const char *code) {
    Answer answer = Set(ups0_, {{object, 'i', code}});
    if (!answer.answered) throw std::runtime_error("no answer to an order");
    return answer.error_status;
  }

  Target ups0_ = CardTarget(*simulator_, "ups0");
};

TEST_F(BehaviourTest, OffOrdersSwitchTheOutputOffAndTurnOnRestoresIt) {
  for (const char *code : {"2", "3"}) {  // turnUpsOff, turnUpsOffGracefully
    ASSERT_EQ(Order(oid::kUpsOff, code), SNMP_ERR_NOERROR);
    EXPECT_EQ(Status(), kOff);
    EXPECT_EQ(OutputVoltage(), 0);
    EXPECT_EQ(Read(ups0_, oid::kOutputLoad).number, 0);
    EXPECT_EQ(Read(ups0_, oid::kUpsOff).number, 1);  // orders read back as noTurnUpsOff
    EXPECT_EQ(Read(ups0_, oid::kOutputState).octets[3], '0');

    ASSERT_EQ(Order(oid::kTurnOn, "2"), SNMP_ERR_NOERROR);
    EXPECT_EQ(Status(), kOnLine);
    EXPECT_EQ(OutputVoltage(), 100);
    EXPECT_EQ(Read(ups0_, oid::kOutputLoad).number, 23);
    EXPECT_EQ(Read(ups0_, oid::kOutputState).octets[3], '1');
  }
  ASSERT_EQ(Order(oid::kUpsOff, "1"), SNMP_ERR_NOERROR);  // noTurnUpsOff does nothing
  EXPECT_EQ(Status(), kOnLine);
}

TEST_F(BehaviourTest, SleepOrderSleepsForTheSleepTimeThenComesBackOnLine) {
  ASSERT_EQ(Set(ups0_, {{oid::kSleepTime, 't', "100"}}).error_status, SNMP_ERR_NOERROR);
  ASSERT_EQ(Order(oid::kUpsSleep, "3"), SNMP_ERR_NOERROR);  // putUpsToSleepGracefully
  EXPECT_EQ(Status(), kTimedSleeping);
  EXPECT_EQ(OutputVoltage(), 0);
  std::this_thread::sleep_for(milliseconds(1200));
  EXPECT_EQ(Status(), kOnLine);
  EXPECT_EQ(OutputVoltage(), 100);
}

TEST_F(BehaviourTest, ConserveBatteryIsRefusedOnLineAndSleepsUntilTheMainsReturn) {
  EXPECT_EQ(Order(oid::kConserveBattery, "2"), SNMP_ERR_BADVALUE);
  EXPECT_EQ(Status(), kOnLine);

  simulator_->PowerFailure("ups0", true);
  ASSERT_EQ(Order(oid::kConserveBattery, "2"), SNMP_ERR_NOERROR);
  EXPECT_EQ(Status(), kSleepingUntilPowerReturn);
  EXPECT_EQ(OutputVoltage(), 0);
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 0);

  simulator_->PowerFailure("ups0", false);
  EXPECT_EQ(Status(), kOnLine);
  EXPECT_EQ(OutputVoltage(), 100);
}

TEST_F(BehaviourTest, SleepDuringPowerFailureLastsUntilTheMainsReturn) {
  simulator_->PowerFailure("ups0", true);
  ASSERT_EQ(Order(oid::kUpsSleep, "2"), SNMP_ERR_NOERROR);
  EXPECT_EQ(Status(), kSleepingUntilPowerReturn);
  ASSERT_EQ(Order(oid::kTurnOn, "2"), SNMP_ERR_NOERROR);  // on again, still without mains
  EXPECT_EQ(Status(), kOnBattery);
  simulator_->PowerFailure("ups0", false);
  EXPECT_EQ(Status(), kOnLine);
}

TEST_F(BehaviourTest, PowerFailureCountsTimeOnBatteryInRealTime) {
  simulator_->PowerFailure("ups0", true);
  EXPECT_EQ(Status(), kOnBattery);
  EXPECT_EQ(Read(ups0_, oid::kLineFailCause).number, 4);  // blackout
  EXPECT_EQ(Read(ups0_, oid::kInputVoltage).number, 0);
  EXPECT_EQ(Read(ups0_, oid::kOutputVoltage).number, 100);
  EXPECT_EQ(Read(ups0_, oid::kOutputState).octets.substr(0, 6), "010001");

  long first = Read(ups0_, oid::kTimeOnBattery).number;
  std::this_thread::sleep_for(milliseconds(1500));
  long second = Read(ups0_, oid::kTimeOnBattery).number;
  EXPECT_GE(second - first, 140);  // hundredths of a second
  EXPECT_LE(second - first, 300);

  simulator_->PowerFailure("ups0", false);
  EXPECT_EQ(Status(), kOnLine);
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 0);
  EXPECT_EQ(Read(ups0_, oid::kInputVoltage).number, 100);
  EXPECT_EQ(Read(ups0_, oid::kOutputState).octets.substr(0, 6), "000101");

  simulator_->PowerFailure("ups0", true, 3);
  EXPECT_EQ(Read(ups0_, oid::kLineFailCause).number, 3);  // brownout
}

TEST_F(BehaviourTest, SelfTestSetsCauseNineAndBrieflyRunsOnBattery) {
  simulator_->SelfTest("ups0", std::chrono::seconds(1));
  EXPECT_EQ(Read(ups0_, oid::kLineFailCause).number, 9);
  EXPECT_EQ(Status(), kOnBattery);
  std::this_thread::sleep_for(milliseconds(1200));
  EXPECT_EQ(Status(), kOnLine);
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 0);
  EXPECT_EQ(Read(ups0_, oid::kLineFailCause).number, 9);  // the last cause stays
}

}  // namespace
}  // namespace upssim::testing
