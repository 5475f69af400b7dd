#include "snmp/requests.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "card_test.h"
#include "powernet.h"

namespace snmplumi::testing {
namespace {

using upssim::Op;

constexpr int kNoSuchName = 2;
constexpr int kBadValue = 3;
constexpr int kReadOnly = 4;
constexpr int kGenErr = 5;

class RequestsTest : public CardTest {
 protected:
  void SetUp() override { StartCards({"ups"}); }

  int32_t GetInt(const char *oid_text, char type, DWORD expected = 0) {
    int32_t value = -1;
    EXPECT_EQ(SnmpGetR(Ip("ups"), oid_text, type, reinterpret_cast<char *>(&value), 0), expected);
    return value;
  }
};

TEST_F(RequestsTest, GetCopiesByTypeLetter) {
  sim_->Set("ups", mib::upsBasicOutputStatus, 'i', "3");
  sim_->Set("ups", mib::upsAdvBatteryCapacity, 'u', "87");
  sim_->Set("ups", mib::upsAdvBatteryRunTimeRemaining, 't', "123456");
  sim_->Set("ups", mib::upsSCGMultiCastIP, 'a', "239.1.2.3");
  sim_->Set("ups", mib::upsBasicIdentModel, 's', "Smart-UPS 750");

  EXPECT_EQ(GetInt(mib::upsBasicOutputStatus, 'i'), 3);
  EXPECT_EQ(GetInt(mib::upsAdvBatteryCapacity, 'u'), 87);
  EXPECT_EQ(GetInt(mib::upsAdvBatteryRunTimeRemaining, 't'), 123456);
  uint8_t address[4];
  int32_t packed = GetInt(mib::upsSCGMultiCastIP, 'a');
  std::memcpy(address, &packed, 4);
  EXPECT_EQ(std::vector<int>(address, address + 4), (std::vector<int>{239, 1, 2, 3}));

  // Strings arrive without a terminator; a longer earlier value keeps its tail.
  for (char letter : {'s', 'x', 'd'}) {
    char text[64];
    std::strcpy(text, "0123456789ABCDEFGHIJ");
    EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, letter, text, 0), 0u);
    EXPECT_STREQ(text, "Smart-UPS 750DEFGHIJ") << letter;
  }
  char untouched[8] = "keep";
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, 'n', untouched, 0), 0u);
  EXPECT_STREQ(untouched, "keep");
  char raw[64] = {};
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, 'o', raw, 0), 0u);
  EXPECT_STREQ(raw, "Smart-UPS 750") << "'o' copies the value's bytes, whatever they are";
  EXPECT_TRUE(LogMessages(home_).empty()) << "quiet GETs log nothing";
}

TEST_F(RequestsTest, GetLogsTheExchangeWhenAsked) {
  sim_->Set("ups", mib::upsBasicOutputStatus, 'i', "2");
  int32_t value = 0;
  EXPECT_EQ(
      SnmpGetR(Ip("ups"), mib::upsBasicOutputStatus, 'i', reinterpret_cast<char *>(&value), 1), 0u);
  char model[64] = {};
  sim_->Set("ups", mib::upsBasicIdentModel, 's', "Smart-UPS 1500");
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, 's', model, 1), 0u);
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, 's', model, 2), 0u);
  std::string get = std::string(" get [") + Ip("ups") + "][";
  EXPECT_EQ(LogMessages(home_), (std::vector<std::string>{
                                    get + mib::upsBasicOutputStatus + "]",
                                    "get = 2 (type=i)",
                                    get + mib::upsBasicIdentModel + "]",
                                    "get = Smart-UPS 1500 (type=s, x, d)",
                                }));
}

TEST_F(RequestsTest, GetWithUnknownLetterCopiesNothingAndReturnsOne) {
  char value[8] = "keep";
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicOutputStatus, 'b', value, 0), 1u);
  EXPECT_STREQ(value, "keep");
  auto log = LibraryLog(home_);
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0].message,
            std::string(" get [") + Ip("ups") + "][" + mib::upsBasicOutputStatus + "]");
  EXPECT_EQ(log[1], (LogRecord{'b', " get = \\?\\?(type=\\?:[b])"}));
}

