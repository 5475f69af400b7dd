// Every object the library reads or writes is served with the MIB's type and access, in OID order,
// with a believable value that the control channel reports alike.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <regex>

#include "test_cards.h"

namespace upssim::testing {
namespace {

constexpr bool kRO = false, kRW = true;

struct Expected {
  const char *oid;
  int type;
  bool writable;
};

// In OID order, as a walk visits them.
constexpr Expected kObjects[] = {
    {".1.3.6.1.2.1.1.1.0", ASN_OCTET_STR, kRO},               // sysDescr
    {".1.3.6.1.4.1.318.1.1.1.1.1.1.0", ASN_OCTET_STR, kRO},   // upsBasicIdentModel
    {".1.3.6.1.4.1.318.1.1.1.1.1.2.0", ASN_OCTET_STR, kRW},   // upsBasicIdentName
    {".1.3.6.1.4.1.318.1.1.1.1.2.1.0", ASN_OCTET_STR, kRO},   // upsAdvIdentFirmwareRevision
    {".1.3.6.1.4.1.318.1.1.1.1.2.3.0", ASN_OCTET_STR, kRO},   // upsAdvIdentSerialNumber
    {".1.3.6.1.4.1.318.1.1.1.2.1.2.0", ASN_TIMETICKS, kRO},   // upsBasicBatteryTimeOnBattery
    {".1.3.6.1.4.1.318.1.1.1.2.2.1.0", ASN_GAUGE, kRO},       // upsAdvBatteryCapacity
    {".1.3.6.1.4.1.318.1.1.1.2.2.2.0", ASN_GAUGE, kRO},       // upsAdvBatteryTemperature
    {".1.3.6.1.4.1.318.1.1.1.2.2.3.0", ASN_TIMETICKS, kRO},   // upsAdvBatteryRunTimeRemaining
    {".1.3.6.1.4.1.318.1.1.1.2.2.4.0", ASN_INTEGER, kRO},     // upsAdvBatteryReplaceIndicator
    {".1.3.6.1.4.1.318.1.1.1.2.2.5.0", ASN_INTEGER, kRO},     // upsAdvBatteryNumOfBattPacks
    {".1.3.6.1.4.1.318.1.1.1.2.2.6.0", ASN_INTEGER, kRO},     // upsAdvBatteryNumOfBadBattPacks
    {".1.3.6.1.4.1.318.1.1.1.3.1.1.0", ASN_INTEGER, kRO},     // upsBasicInputPhase
    {".1.3.6.1.4.1.318.1.1.1.3.2.1.0", ASN_GAUGE, kRO},       // upsAdvInputLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.2.0", ASN_GAUGE, kRO},       // upsAdvInputMaxLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.3.0", ASN_GAUGE, kRO},       // upsAdvInputMinLineVoltage
    {".1.3.6.1.4.1.318.1.1.1.3.2.4.0", ASN_GAUGE, kRO},       // upsAdvInputFrequency
    {".1.3.6.1.4.1.318.1.1.1.3.2.5.0", ASN_INTEGER, kRO},     // upsAdvInputLineFailCause
    {".1.3.6.1.4.1.318.1.1.1.4.1.1.0", ASN_INTEGER, kRO},     // upsBasicOutputStatus
    {".1.3.6.1.4.1.318.1.1.1.4.1.2.0", ASN_INTEGER, kRO},     // upsBasicOutputPhase
    {".1.3.6.1.4.1.318.1.1.1.4.2.1.0", ASN_GAUGE, kRO},       // upsAdvOutputVoltage
    {".1.3.6.1.4.1.318.1.1.1.4.2.2.0", ASN_GAUGE, kRO},       // upsAdvOutputFrequency
    {".1.3.6.1.4.1.318.1.1.1.4.2.3.0", ASN_GAUGE, kRO},       // upsAdvOutputLoad
    {".1.3.6.1.4.1.318.1.1.1.4.2.4.0", ASN_GAUGE, kRO},       // upsAdvOutputCurrent
    {".1.3.6.1.4.1.318.1.1.1.5.2.2.0", ASN_INTEGER, kRW},     // upsAdvConfigHighTransferVolt
    {".1.3.6.1.4.1.318.1.1.1.5.2.3.0", ASN_INTEGER, kRW},     // upsAdvConfigLowTransferVolt
    {".1.3.6.1.4.1.318.1.1.1.5.2.4.0", ASN_INTEGER, kRW},     // upsAdvConfigAlarm
    {".1.3.6.1.4.1.318.1.1.1.5.2.5.0", ASN_TIMETICKS, kRW},   // upsAdvConfigAlarmTimer
    {".1.3.6.1.4.1.318.1.1.1.5.2.6.0", ASN_INTEGER, kRW},     // upsAdvConfigMinReturnCapacity
    {".1.3.6.1.4.1.318.1.1.1.5.2.7.0", ASN_INTEGER, kRW},     // upsAdvConfigSensitivity
    {".1.3.6.1.4.1.318.1.1.1.5.2.8.0", ASN_TIMETICKS, kRW},   // upsAdvConfigLowBatteryRunTime
    {".1.3.6.1.4.1.318.1.1.1.5.2.9.0", ASN_TIMETICKS, kRW},   // upsAdvConfigReturnDelay
    {".1.3.6.1.4.1.318.1.1.1.5.2.10.0", ASN_TIMETICKS, kRW},  // upsAdvConfigShutoffDelay
    {".1.3.6.1.4.1.318.1.1.1.5.2.11.0", ASN_TIMETICKS, kRW},  // upsAdvConfigUpsSleepTime
    {".1.3.6.1.4.1.318.1.1.1.5.2.14.0", ASN_TIMETICKS, kRW},  // upsAdvConfigBattExhaustThresh
    {".1.3.6.1.4.1.318.1.1.1.6.1.1.0", ASN_INTEGER, kRW},     // upsBasicControlConserveBattery
    {".1.3.6.1.4.1.318.1.1.1.6.2.1.0", ASN_INTEGER, kRW},     // upsAdvControlUpsOff
    {".1.3.6.1.4.1.318.1.1.1.6.2.3.0", ASN_INTEGER, kRW},     // upsAdvControlUpsSleep
    {".1.3.6.1.4.1.318.1.1.1.6.2.6.0", ASN_INTEGER, kRW},     // upsAdvControlTurnOnUPS
    {".1.3.6.1.4.1.318.1.1.1.7.2.1.0", ASN_INTEGER, kRW},     // upsAdvTestDiagnosticSchedule
    {".1.3.6.1.4.1.318.1.1.1.8.1.0", ASN_INTEGER, kRO},       // upsCommStatus
    {".1.3.6.1.4.1.318.1.1.1.10.1.1.0", ASN_INTEGER, kRW},    // upsSCGMembershipGroupNumber
    {".1.3.6.1.4.1.318.1.1.1.10.1.2.0", ASN_INTEGER, kRW},    // upsSCGActiveMembershipStatus
    {".1.3.6.1.4.1.318.1.1.1.10.1.3.0", ASN_INTEGER, kRW},    // upsSCGPowerSynchronizationDelayTime
    {".1.3.6.1.4.1.318.1.1.1.10.1.4.0", ASN_INTEGER, kRW},    // upsSCGReturnBatteryCapacityOffset
    {".1.3.6.1.4.1.318.1.1.1.10.1.5.0", ASN_IPADDRESS, kRW},  // upsSCGMultiCastIP
    {".1.3.6.1.4.1.318.1.1.1.10.2.1.0", ASN_INTEGER, kRO},    // upsSCGNumOfGroupMembers
    {".1.3.6.1.4.1.318.1.1.1.11.1.1.0", ASN_OCTET_STR, kRO},  // upsBasicStateOutputState
};

// A value as the control channel writes it, with the type letter that writes it back.
Write AsWritten(const Variable &variable) {
  if (variable.type == ASN_OCTET_STR) return {variable.oid, 's', variable.octets};
  char text[INET_ADDRSTRLEN] = {};
  if (variable.type == ASN_IPADDRESS) {
    return {variable.oid, 'a', inet_ntop(AF_INET, variable.octets.data(), text, sizeof text)};
  }
  char letter = variable.type == ASN_INTEGER ? 'i' : variable.type == ASN_GAUGE ? 'u' : 't';
  return {variable.oid, letter, std::to_string(variable.number)};
}

class ObjectsTest : public SimulatorTest {
 protected:
  ObjectsTest() : SimulatorTest(StartCards(2)) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
};

TEST_F(ObjectsTest, WalkVisitsEveryObjectInOrderWithItsMibTypeThenAnswersNoSuchName) {
  std::size_t walked = 0;
  std::string at = ".1.3.6.1";
  Answer answer;
  for (; (answer = GetNext(ups0_, at)).answered && answer.error_status == 0; ++walked) {
    ASSERT_LT(walked, std::size(kObjects));
    const Variable &variable = answer.Only();
    EXPECT_EQ(variable.oid, kObjects[walked].oid);
    EXPECT_EQ(variable.type, kObjects[walked].type) << variable.oid;
    EXPECT_EQ(simulator_->Value("ups0", variable.oid), AsWritten(variable).value) << variable.oid;
    at = variable.oid;
  }
  EXPECT_EQ(walked, std::size(kObjects));
  EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME);
  EXPECT_EQ(answer.error_index, 1);
}

// A card takes a SET of a writable object back to its own value; a read-only one is "not
// available for set", noSuchName in v1.
TEST_F(ObjectsTest, SetAnswersFollowTheMibAccessOfEveryObject) {
  for (const Expected &object : kObjects) {
    Answer answer = Set(ups0_, {AsWritten(Read(ups0_, object.oid))});
    ASSERT_TRUE(answer.answered);
    EXPECT_EQ(answer.error_status, object.writable ? SNMP_ERR_NOERROR : SNMP_ERR_NOSUCHNAME)
        << object.oid;
  }
}

TEST_F(ObjectsTest, DefaultsLookLikeASmartUpsOnLine) {
  EXPECT_EQ(Read(ups0_, oid::kModel).octets.rfind("Smart-UPS", 0), 0u);
  EXPECT_NE(Read(ups0_, oid::kSysDescr).octets.find("MB:v3.6.1"), std::string::npos);
  EXPECT_EQ(Read(ups0_, oid::kIdentName).octets, "ups0");
  std::string serial = Read(ups0_, oid::kSerialNumber).octets;
  EXPECT_TRUE(std::regex_match(serial, std::regex(R"(AS0812\d{6}    )"))) << serial;
  EXPECT_NE(Read(CardTarget(*simulator_, "ups1"), oid::kSerialNumber).octets, serial);
  std::string flags = Read(ups0_, oid::kOutputState).octets;
  ASSERT_EQ(flags.size(), 64u);
  EXPECT_EQ(flags.find_first_not_of("01"), std::string::npos);
  EXPECT_EQ(flags.substr(0, 6), "000101");  // on line, serial communication established
}

}  // namespace
}  // namespace upssim::testing
