// Faults a test can ask a card to show: injected error statuses, silence, delays, oversize
// strings, and values of a type the MIB does not give.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <future>
#include <thread>

#include "test_cards.h"

namespace upssim::testing {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class FaultsTest : public SimulatorTest {
 protected:
  FaultsTest() : SimulatorTest(StartCards(2)) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
  Target ups1_ = CardTarget(*simulator_, "ups1");
};

TEST_F(FaultsTest, InjectedErrorsHitOnlyTheirObjectOperationAndCard) {
  for (int status : {SNMP_ERR_NOSUCHNAME, SNMP_ERR_BADVALUE, SNMP_ERR_READONLY, SNMP_ERR_GENERR}) {
    simulator_->InjectError("ups0", oid::kCommStatus, Op::kGet, status);
    simulator_->InjectError("ups0", oid::kConfigAlarm, Op::kSet, status);

    Answer get = Get(ups0_, {oid::kModel, oid::kCommStatus});
    EXPECT_EQ(get.error_status, status);
    EXPECT_EQ(get.error_index, 2);
    Answer set = Set(ups0_, {{oid::kConfigAlarm, 'i', "3"}});
    EXPECT_EQ(set.error_status, status);
    EXPECT_EQ(set.error_index, 1);

    EXPECT_EQ(Read(ups0_, oid::kConfigAlarm).number, 1);  // a GET of it still works
    EXPECT_EQ(Set(ups0_, {{oid::kSensitivity, 'i', "2"}}).error_status, SNMP_ERR_NOERROR);
    EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
  }
  simulator_->ClearErrors("ups0");
  EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);
  EXPECT_EQ(Set(ups0_, {{oid::kConfigAlarm, 'i', "3"}}).error_status, SNMP_ERR_NOERROR);
  EXPECT_THROW(simulator_->InjectError("ups0", oid::kCommStatus, Op::kGet, 9), std::runtime_error);
}

TEST_F(FaultsTest, SilentCardDropsRequestsUntilItSpeaksAgain) {
  simulator_->Silent("ups0", true);
  EXPECT_FALSE(Get(ups0_, {oid::kCommStatus}).answered);
  EXPECT_FALSE(Set(ups0_, {{oid::kUpsOff, 'i', "2"}}).answered);
  EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
  EXPECT_EQ(simulator_->Value("ups0", "upsBasicOutputStatus"), "2");  // the order was not obeyed
  simulator_->Silent("ups0", false);
  EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);
}

TEST_F(FaultsTest, DelayedCardAnswersLateWithoutHoldingUpOthers) {
  simulator_->Delay("ups0", milliseconds(600));
  Clock::time_point start = Clock::now();
  auto slow = std::async(std::launch::async, [&] { return Get(ups0_, {oid::kCommStatus}); });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(Read(ups1_, oid::kCommStatus).number, 1);
  EXPECT_LT(Clock::now() - start, milliseconds(450));
  Answer late = slow.get();
  EXPECT_TRUE(late.answered);
  EXPECT_GE(Clock::now() - start, milliseconds(600));

  simulator_->Delay("ups0", milliseconds(0));
  start = Clock::now();
  EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);
  EXPECT_LT(Clock::now() - start, milliseconds(300));
}

TEST_F(FaultsTest, OversizeStringHasExactlyTheAskedLength) {
  std::string serial = Read(ups0_, oid::kSerialNumber).octets;
  simulator_->Oversize("ups0", oid::kSerialNumber, 300);
  std::string longer = Read(ups0_, oid::kSerialNumber).octets;
  EXPECT_EQ(longer.size(), 300u);
  EXPECT_EQ(longer.substr(0, serial.size()), serial);

  simulator_->Oversize("ups0", oid::kSerialNumber, 65535);  // cannot fit one datagram
  Answer too_big = Get(ups0_, {oid::kSerialNumber});
  EXPECT_EQ(too_big.error_status, SNMP_ERR_TOOBIG);

  simulator_->Oversize("ups0", oid::kSerialNumber, 0);
  EXPECT_EQ(Read(ups0_, oid::kSerialNumber).octets, serial);
  EXPECT_THROW(simulator_->Oversize("ups0", oid::kCommStatus, 300), std::runtime_error);
}

TEST_F(FaultsTest, ControlSetsAnyObjectEvenWithAnotherType) {
  simulator_->Set("ups0", oid::kBatteryCapacity, 's', "full\tbut odd\\");
  Variable capacity = Read(ups0_, oid::kBatteryCapacity);
  EXPECT_EQ(capacity.type, ASN_OCTET_STR);
  EXPECT_EQ(capacity.octets, "full\tbut odd\\");
  EXPECT_EQ(simulator_->Value("ups0", oid::kBatteryCapacity), "full\tbut odd\\");

  simulator_->Set("ups0", "upsAdvConfigLowBatteryRunTime", '=', "4242");
  EXPECT_EQ(Read(ups0_, ".1.3.6.1.4.1.318.1.1.1.5.2.8.0").type, ASN_TIMETICKS);
  simulator_->Set("ups0", oid::kTimeOnBattery, 't', "20000");  // 200 s, frozen while on line
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 20000);
  EXPECT_THROW(simulator_->Set("ups0", oid::kOutputStatus, 'i', "many"), std::runtime_error);
  EXPECT_THROW(simulator_->Set("ups0", "upsNoSuchObject", 'i', "1"), std::runtime_error);
}

}  // namespace
}  // namespace upssim::testing