TEST_F(RequestsTest, SetSendsEachTypeLetter) {
  int32_t volts = 127;
  uint32_t ticks = 12000;
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvConfigHighTransferVolt, 'i',
                     reinterpret_cast<const char *>(&volts)),
            0u);
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvConfigLowBatteryRunTime, 't',
                     reinterpret_cast<const char *>(&ticks)),
            0u);
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsBasicIdentName, 's', "Server room"), 0u);
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsSCGMultiCastIP, 'a', "224.0.0.100"), 0u);
  // net-snmp turns the text into a Gauge32, which this INTEGER object refuses, as a card does.
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvConfigLowTransferVolt, 'u', "90"), UPS_E_INVALID_PARAM);

  EXPECT_EQ(sim_->Value("ups", mib::upsAdvConfigHighTransferVolt), "127");
  EXPECT_EQ(sim_->Value("ups", mib::upsAdvConfigLowBatteryRunTime), "12000");
  EXPECT_EQ(sim_->Value("ups", mib::upsBasicIdentName), "Server room");
  EXPECT_EQ(sim_->Value("ups", mib::upsSCGMultiCastIP), "224.0.0.100");
  auto journal = sim_->Journal();
  ASSERT_EQ(journal.size(), 5u);
  EXPECT_EQ(journal[0].type, 'i');
  EXPECT_EQ(journal[1].type, 't');
  EXPECT_EQ(journal[2].type, 's');
  EXPECT_EQ(journal[3].type, 'a');
  EXPECT_EQ(journal[4].oid, mib::upsAdvConfigLowTransferVolt);
  EXPECT_EQ(journal[4].type, 'u');
  EXPECT_EQ(journal[4].value, "90");

  // The name write is the status queries' routine write test: not logged outside debug mode.
  std::vector<std::string> expected = {
      std::string(" Set[0] names=[") + mib::upsAdvConfigHighTransferVolt + "] types=[i] val=[127]",
      std::string(" Set[0] names=[") + mib::upsAdvConfigLowBatteryRunTime +
          "] types=[t] val=[12000]",
      "SnmpSetR: unknown type? : (a)",
      std::string(" Set[0] names=[") + mib::upsSCGMultiCastIP + "] types=[a] val=[224.0.0.100]",
      "SnmpSetR: unknown type? : (u)",
      std::string(" Set[0] names=[") + mib::upsAdvConfigLowTransferVolt + "] types=[u] val=[90]",
      "[s]SNMP Error: SNMP_ERR_BADVALUE, errorIndex=3",
  };
  EXPECT_EQ(LogMessages(home_), expected);
}

TEST_F(RequestsTest, SetErrorStatusesMapToResults) {
  int32_t value = 1;
  const char *raw = reinterpret_cast<const char *>(&value);
  const char *oid_text = mib::upsAdvControlUpsOff;
  const std::pair<int, DWORD> cases[] = {
      {kBadValue, UPS_E_INVALID_PARAM},
      {kNoSuchName, UPS_E_CANT_ACCESS},
      {kReadOnly, UPS_E_CANT_ACCESS},
      {kGenErr, UPS_E_CANT_ACCESS},
  };
  for (const auto &[status, result] : cases) {
    sim_->InjectError("ups", oid_text, Op::kSet, status);
    EXPECT_EQ(SnmpSetR(Ip("ups"), oid_text, 'i', raw), result) << status;
    sim_->ClearErrors("ups");
  }
  std::vector<std::string> errors;
  for (const std::string &message : LogMessages(home_)) {
    if (message.rfind("[s]", 0) == 0) errors.push_back(message);
  }
  EXPECT_EQ(errors, (std::vector<std::string>{
                        "[s]SNMP Error: SNMP_ERR_BADVALUE, errorIndex=3",
                        "[s]SNMP Error: SNMP_ERR_NOSUCHNAME, errorIndex=2",
                        "[s]SNMP Error: SNMP_ERR_READONLY, errorIndex=4",
                        "[s]SNMP Error: SNMP_ERR_GENERR, errorIndex=5",
                    }));
  // A read-only object refuses a SET the way a v1 card does.
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvBatteryCapacity, 'i', raw), UPS_E_CANT_ACCESS);
}

