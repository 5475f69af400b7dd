#include "snmp/requests.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <thread>
#include <tuple>
#include <utility>

#include "card_test.h"
#include "powernet.h"
#include "snmp/netsnmp.h"

namespace snmplumi::testing {
namespace {

using std::chrono::milliseconds;
using upssim::Op;

class RequestsTest : public CardTest {
 protected:
  void SetUp() override { StartCards({"ups"}); }

  std::string GetLine(const char *oid_text) const {
    return std::string(" get [") + Ip("ups") + "][" + oid_text + "]";
  }
};

TEST_F(RequestsTest, GetCopiesAndLogsByTypeLetter) {
  // Letter, object, value on the card, the buffer's start afterwards, the log line.
  const std::tuple<char, const char *, const char *, std::string, const char *> rows[] = {
      {'i', mib::upsBasicOutputStatus, "3", std::string("\x03\0\0\0", 4), "get = 3 (type=i)"},
      {'a', mib::upsSCGMultiCastIP, "239.1.2.3", "\xef\x01\x02\x03", "get = 50463215(type=a)"},
      // Strings arrive without a terminator: a longer earlier value keeps its tail.
      {'s', mib::upsBasicIdentModel, "Smart-UPS 750", "Smart-UPS 750DEFGHIJ",
       "get = Smart-UPS 750 (type=s, x, d)"},
      {'o', mib::upsBasicIdentModel, "xyz", "xyz3456789ABCDEFGHIJ", "get = ?(type=o)"},
      {'n', mib::upsBasicIdentModel, "xyz", "0123456789ABCDEFGHIJ", "get = null(type=n)"},
  };
  for (const auto &[letter, oid_text, card_value, copied, line] : rows) {
    SCOPED_TRACE(letter);
    sim_->Set("ups", oid_text, '=', card_value);
    for (int logflag : {0, 1, 2}) {
      char buffer[32] = "0123456789ABCDEFGHIJ";
      ASSERT_EQ(SnmpGetR(Ip("ups"), oid_text, letter, buffer, logflag), 0u);
      EXPECT_EQ(std::string(buffer, copied.size()), copied) << logflag;
    }
    EXPECT_EQ(LibraryLog(home_), (std::vector<LogRecord>{{0, GetLine(oid_text)}, {0, line}}))
        << "only logflag 1 logs";
    ClearLog();
  }
  char value[8] = "keep";  // an unknown letter copies nothing and is logged whatever the flag
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsBasicOutputStatus, 'b', value, 0), 1u);
  EXPECT_STREQ(value, "keep");
  EXPECT_EQ(LibraryLog(home_), (std::vector<LogRecord>{{0, GetLine(mib::upsBasicOutputStatus)},
                                                       {'b', " get = \\?\\?(type=\\?:[b])"}}));
}

// The name write is the status queries' routine write test: logged in debug mode only.
TEST_F(RequestsTest, SetSendsEachTypeLetter) {
  int32_t volts = 127;
  // Letter, object, value on the card, value in the debug line (an 'i' goes as an integer).
  const std::tuple<char, const char *, const char *, const char *> rows[] = {
      {'i', mib::upsAdvConfigHighTransferVolt, "127", "127"},
      {'s', mib::upsBasicIdentName, "Server room", "Server room"},
      {'a', mib::upsSCGMultiCastIP, "224.0.0.100", "1677721824"},
  };
  for (int debug : {0, 1}) {
    g_bDebugMode = debug;
    for (auto [letter, oid_text, card_value, answer] : rows) {
      SCOPED_TRACE(letter);
      ASSERT_EQ(SnmpSetR(Ip("ups"), oid_text, letter, letter == 'i' ? Raw(volts) : card_value), 0u);
      EXPECT_EQ(sim_->Value("ups", oid_text), card_value);
      EXPECT_EQ(Applied().back().type, letter);
      std::vector<std::string> expected;
      if (letter == 'a') expected.push_back("SnmpSetR: unknown type? : (a)");
      if (debug || oid_text != mib::upsBasicIdentName)
        expected.push_back(std::string(" Set[0] names=[") + oid_text + "] types=[" + letter +
                           "] val=[" + card_value + "]");
      if (debug) expected.push_back(std::string(" snmp:OK(0.0) Val=[") + answer + "]");
      EXPECT_EQ(LogMessages(home_), expected) << "debug " << debug;
      ClearLog();
    }
  }
}

TEST_F(RequestsTest, SetErrorStatusesMapToResults) {
  int32_t value = 1;
  const std::pair<int, DWORD> rows[] = {
      {1, UPS_E_CANT_ACCESS}, {3, UPS_E_INVALID_PARAM}, {6, UPS_E_CANT_ACCESS}};
  for (auto [status, result] : rows) {
    sim_->InjectError("ups", mib::upsAdvControlUpsOff, Op::kSet, status);
    EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvControlUpsOff, 'i', Raw(value)), result) << status;
    sim_->ClearErrors("ups");
  }
}

