// The start-up wait and the UPS identification against simulated cards: the SET journal, the
// requests each card received and the record file are the oracle.
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
// What the identification writes from kParameters; the start-up wait writes the last nine.
// clang-format off
const std::vector<Set> kConfigured = {
    {mib::upsAdvConfigShutoffDelay, "9000"},       {mib::upsAdvConfigReturnDelay, "500"},
    {mib::upsAdvConfigHighTransferVolt, "110"},    {mib::upsAdvConfigLowTransferVolt, "90"},
    {mib::upsAdvConfigAlarm, "2"},                 {mib::upsAdvConfigAlarmTimer, "3000"},
    {mib::upsAdvConfigMinReturnCapacity, "15"},    {mib::upsAdvConfigSensitivity, "3"},
    {mib::upsAdvConfigLowBatteryRunTime, "12000"}, {mib::upsAdvConfigBattExhaustThresh, "6000"},
    {mib::upsAdvTestDiagnosticSchedule, "4"}};
// clang-format on

// group, then the first n of kConfigured.
std::vector<Set> Then(std::vector<Set> group, std::size_t n) {
  group.insert(group.end(), kConfigured.begin(), kConfigured.begin() + n);
  return group;
}

class IdentifyTest : public CardTest {
 protected:
  void SetUp() override {
    UseUtc();
    StartCards({"a", "b", "r0", "r1", "r2", "r3", "r4", "r5", "r6", "r7", "r8"});
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
  }
  std::vector<Set> Sets(const std::string &card) const {
    std::vector<Set> sets;
    for (const upssim::JournalEntry &entry : Applied())
      if (entry.card == card) sets.emplace_back(entry.oid, entry.value);
    return sets;
  }
  bool Logged(const std::string &start, unsigned code = 0) const {
    for (const LogRecord &record : LibraryLog(home_))
      if (record.message.rfind(start, 0) == 0 && record.code == code) return true;
    return false;
  }
  // One letter per report line of record 1000: C read from the card, - placeholders.
  std::string Reports() const {
    std::string lines;
    for (const std::string &record : RingRecords(home_.data("UPS/UPS1000.LOG"), 101))
      lines += record.find(kNoReading) == 20 ? '-' : 'C';
    return lines;
  }
  // Record 1000 for the card, with the section "ups1" of ac_e_net.apc.
  void Register(const std::string &section = kParameters, const std::string &card = "a") {
    PutFile(home_.data("UPS/UPSinfo.ini"), std::string("[1000]\nIP=") + Ip(card) + "\npath=ups1\n");
    PutFile(home_.data("ac_e_net.apc"), "[ups1]\n" + section);
    std::remove(home_.data("UPS/UPS1000.LOG").c_str());
    ClearLog();
  }
  std::string Info() const { return FileText(home_.data("UPS/UPSinfo.ini")); }

  FakeClock clock_{kSomeTime};
};

TEST_F(IdentifyTest, StartUpWaitWritesToEveryConfiguredCardOnceOneAnswers) {
  GetRetryMax = 5, SetRetryMax = 3;
  const std::vector<std::function<void()>> rows = {
      [] {},  // no UPS configured: not a packet
      [&] { std::strcpy(UpsIp[3], Ip("a")), sim_->Silent("a", true); },
      [&] { sim_->Silent("a", false), sim_->Set("a", mib::upsCommStatus, 'i', "2"); },  // noComm
  };
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (int(&words)[9] : ups_X1) words[0] = 0x18, words[1] = 0x7f;
    long before = sim_->Requests("a");
    clock_.sleeps.clear();
    rows[row]();
    EXPECT_EQ(WaitDromStartUp(0), 0);
    // A silent card is given up after its first time-out; a card that answers the wrong
    // status is tried GetRetryMax times.
    long tries = row == 0 ? 0 : row == 1 ? 1 : 5;
    EXPECT_EQ(sim_->Requests("a") - before, tries * (sim_->ClientRetries() + 1)) << row;
    EXPECT_EQ(clock_.sleeps, std::vector<unsigned long>(row == 2 ? 5 : 0, 1000000)) << row;
    for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot)
      EXPECT_EQ(ups_X1[slot][0] | ups_X1[slot][1], slot == 3 && row > 0 ? 0 : 0x80) << slot;
  }
  EXPECT_TRUE(Applied().empty() && Logged(" xxxx UPS SNMP is not connection xxxx"));

  // Card b answers; a still does not, and is written all the same.
  std::strcpy(UpsIp[7], Ip("b"));
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