TEST_F(RequestsTest, GetErrorStatusIsLoggedInDebugModeOnly) {
  sim_->InjectError("ups", mib::upsAdvOutputVoltage, Op::kGet, kNoSuchName);
  EXPECT_EQ(GetInt(mib::upsAdvOutputVoltage, 'u', UPS_E_CANT_ACCESS), -1);
  EXPECT_TRUE(LogMessages(home_).empty());
  g_bDebugMode = 1;
  EXPECT_EQ(GetInt(mib::upsAdvOutputVoltage, 'u', UPS_E_CANT_ACCESS), -1);
  auto messages = LogMessages(home_);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[1].rfind("  error: (noSuchName)", 0), 0u) << messages[1];
}

TEST_F(RequestsTest, SilentCardIsNoServer) {
  sim_->Silent("ups", true);
  int32_t value = 7;
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsCommStatus, 'i', reinterpret_cast<char *>(&value), 1),
            UPS_E_NO_SERVER);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(
      SnmpSetR(Ip("ups"), mib::upsAdvControlUpsOff, 'i', reinterpret_cast<const char *>(&value)),
      UPS_E_NO_SERVER);
  auto messages = LogMessages(home_);
  ASSERT_EQ(messages.size(), 4u);
  std::string timeout = std::string("No Response from ") + Ip("ups") + " : ";
  EXPECT_EQ(messages[1].rfind(" Get Timeout: " + timeout, 0), 0u) << messages[1];
  EXPECT_EQ(messages[3].rfind("  Timeout: " + timeout, 0), 0u) << messages[3];
}

TEST_F(RequestsTest, SessionsFollowCardAndCommunity) {
  GetInt(mib::upsCommStatus, 'i');
  GetInt(mib::upsCommStatus, 'i');
  EXPECT_STREQ(g_session_tbl[0].IP, Ip("ups"));
  EXPECT_STREQ(g_session_tbl[1].IP, "") << "the second request reused the session";

  std::strcpy(UpsCommunity, "private");  // a card ignores a wrong community
  EXPECT_EQ(GetInt(mib::upsCommStatus, 'i', UPS_E_NO_SERVER), -1);
  EXPECT_STREQ(g_session_tbl[1].IP, Ip("ups"));
  EXPECT_STREQ(g_session_tbl[1].UPSCommunity, "private");
}

TEST_F(RequestsTest, UnbuildableRequestsAreNotSent) {
  g_bAC_MIBConvertMode = 1;
  int32_t value = 1;
  const char *raw = reinterpret_cast<const char *>(&value);
  EXPECT_EQ(SnmpSetR(Ip("ups"), "1.3.6.1.4.1.318.1.1.1.6.2.1.0", 'i', raw), UPS_E_NO_SERVER);
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvControlUpsOff, 2, raw), UPS_E_NO_SERVER);
  char text[8];
  EXPECT_EQ(SnmpGetR(Ip("ups"), "1.3.6", 's', text, 1), UPS_E_NO_SERVER);
  EXPECT_TRUE(sim_->Journal().empty());

  auto log = LibraryLog(home_);
  ASSERT_EQ(log.size(), 8u);
  EXPECT_EQ(log[1], (LogRecord{0, "  xp_snmp_parse_oid error!"}));  // padding trimmed
  EXPECT_EQ(log[2].code, 1u);
  EXPECT_EQ(log[2].message.rfind(" snmp create err:", 0), 0u);
  EXPECT_EQ(log[3], (LogRecord{0, "SnmpSetR: unknown type? : (\x02)"}));
  const unsigned kVarTypeError = static_cast<unsigned>(-61);  // SNMPERR_VAR_TYPE
  EXPECT_EQ(log[5], (LogRecord{kVarTypeError, "  snmp_add_var error! <SNMPERR_VAR_TYPE>"}));
  EXPECT_EQ(log[7].message.rfind(" Get:create err:", 0), 0u);
}

