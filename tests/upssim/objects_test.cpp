// Every object the library reads or writes is served with the MIB's type and a believable value.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "test_cards.h"

namespace upssim::testing {
namespace {

struct Expected {
  const char *oid;
  int type;
};

// The objects and types as the library's callers name them (type letters i u t s a).
constexpr Expected kObjects[] = {
    {".1.3.6.1.2.1.1.1.0", ASN_OCTET_STR},               // sysDescr
    {".1.3.6.1.4.1.318.1.1.1.1.1.1.0", ASN_OCTET_STR},   // upsBasicIdentModel
    {".1.3.6.1.4.1.318.1.1.1.1.1.2.0", ASN_OCTET_STR},   // upsBasicIdentName
    {".1.3.6.1.4.1.318.1.1.1.1.2.1.0", ASN_OCTET_STR},   // upsAdvIdentFirmwareRevision
    {".1.3.6.1.4.1.318.1.1.1.1.2.3.0", ASN_OCTET_STR},   // upsAdvIdentSerialNumber
    {".1.3.6.1.4.1.318.1.1.1.2.1.2.0", ASN_TIMETICKS},   // upsBasicBatteryTimeOnBattery
    {".1.3.6.1.4.1.318.1.1.1.2.2.1.0", ASN_GAUGE},       // upsAdvBatteryCapacity
    {".1.3.6.1.4.1.318.1.1.1.2.2.2.0", ASN_GAUGE},       // upsAdvBatteryTemperature
    {".1.3.6.1.4.1.318.1.1.1.2.2.3.0", ASN_TIMETICKS},   // upsAdvBatteryRunTimeRemaining
    {".1.3.6.1.4.1.318.1.1.1.2.2.4.0", ASN_INTEGER},     // upsAdvBatteryReplaceIndicator
    {".1.3.6.1.4.1.318.1.1.1.2.2.5.0", ASN_INTEGER},     // upsAdvBatteryNumOfBattPacks
    {".1.3.6.1.4.1.318.1.1.1.2.2.6.0", ASN_INTEGER},     // upsAdvBatteryNumOfBadBattPacks
    {".1.3.6.1.4.1.318.1.1.1.3.1.1.0", ASN_INTEGER},     // upsBasicInputPhase
    {".1.3.6.1.4.1.318.1.1.1.3.2.1.0", ASN_GAUGE},       // upsAdvInputLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.2.0", ASN_GAUGE},       // upsAdvInputMaxLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.3.0", ASN_GAUGE},       // upsAdvInputMinLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.4.0", ASN_GAUGE},       // upsAdvInputFrequency
    {".1.3.6.1.4.1.318.1.1.1.3.2.5.0", ASN_INTEGER},     // upsAdvInputLineFailCause
    {".1.3.6.1.4.1.318.1.1.1.4.1.1.0", ASN_INTEGER},     // upsBasicOutputStatus
    {".1.3.6.1.4.1.318.1.1.1.4.1.2.0", ASN_INTEGER},     // upsBasicOutputPhase
    {".1.3.6.1.4.1.318.1.1.1.4.2.1.0", ASN_GAUGE},       // upsAdvOutputVoltage
    {".1.3.6.1.4.1.318.1.1.1.4.2.2.0", ASN_GAUGE},       // upsAdvOutputFrequency
    {".1.3.6.1.4.1.318.1.1.1.4.2.3.0", ASN_GAUGE},       // upsAdvOutputLoad
    {".1.3.6.1.4.1.318.1.1.1.4.2.4.0", ASN_GAUGE},       // upsAdvOutputCurrent
    {".1.3.6.1.4.1.318.1.1.1.5.2.2.0", ASN_INTEGER},     // upsAdvConfigHighTransferVolt
    {".1.3.6.1.4.1.318.1.1.1.5.2.3.0", ASN_INTEGER},     // upsAdvConfigLowTransferVolt
    {".1.3.6.1.4.1.318.1.1.1.5.2.4.0", ASN_INTEGER},     // upsAdvConfigAlarm
    {".1.3.6.1.4.1.318.1.1.1.5.2.5.0", ASN_TIMETICKS},   // upsAdvConfigAlarmTimer
    {".1.3.6.1.4.1.318.1.1.1.5.2.6.0", ASN_INTEGER},     // upsAdvConfigMinReturnCapacity
    {".1.3.6.1.4.1.318.1.1.1.5.2.7.0", ASN_INTEGER},     // upsAdvConfigSensitivity
    {".1.3.6.1.4.1.318.1.1.1.5.2.8.0", ASN_TIMETICKS},   // upsAdvConfigLowBatteryRunTime
    {".1.3.6.1.4.1.318.1.1.1.5.2.9.0", ASN_TIMETICKS},   // upsAdvConfigReturnDelay
    {".1.3.6.1.4.1.318.1.1.1.5.2.10.0", ASN_TIMETICKS},  // upsAdvConfigShutoffDelay
    {".1.3.6.1.4.1.318.1.1.1.5.2.11.0", ASN_TIMETICKS},  // upsAdvConfigUpsSleepTime
    {".1.3.6.1.4.1.318.1.1.1.5.2.14.0", ASN_TIMETICKS},  // upsAdvConfigBattExhaustThresh
    {".1.3.6.1.4.1.318.1.1.1.6.1.1.0", ASN_INTEGER},     // upsBasicControlConserveBattery
    {".1.3.6.1.4.1.318.1.1.1.6.2.1.0", ASN_INTEGER},     // upsAdvControlUpsOff
    {".1.3.6.1.4.1.318.1.1.1.6.2.3.0", ASN_INTEGER},     // upsAdvControlUpsSleep
    {".1.3.6.1.4.1.318.1.1.1.6.2.6.0", ASN_INTEGER},     // upsAdvControlTurnOnUPS
    {".1.3.6.1.4.1.318.1.1.1.7.2.1.0", ASN_INTEGER},     // upsAdvTestDiagnosticSchedule
    {".1.3.6.1.4.1.318.1.1.1.8.1.0", ASN_INTEGER},       // upsCommStatus
    {".1.3.6.1.4.1.318.1.1.1.10.1.1.0", ASN_INTEGER},    // upsSCGMembershipGroupNumber
    {".1.3.6.1.4.1.318.1.1.1.10.1.2.0", ASN_INTEGER},    // upsSCGActiveMembershipStatus
    {".1.3.6.1.4.1.318.1.1.1.10.1.3.0", ASN_INTEGER},    // upsSCGPowerSynchronizationDelayTime
    {".1.3.6.1.4.1.318.1.1.1.10.1.4.0", ASN_INTEGER},    // upsSCGReturnBatteryCapacityOffset
    {".1.3.6.1.4.1.318.1.1.1.10.1.5.0", ASN_IPADDRESS},  // upsSCGMultiCastIP
    {".1.3.6.1.4.1.318.1.1.1.10.2.1.0", ASN_INTEGER},    // upsSCGNumOfGroupMembers
    {".1.3.6.1.4.1.318.1.1.1.11.1.1.0", ASN_OCTET_STR},  // upsBasicStateOutputState
};

class ObjectsTest : public SimulatorTest {
 protected:
  ObjectsTest() : SimulatorTest(StartCards(2)) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
};

TEST_F(ObjectsTest, EveryObjectAnswersWithItsMibType) {
  for (const Expected &object : kObjects) {
    Variable variable = Read(ups0_, object.oid);
    EXPECT_EQ(variable.oid, object.oid);
    EXPECT_EQ(variable.type, object.type) << object.oid;
  }
}

TEST_F(ObjectsTest, DefaultsLookLikeASmartUpsOnLine) {
  EXPECT_EQ(Read(ups0_, oid::kModel).octets.rfind("Smart-UPS", 0), 0u);
  EXPECT_NE(Read(ups0_, oid::kSysDescr).octets.find("MB:v3.6.1"), std::string::npos);
  EXPECT_EQ(Read(ups0_, oid::kIdentName).octets, "ups0");
  std::string serial = Read(ups0_, oid::kSerialNumber).octets;
  ASSERT_EQ(serial.size(), 16u);
  EXPECT_EQ(serial.substr(12), "    ");
  EXPECT_EQ(serial.find(' '), 12u);
  EXPECT_NE(Read(CardTarget(*simulator_, "ups1"), oid::kSerialNumber).octets, serial);

  EXPECT_EQ(Read(ups0_, oid::kOutputStatus).number, 2);  // onLine
  EXPECT_EQ(Read(ups0_, oid::kInputVoltage).number, 100);
  EXPECT_EQ(Read(ups0_, oid::kOutputVoltage).number, 100);
  EXPECT_GT(Read(ups0_, oid::kOutputLoad).number, 0);
  EXPECT_EQ(Read(ups0_, oid::kBatteryCapacity).number, 100);
  EXPECT_EQ(Read(ups0_, oid::kTimeOnBattery).number, 0);
  EXPECT_EQ(Read(ups0_, oid::kCommStatus).number, 1);  // ok

  std::string flags = Read(ups0_, oid::kOutputState).octets;
  ASSERT_EQ(flags.size(), 64u);
  EXPECT_EQ(flags.find_first_not_of("01"), std::string::npos);
  EXPECT_EQ(flags[5], '1');  // serial communication established
}

TEST_F(ObjectsTest, WalkVisitsEveryObjectInOrderThenAnswersNoSuchName) {
  std::vector<std::string> walked;
  std::string at = ".1.3.6.1";
  while (true) {
    Answer answer = GetNext(ups0_, at);
    ASSERT_TRUE(answer.answered);
    if (answer.error_status != 0) {
      EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME);
      EXPECT_EQ(answer.error_index, 1);
      break;
    }
    at = answer.Only().oid;
    walked.push_back(at);
    ASSERT_LE(walked.size(), std::size(kObjects));
  }
  std::vector<std::string> expected;
  for (const Expected &object : kObjects) expected.push_back(object.oid);
  EXPECT_EQ(walked, expected);  // the table above is in OID order
}

}  // namespace
}  // namespace upssim::testing
