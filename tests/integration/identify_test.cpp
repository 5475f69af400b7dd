#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

using Set = std::pair<std::string, std::string>;      // object, value
constexpr char kWhen[] = "Sun Nov 22 23:28:00 2026";  // kSomeTime in UTC
constexpr char kParameters[] =
    "ShutoffDelay=90\nReturnDelay=5\nHighTransferVolt=110\nLowTransferVolt=90\nConfigAlarm=2\n"
    "ConfigAlarmTimer=30\nMinReturnCapacity=15\nSensitivity=3\nLowBatteryRunTime=120\n"
    "BattExhaustThresh=60\nTestDiagnosticSchedule=4\n";
// clang-format off
const std::vector<Set> kConfigured = {
    {mib::upsAdvConfigShutoffDelay, "9000"},       {mib::upsAdvConfigReturnDelay, "500"},
    {mib::upsAdvConfigHighTransferVolt, "110"},    {mib::upsAdvConfigLowTransferVolt, "90"},
    {mib::upsAdvConfigAlarm, "2"},                 {mib::upsAdvConfigAlarmTimer, "3000"},
    {mib::upsAdvConfigMinReturnCapacity, "15"},    {mib::upsAdvConfigSensitivity, "3"},
    {mib::upsAdvConfigLowBatteryRunTime, "12000"}, {mib::upsAdvConfigBattExhaustThresh, "6000"},
    {mib::upsAdvTestDiagnosticSchedule, "4"}};
// clang-format on

class IdentifyTest : public CardTest {
 protected:
  void SetUp() override {
    UseUtc();
    StartCards({"a", "b"});
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  }
  std::vector<Set> Sets(const std::string &card = "a") const {
    std::vector<Set> sets;
    for (const upssim::JournalEntry &entry : Applied())
      if (entry.card == card) sets.emplace_back(entry.oid, entry.value);
    return sets;
  }
  std::string Info() const { return FileText(home_.data("UPS/UPSinfo.ini")); }

  FakeClock clock_{kSomeTime};
};

TEST_F(IdentifyTest, NewUpsIsConfiguredThenRecognisedThenReplaced) {
  const std::string ip = Ip("a"), card = sim_->Value("a", mib::sysDescr) + "]";
  const std::string serial = sim_->Value("a", mib::upsAdvIdentSerialNumber) + "]]";
  PutFile(home_.data("UPS/UPSinfo.ini"), "[1000]\nIP=" + ip + "\npath=ups1\n");
  PutFile(home_.data("ac_e_net.apc"), std::string("[ups1]\n") + kParameters);
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(Sets(), kConfigured);
  const std::string head = "[1000]\nIP=" + ip + "\npath=ups1\nDATE_card=" + kWhen +
                           "\nOLD_CardInfo=<default>\nCardInfo=" + card + "\nCardMIBrev=30601\n";
  const std::string first = head + "OLD_UPS_type=<default>\nOLD_UPS_Sno.=<default>\n" +
                            "UPS_type=Smart-UPS 1500]]\nUPS_Sno.=" + serial + "\nDATE=" + kWhen +
                            "\n";
  EXPECT_EQ(Info(), first);
  EXPECT_EQ(Logged(" * New card [" + ip + "]:" + card.substr(0, 45), 30601), 1);

  long before = sim_->Requests("a");
  UPSCheckSnmpRequest(1000, 0);  // the same UPS: three identity reads and the report
  EXPECT_EQ(sim_->Requests("a") - before, 19 * (sim_->ClientRetries() + 1));
  EXPECT_EQ(Info(), first);

  // A new serial number is a new UPS; the card's text is recorded up to its first line break.
  // Joining a group, it gets the default address for one that does not begin with 224.
  sim_->Set("a", mib::upsAdvIdentSerialNumber, 's', "NEW0001\r\n[1000]\nIP=10.0.0.9");
  sim_->Set("a", mib::upsSCGMultiCastIP, 'a', "224.9.9.9");
  PutFile(home_.data("ac_e_net.apc"),
          std::string("[ups1]\nSCGonoff=1\nSCG_MGN=3\nSCG_MIP=239.1.1.1\n") + kParameters);
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(sim_->Value("a", mib::upsSCGMultiCastIP), "224.0.0.100");
  EXPECT_EQ(Info(), head + "OLD_UPS_type=Smart-UPS 1500]]\nOLD_UPS_Sno.=" + serial +
                        "\nUPS_type=Smart-UPS 1500]]\nUPS_Sno.=NEW0001]]\nDATE=" + kWhen +
                        "\nOLD_DATE=" + kWhen + "\n");
}

// Nothing configured costs no packet; a silent card is given up after its first time-out, one
// that answers the wrong status after GetRetryMax tries. Once one card answers, every configured
// card gets the parameters, each SET retried by its own rule.
TEST_F(IdentifyTest, StartUpWaitWritesToEveryConfiguredCardOnceOneAnswers) {
  GetRetryMax = 5, SetRetryMax = 3;
  const std::vector<std::function<void()>> rows = {
      [] {}, [&] { std::strcpy(UpsIp[3], Ip("a")), sim_->Silent("a", true); },
      [&] { sim_->Silent("a", false), sim_->Set("a", mib::upsCommStatus, 'i', "2"); },  // noComm
  };
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (int(&words)[9] : ups_X1) words[0] = 0x18, words[1] = 0x7f;
    long before = sim_->Requests("a");
    clock_.sleeps.clear();
    rows[row]();
    EXPECT_EQ(WaitDromStartUp(0), 0);
    long tries = row == 0 ? 0 : row == 1 ? 1 : 5;
    EXPECT_EQ(sim_->Requests("a") - before, tries * (sim_->ClientRetries() + 1)) << row;
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row == 2 ? 5 : 0, 1000000)) << row;
    for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot)
      EXPECT_EQ(ups_X1[slot][0] | ups_X1[slot][1], slot == 3 && row > 0 ? 0 : 0x80) << slot;
  }
  EXPECT_TRUE(Applied().empty() && Logged(" xxxx UPS SNMP is not connection xxxx", 0));

  std::strcpy(UpsIp[7], Ip("b"));  // b answers; a still does not, and is written all the same
  sim_->InjectError("a", mib::upsAdvConfigHighTransferVolt, upssim::Op::kSet, 5);
  sim_->InjectError("a", mib::upsAdvConfigLowTransferVolt, upssim::Op::kSet, 3);
  upsAdvConfigHighTransferVolt = 110, upsAdvConfigLowTransferVolt = 90, upsAdvConfigAlarm = 2;
  upsAdvConfigAlarmTimer = 30, upsAdvConfigMinReturnCapacity = 15, upsAdvConfigSensitivity = 3;
  upsAdvConfigLowBatteryRunTime = 120, upsAdvConfigBattExhaustThresh = 60;
  upsAdvTestDiagnosticSchedule = 4;
  clock_.sleeps.clear();
  EXPECT_EQ(WaitDromStartUp(0), 1);
  const std::vector<Set> pushed(kConfigured.begin() + 2, kConfigured.end());
  EXPECT_EQ(Sets("b"), pushed);
  std::vector<Set> refused = {pushed[0], pushed[0]};  // genErr: SetRetryMax tries; badValue: one
  refused.insert(refused.end(), pushed.begin(), pushed.end());
  EXPECT_EQ(Sets("a"), refused);
  EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(7, 1000000));  // 5 checks of a, 2 retries
  EXPECT_TRUE(Logged("  UPS parameter set error", 2) && Logged("  UPS parameter set error", 3));
}

}  // namespace
}  // namespace snmplumi::testing