// A GET's error status is logged in debug mode only, whatever the log flag; a request that
// cannot be built is not sent.
TEST_F(RequestsTest, FailedRequestsLeaveTheValueAndLogTheirCause) {
  sim_->InjectError("ups", mib::upsAdvOutputVoltage, Op::kGet, 2);
  int32_t value = -1;
  for (int debug : {0, 1}) {
    g_bDebugMode = debug;
    EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsAdvOutputVoltage, 'u', Raw(value), 1 - debug),
              UPS_E_CANT_ACCESS);
    EXPECT_EQ(Logged("  error: (noSuchName)"), debug);
  }
  sim_->Silent("ups", true);
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsCommStatus, 'i', Raw(value), 1), UPS_E_NO_SERVER);
  EXPECT_EQ(value, -1);
  EXPECT_EQ(Logged(std::string(" Get Timeout: No Response from ") + Ip("ups")), 1);
  sim_->Silent("ups", false);
  const std::size_t sent = sim_->Journal().size();
  g_bAC_MIBConvertMode = 1;
  EXPECT_EQ(SnmpSetR(Ip("ups"), "1.3.6.1.4.1.318.1.1.1.6.2.1.0", 'i', Raw(value)), UPS_E_NO_SERVER);
  char text[8];
  EXPECT_EQ(SnmpGetR(Ip("ups"), "1.3.6", 's', text, 1), UPS_E_NO_SERVER);
  EXPECT_EQ(sim_->Journal().size(), sent);
}

// Two retries whatever the run: set before the cards start.
using LossyNetworkTest = CardTest;

TEST_F(LossyNetworkTest, SilentCardCostsEveryRetryAndNothingMore) {
  setenv("UPSSIM_CLIENT_RETRIES", "2", 1);
  StartCards({"ups"});
  sim_->Silent("ups", true);
  int32_t off = 2;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SnmpSetR(Ip("ups"), mib::upsAdvControlUpsOff, 'i', Raw(off)), UPS_E_NO_SERVER);
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(2900));
  EXPECT_EQ(sim_->Journal().size(), 3u) << "one try and two retransmissions, no more";
}

// Answers that come after the request was given up reach no one; ASan's
// detect_stack_use_after_return would see a write into a finished wait.
TEST_F(LossyNetworkTest, LateAnswerToAbandonedRequestIsHarmless) {
  setenv("UPSSIM_CLIENT_RETRIES", "2", 1);
  StartCards({"ups"});
  sim_->Set("ups", mib::upsAdvOutputVoltage, 'u', "101");
  sim_->Delay("ups", milliseconds(3200));
  int32_t value = -1;
  EXPECT_EQ(SnmpGetR(Ip("ups"), mib::upsCommStatus, 'i', Raw(value), 1), UPS_E_NO_SERVER);
  sim_->Delay("ups", milliseconds(0));
  // The three late answers arrive 3.2, 4.2 and 5.2 s after the first try, while these wait.
  auto end = std::chrono::steady_clock::now() + milliseconds(2500);
  while (std::chrono::steady_clock::now() < end) {
    ASSERT_EQ(SnmpGetR(Ip("ups"), mib::upsAdvOutputVoltage, 'i', Raw(value), 1), 0u);
    ASSERT_EQ(value, 101);
    ClearLog();
  }
}

class ConcurrentRequestsTest : public CardTest {
 protected:
  void SetUp() override { StartCards({"ups0", "ups1", "ups2", "ups3", "silent"}); }
  bool Lossy() const { return sim_->ClientRetries() > 0; }
};

// The host uses what AC_SnmpMgrOpen gave it without the library's lock. A lossy run may lose a
// request for good, never deliver another request's value.
TEST_F(ConcurrentRequestsTest, ConcurrentRequestsAndTheHostSessionStayExact) {
  for (int card = 0; card < 4; ++card)
    sim_->Set("ups" + std::to_string(card), mib::upsAdvOutputLoad, 'u', std::to_string(10 + card));
  std::atomic<int> wrong{0}, failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < (Lossy() ? 3 : 100); ++i) {
        int card = (t + i) % 4;
        int32_t load = -1;
        if (SnmpGetR(Ip("ups" + std::to_string(card)), mib::upsAdvOutputLoad, 'u', Raw(load), 0)) {
          ++failed;
        } else if (load != 10 + card) {
          ++wrong;
        }
      }
    });
  }
  netsnmp_session *host = AC_SnmpMgrOpen(Ip("ups0"));
  EXPECT_NE(host, nullptr);
  for (int i = 0; host != nullptr && i < (Lossy() ? 4 : 50); ++i) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET), *response = nullptr;
    oid name[MAX_OID_LEN];
    size_t length = MAX_OID_LEN;
    read_objid(mib::upsAdvOutputLoad, name, &length);
    snmp_add_null_var(pdu, name, length);
    if (snmp_synch_response(host, pdu, &response) != STAT_SUCCESS) {
      ++failed;
    } else if (response->variables == nullptr || *response->variables->val.integer != 10) {
      ++wrong;
    }
    if (response) snmp_free_pdu(response);
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_TRUE(Lossy() || failed == 0) << failed << " failed";
  int used = 0;
  while (g_session_tbl[used].IP[0] != '\0') ++used;
  EXPECT_EQ(used, 4) << "one session per card, however many threads raced to open it";
}

TEST_F(ConcurrentRequestsTest, ConcurrentSilentCardDoesNotStallOtherCards) {
  sim_->Silent("silent", true);
  auto silent = std::async(std::launch::async, [this] {
    int32_t value;
    return SnmpGetR(Ip("silent"), mib::upsCommStatus, 'i', Raw(value), 0);
  });
  // Well inside the silent card's time-out; on a lossy network fewer requests fit.
  std::this_thread::sleep_for(milliseconds(200));
  const int requests = Lossy() ? 2 : 20;
  int answered = 0;
  for (int i = 0; i < requests; ++i) {
    int32_t value = 0;
    answered += SnmpGetR(Ip("ups0"), mib::upsCommStatus, 'i', Raw(value), 0) == 0;
  }
  EXPECT_EQ(silent.wait_for(milliseconds(0)), std::future_status::timeout)
      << "answers from one card came while another stayed silent";
  EXPECT_EQ(silent.get(), UPS_E_NO_SERVER);
  EXPECT_EQ(answered, requests);
}

}  // namespace
}  // namespace snmplumi::testing