TEST_F(IdentifyTest, NewUpsIsConfiguredThenRecognisedThenReplaced) {
  Register();
  const std::string ip = Ip("a"), card = sim_->Value("a", mib::sysDescr) + "]";
  const std::string serial = sim_->Value("a", mib::upsAdvIdentSerialNumber) + "]]";
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(Sets("a"), kConfigured);
  const std::string head = "[1000]\nIP=" + ip + "\npath=ups1\nDATE_card=" + kWhen +
                           "\nOLD_CardInfo=<default>\nCardInfo=" + card + "\nCardMIBrev=30601\n";
  const std::string first = head + "OLD_UPS_type=<default>\nOLD_UPS_Sno.=<default>\n" +
                            "UPS_type=Smart-UPS 1500]]\nUPS_Sno.=" + serial + "\nDATE=" + kWhen +
                            "\n";
  EXPECT_EQ(Info(), first);
  EXPECT_TRUE(Logged(" * New card [" + ip + "]:" + card.substr(0, 45), 30601));
  EXPECT_TRUE(Logged(" [UPS1000:" + ip + "] ConfigData Set:OK================"));

  long before = sim_->Requests("a");
  UPSCheckSnmpRequest(1000, 0);  // the same UPS: three identity reads and the report
  EXPECT_EQ(sim_->Requests("a") - before, 19 * (sim_->ClientRetries() + 1));
  EXPECT_EQ(Info(), first);

  sim_->Set("a", mib::upsAdvIdentSerialNumber, 's', "NEW0001");
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_EQ(Sets("a"), Then(kConfigured, 11));
  EXPECT_EQ(Info(), head + "OLD_UPS_type=Smart-UPS 1500]]\nOLD_UPS_Sno.=" + serial +
                        "\nUPS_type=Smart-UPS 1500]]\nUPS_Sno.=NEW0001]]\nDATE=" + kWhen +
                        "\nOLD_DATE=" + kWhen + "\n");
  EXPECT_EQ(Reports(), "CCC");
  // A card's text is recorded up to its first line break: no line of the card's reaches the file.
  sim_->Set("a", mib::upsAdvIdentSerialNumber, 's', "NEW0002\r\n[1000]\nIP=10.0.0.9");
  UPSCheckSnmpRequest(1000, 0);
  EXPECT_NE(Info().find("\nUPS_Sno.=NEW0002]]\nDATE="), std::string::npos);
  EXPECT_EQ(Info().find("10.0.0.9"), std::string::npos);
}

// One call each, with a card of its own and a fresh record.
TEST_F(IdentifyTest, GroupSettingsGapsAndBadInput) {
  const std::string syncing = std::string(31, '0') + "1" + std::string(32, '0');
  const std::string member = std::string("SCGonoff=1\nSCG_MGN=7\n") + kParameters;
  const std::string model = "Smart-UPS 1500]]", kDefault = "<default>";
  const Set mgn{mib::upsSCGMembershipGroupNumber, "7"}, act{mib::upsSCGActiveMembershipStatus, "1"};
  struct Row {
    const char *card;
    std::string section;  // of ac_e_net.apc
    std::string command;  // to the simulator first
    int index, flag;
    std::vector<Set> sets;
    std::string model, reports;  // recorded; as Reports() gives them
    const char *logged;          // a line the log begins with, or nullptr
  };
  // clang-format off
  const Row rows[] = {
      {"r0", member + "SCG_MIP=239.1.1.1\n", "set r0 upsSCGMultiCastIP a 224.0.0.5", 1000, 0,
       Then({{mib::upsSCGMultiCastIP, "224.0.0.100"}, mgn, act}, 11), model, "C", " [UPS1000:"},
      {"r1", member + "SCG_MIP=224.1.2.3  \n", "set r1 upsSCGMultiCastIP a 224.1.2.3", 1000, 0,
       Then({mgn, act}, 11), model, "C", nullptr},
      {"r2", "ShutoffDelay=90\nReturnDelay=5\nHighTransferVolt=110\n", "", 1000, 0, Then({}, 3),
       kDefault, "C", nullptr},
      {"r3", kParameters, "", 1000, 1, {}, kDefault, "-", nullptr},
      {"r4", member, "set r4 upsBasicStateOutputState s " + syncing, 1000, 0, {}, kDefault, "",
       "UPSCheckSnmpRequest(OutputState)["},
      {"r5", "ShutoffDelay=soon\n" + std::string(kParameters), "", 1000, 0, {}, kDefault, "C",
       " [UPS1000:"},
      {"r6", kParameters, "oversize r6 upsBasicIdentModel 300", 1000, 0, Then({}, 11),
       "Smart-UPS 1500" + std::string(114, 'X') + "]]", "C", nullptr},
      {"r7", kParameters, "", 999, 0, {}, kDefault, "", "UPSCheckSnmpRequest(999)"},
      // Not a member and the state cannot be read: no parameters, deliberately.
      {"r8", kParameters, "error r8 upsBasicStateOutputState get genErr", 1000, 0, {}, kDefault,
       "C", nullptr},
  };
  // clang-format on
  for (const Row &row : rows) {
    SCOPED_TRACE(row.card);
    Register(row.section, row.card);
    if (!row.command.empty()) sim_->Command(row.command);
    UPSCheckSnmpRequest(row.index, row.flag);
    EXPECT_EQ(Sets(row.card), row.sets);
    char recorded[251];
    ReadConfigFileEx("UPS/UPSinfo.ini", "1000", "UPS_type", recorded);
    EXPECT_EQ(recorded, row.model);
    EXPECT_EQ(Reports(), row.reports);
    EXPECT_TRUE(row.logged == nullptr || Logged(row.logged)) << row.logged;
    EXPECT_FALSE(Logged("UPSCheckSnmpRequest error"));
  }
}

}  // namespace
}  // namespace snmplumi::testing