TEST_F(RequestsTest, OversizeStringIsCutAtTheBuffer) {
  sim_->Oversize("ups", mib::upsBasicIdentModel, 1000);
  char buffer[300];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicIdentModel, 's', buffer, 0), 0u);
  EXPECT_NE(buffer[254], '#');
  EXPECT_EQ(buffer[255], '#') << "the exported call copies at most 255 bytes";

  char small[140];
  std::memset(small, '#', sizeof small);
  EXPECT_EQ(GetValue(Ip("ups"), mib::upsBasicIdentModel, 's', small, 130, 0), 0u);
  EXPECT_NE(small[129], '#');
  EXPECT_EQ(small[130], '#');
}

TEST_F(RequestsTest, SlotCallsAddressTheUpsTable) {
  std::strcpy(UpsIp[3], Ip("ups"));
  sim_->Set("ups", mib::upsAdvOutputLoad, 'u', "42");
  int32_t load = 0;
  EXPECT_EQ(SnmpGet(mib::upsAdvOutputLoad, 'u', reinterpret_cast<char *>(&load), 0, 3), 0u);
  EXPECT_EQ(load, 42);
  int32_t code = 2;
  EXPECT_EQ(SnmpSet(mib::upsAdvControlTurnOnUPS, 'i', reinterpret_cast<const char *>(&code), 3),
            0u);
  ASSERT_EQ(sim_->Journal().size(), 1u);
  EXPECT_EQ(sim_->Journal()[0].oid, mib::upsAdvControlTurnOnUPS);
}

class ConcurrentRequestsTest : public CardTest {
 protected:
  void SetUp() override { StartCards({"ups0", "ups1", "ups2", "ups3", "silent"}); }
};

TEST_F(ConcurrentRequestsTest, ConcurrentRequestsToManyCardsStayExact) {
  for (int card = 0; card < 4; ++card) {
    sim_->Set("ups" + std::to_string(card), mib::upsAdvOutputLoad, 'u', std::to_string(10 + card));
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, t, &wrong] {
      for (int i = 0; i < 100; ++i) {
        int card = (t + i) % 4;
        int32_t load = -1;
        DWORD result = SnmpGetR(Ip("ups" + std::to_string(card)), mib::upsAdvOutputLoad, 'u',
                                reinterpret_cast<char *>(&load), 0);
        if (result != 0 || load != 10 + card) ++wrong;
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  int used = 0;
  while (g_session_tbl[used].IP[0] != '\0') ++used;
  EXPECT_EQ(used, 4) << "one session per card, however many threads raced to open it";
}

TEST_F(ConcurrentRequestsTest, ConcurrentSilentCardDoesNotStallOtherCards) {
  sim_->Silent("silent", true);
  std::atomic<bool> silent_returned{false};
  std::atomic<bool> waiting{false};
  std::thread stalled([this, &silent_returned, &waiting] {
    int32_t value;
    waiting = true;
    SnmpGetR(Ip("silent"), mib::upsCommStatus, 'i', reinterpret_cast<char *>(&value), 0);
    silent_returned = true;
  });
  while (!waiting) std::this_thread::yield();
  // Well inside the second the silent card takes to time out: the request is under way.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  int answered = 0;
  for (int i = 0; i < 20; ++i) {
    int32_t value = 0;
    if (SnmpGetR(Ip("ups0"), mib::upsCommStatus, 'i', reinterpret_cast<char *>(&value), 0) == 0) {
      ++answered;
    }
  }
  bool overtaken = !silent_returned;
  stalled.join();
  EXPECT_EQ(answered, 20);
  EXPECT_TRUE(overtaken) << "twenty answers from one card came while another stayed silent";
}

}  // namespace
}  // namespace snmplumi::testing
