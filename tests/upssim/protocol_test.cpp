// SNMP v1 semantics as a card answers them: error statuses, error indexes, communities.
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "test_cards.h"

namespace upssim::testing {
namespace {

constexpr char kUnknown[] = ".1.3.6.1.4.1.318.1.1.1.4.1.9.0";

std::unique_ptr<Simulator> StartOpenAndClosedCards() {
  CardOptions open, closed;
  open.name = "ups0";
  closed.name = "ups1";
  closed.community = "private";
  return Simulator::Start({open, closed});
}

class ProtocolTest : public SimulatorTest {
 protected:
  ProtocolTest() : SimulatorTest(StartOpenAndClosedCards()) {}
  Target ups0_ = CardTarget(*simulator_, "ups0");
};

TEST_F(ProtocolTest, UnknownObjectAnswersNoSuchNameAtItsIndexWithTheRequestEchoed) {
  Answer answer = Get(ups0_, {oid::kCommStatus, kUnknown, oid::kModel});
  ASSERT_TRUE(answer.answered);
  EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME);
  EXPECT_EQ(answer.error_index, 2);
  ASSERT_EQ(answer.variables.size(), 3u);
  EXPECT_EQ(answer.variables[1].oid, kUnknown);
  for (const Variable &variable : answer.variables) EXPECT_EQ(variable.type, ASN_NULL);
}

TEST_F(ProtocolTest, SetOfReadOnlyObjectAnswersNoSuchNameAndChangesNothing) {
  for (auto [object, type, value] :
       {std::tuple{oid::kSysDescr, 's', "hacked"}, std::tuple{oid::kOutputStatus, 'i', "7"},
        std::tuple{oid::kInputVoltage, 'u', "0"}}) {
    Answer answer = Set(ups0_, {{object, type, value}});
    ASSERT_TRUE(answer.answered);
    EXPECT_EQ(answer.error_status, SNMP_ERR_NOSUCHNAME) << object;
    EXPECT_EQ(answer.error_index, 1);
  }
  EXPECT_EQ(Read(ups0_, oid::kOutputStatus).number, 2);
  EXPECT_EQ(Read(ups0_, oid::kInputVoltage).number, 100);
}

TEST_F(ProtocolTest, SetWithWrongTypeOrUnknownEnumerationValueAnswersBadValue) {
  for (Write write : {Write{oid::kShutoffDelay, 'i', "9000"}, Write{oid::kSensitivity, 'i', "9"},
                      Write{oid::kUpsOff, 'i', "0"}, Write{oid::kHighTransferVolt, 's', "110"},
                      Write{oid::kScgMultiCastIp, 's', "224.0.0.1"}}) {
    Answer answer = Set(ups0_, {write});
    ASSERT_TRUE(answer.answered);
    EXPECT_EQ(answer.error_status, SNMP_ERR_BADVALUE) << write.oid << " " << write.type;
  }
  EXPECT_EQ(Read(ups0_, oid::kShutoffDelay).number, 9000);
  EXPECT_EQ(Read(ups0_, oid::kOutputStatus).number, 2);
}

TEST_F(ProtocolTest, SetOfSeveralVariablesIsAllOrNothing) {
  Answer refused =
      Set(ups0_, {{oid::kHighTransferVolt, 'i', "110"}, {oid::kSensitivity, 'i', "9"}});
  EXPECT_EQ(refused.error_status, SNMP_ERR_BADVALUE);
  EXPECT_EQ(refused.error_index, 2);
  EXPECT_EQ(Read(ups0_, oid::kHighTransferVolt).number, 108);

  Answer accepted =
      Set(ups0_, {{oid::kHighTransferVolt, 'i', "110"}, {oid::kSensitivity, 'i', "2"}});
  EXPECT_EQ(accepted.error_status, SNMP_ERR_NOERROR);
  ASSERT_EQ(accepted.variables.size(), 2u);
  EXPECT_EQ(accepted.variables[0].number, 110);
  EXPECT_EQ(Read(ups0_, oid::kHighTransferVolt).number, 110);
  EXPECT_EQ(Read(ups0_, oid::kSensitivity).number, 2);
}

TEST_F(ProtocolTest, ConfigurationWritesAreKeptAndReadBack) {
  const Write writes[] = {
      {oid::kIdentName, 's', "UPS_IDEN"},
      {oid::kConfigAlarm, 'i', "3"},
      {oid::kShutoffDelay, 't', "12300"},
      {oid::kScgMultiCastIp, 'a', "224.0.0.7"},
      {".1.3.6.1.4.1.318.1.1.1.10.1.1.0", 'i', "5"},      // upsSCGMembershipGroupNumber
      {".1.3.6.1.4.1.318.1.1.1.7.2.1.0", 'i', "3"},       // upsAdvTestDiagnosticSchedule
      {".1.3.6.1.4.1.318.1.1.1.5.2.14.0", 't', "30000"},  // upsAdvConfigBattExhaustThresh
  };
  for (const Write &write : writes) {
    ASSERT_EQ(Set(ups0_, {write}).error_status, SNMP_ERR_NOERROR) << write.oid;
  }
  EXPECT_EQ(Read(ups0_, oid::kIdentName).octets, "UPS_IDEN");
  EXPECT_EQ(Read(ups0_, oid::kConfigAlarm).number, 3);
  EXPECT_EQ(Read(ups0_, oid::kShutoffDelay).number, 12300);
  EXPECT_EQ(Read(ups0_, oid::kScgMultiCastIp).octets, std::string("\xe0\x00\x00\x07", 4));
  EXPECT_EQ(Read(ups0_, ".1.3.6.1.4.1.318.1.1.1.10.1.1.0").number, 5);
  EXPECT_EQ(simulator_->Value("ups0", "upsAdvTestDiagnosticSchedule"), "3");
  EXPECT_EQ(simulator_->Value("ups0", "upsAdvConfigBattExhaustThresh"), "30000");
  // The other card keeps its own state.
  EXPECT_EQ(simulator_->Value("ups1", "upsAdvConfigShutoffDelay"), "9000");
}

TEST_F(ProtocolTest, WrongCommunityGetsNoAnswer) {
  Target ups1 = CardTarget(*simulator_, "ups1");
  EXPECT_FALSE(Get(ups1, {oid::kCommStatus}).answered);
  EXPECT_FALSE(Set(ups1, {{oid::kConfigAlarm, 'i', "3"}}).answered);
  ups1.community = "private";
  EXPECT_EQ(Read(ups1, oid::kConfigAlarm).number, 1);
  Target wrong = ups0_;
  wrong.community = "private";
  EXPECT_FALSE(Get(wrong, {oid::kCommStatus}).answered);
}

}  // namespace
}  // namespace upssim::testing
