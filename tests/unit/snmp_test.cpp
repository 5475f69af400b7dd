#include <sys/resource.h>

#include <regex>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

class SnmpTest : public HomeTest {
 protected:
  void SetUp() override {
    setenv("SNMPCONFPATH", home_.root().c_str(), 1);
    std::strcpy(UpsCommunity, "public");
  }
  void TearDown() override { SnmpEnd(); }
};

using SessionsTest = SnmpTest;

// An entry is an address with a community; a failed or empty open keeps the entry free.
TEST_F(SessionsTest, EntriesAreFoundByAddressAndCommunity) {
  for (const char *refused : {"", static_cast<const char *>(nullptr), "127.0.2.9:70000"}) {
    EXPECT_EQ(AC_SnmpMgrOpen(refused), nullptr);  // port 70000 fails locally
  }
  EXPECT_STREQ(g_session_tbl[0].UPSCommunity, "");
  LPSNMP_MGR_SESSION first = AC_SnmpMgrOpen("127.0.2.1");
  ASSERT_NE(first, nullptr);
  std::strcpy(UpsCommunity, "private");
  LPSNMP_MGR_SESSION second = AC_SnmpMgrOpen("127.0.2.1");
  EXPECT_TRUE(second != nullptr && second != first);
  EXPECT_STREQ(g_session_tbl[1].IP, "127.0.2.1");
  EXPECT_STREQ(g_session_tbl[1].UPSCommunity, "private");
  std::strcpy(UpsCommunity, "public");
  EXPECT_EQ(AC_SnmpMgrOpen("127.0.2.1"), first);
}

TEST_F(SessionsTest, FullTableGivesNoSessionSilently) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  // Two sockets a card: the library's session and the one the host asked for.
  if (files.rlim_cur < 2100) GTEST_SKIP() << "needs 2100 descriptors, has " << files.rlim_cur;
  for (int i = 0; i < 999; ++i) {
    std::string address = "127.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
    ASSERT_NE(AC_SnmpMgrOpen(address.c_str()), nullptr) << address;
  }
  EXPECT_EQ(AC_SnmpMgrOpen("127.2.0.1"), nullptr);
  EXPECT_STREQ(g_session_tbl[999].IP, "") << "entry 999 is never used";
  EXPECT_TRUE(LogMessages(home_).empty());
}

TEST_F(SessionsTest, OverlongAddressOrCommunityIsRefusedAndLoggedOnce) {
  std::string address = "127.0.2.1:161" + std::string(19, ' ');  // 32 characters
  for (int i = 0; i < 2; ++i) EXPECT_EQ(AC_SnmpMgrOpen(address.c_str()), nullptr);
  std::strcpy(UpsCommunity, std::string(32, 'c').c_str());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(AC_SnmpMgrOpen("127.0.2.1"), nullptr);
  EXPECT_EQ(LogMessages(home_).size(), 2u);
  std::strcpy(UpsCommunity, std::string(31, 'c').c_str());
  EXPECT_NE(AC_SnmpMgrOpen("127.0.2.1"), nullptr) << "31 characters fit";
}

// SnmpEnd clears the addresses only; an empty address then matches the stale entry and gets
// its old value back, but no request uses it. Slots outside the table have no card.
TEST_F(SessionsTest, EndedAndMissingEntriesServeNoRequest) {
  LPSNMP_MGR_SESSION first = AC_SnmpMgrOpen("127.0.2.1");
  SnmpEnd();
  EXPECT_STREQ(g_session_tbl[0].IP, "");
  EXPECT_EQ(AC_SnmpMgrOpen(""), first);
  char value[8];
  EXPECT_EQ(SnmpGetR("", ".1.3.6.1.2.1.1.1.0", 's', value, 1), UPS_E_NO_SERVER);
  for (int slot : {130, -1})
    EXPECT_EQ(SnmpGet(".1.3.6.1.2.1.1.1.0", 's', value, 1, slot), UPS_E_NO_SERVER);
  EXPECT_EQ(SnmpSet(".1.3.6.1.2.1.1.1.0", 'i', value, 4000), UPS_E_NO_SERVER);
  EXPECT_NE(AC_SnmpMgrOpen("127.0.2.1"), nullptr);
  EXPECT_STREQ(g_session_tbl[0].IP, "127.0.2.1") << "the next open takes the entry again";
  SnmpEnd();  // and TearDown ends once more, with nothing left to close
}

using Oid = std::vector<unsigned long>;

Oid Parse(const std::string &text, size_t capacity = 128) {
  unsigned long name[128] = {};
  size_t length = capacity;
  if (xp_snmp_parse_oid(text.c_str(), name, &length) == nullptr) return {};
  return Oid(name, name + length);
}

// Sub-identifier index of ring slot slot, stored in 32 bits.
uint32_t RingWord(int slot, int index) {
  uint32_t word;
  std::memcpy(&word, &OIDdat[slot][index * 4], sizeof word);
  return word;
}

using OidParseTest = SnmpTest;

// net-snmp takes the texts outside conversion mode, the own parser inside it.
TEST_F(OidParseTest, ParserByMode) {
  std::string seventy;
  for (int i = 0; i < 70; ++i) seventy += ".7";

  const std::tuple<int, std::string, size_t, Oid> rows[] = {
      {0, ".1.3.6.1.2.1.1.1.5", 128, {1, 3, 6, 1, 2, 1, 1, 1, 5}},
      {1, ".1.3.x", 128, {1, 3, 0}},      // a letter ends the walk
      {1, "1.3.6.1.2.1.1.1.0", 128, {}},  // the leading dot is required
      {1, ".4294967296.0", 128, {0, 0}},  // sub-identifiers wrap at 32 bits
      {1, ".1.3.6.1.0", 4, {}},           // five do not fit four
      {1, ".1.3.6.1.4.1.318.1.1.1.8.1.0", 128, {1, 3, 6, 1, 4, 1, 318, 1, 1, 1, 8, 1, 0}},
  };
  for (const auto &[mode, text, capacity, expected] : rows) {
    g_bAC_MIBConvertMode = mode;
    EXPECT_EQ(Parse(text, capacity), expected) << text << " in mode " << mode;
    EXPECT_EQ(OIDdatc == 0, mode == 0) << "only the own parser uses the ring";
  }
  EXPECT_EQ(Parse(seventy).size(), 64u) << "at most 63 are read from the text";
}

// A host may write any index: it starts again at slot 0. A failed parse does not advance it.
TEST_F(OidParseTest, RingOf32SlotsStartsAgainAtSlotZero) {
  g_bAC_MIBConvertMode = 1;
  OIDdatc = -5;
  for (int i = 0; i < 32; ++i)
    ASSERT_EQ(Parse(".1.3." + std::to_string(100 + i) + ".0").size(), 4u);
  EXPECT_EQ(RingWord(0, 2), 100u);
  EXPECT_EQ(RingWord(31, 2), 131u);
  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.8.1.2.0").size(), 14u);
  EXPECT_EQ(OIDdatc, 1);
  EXPECT_EQ(RingWord(0, 6), 318u);
  EXPECT_EQ(Parse(".1.3.7"), Oid{});
  EXPECT_EQ(OIDdatc, 1);
}

// Every log record whole and counted once in the header; every profile read and OID parse gets
// its own value.
TEST_F(OidParseTest, ConcurrentLogWritesProfileReadsAndParsesStayExact) {
  UseUtc();
  FakeClock clock(kSomeTime);
  g_bAC_MIBConvertMode = 1;
  std::string file = "[S]\n";
  for (int t = 0; t < 8; ++t) file += "K" + std::to_string(t) + "=v" + std::to_string(t) + "\n";
  PutFile(home_.data("snmp.apc"), file);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&wrong, t] {
      const std::string key = "K" + std::to_string(t), value = "v" + std::to_string(t);
      const Oid oid{1, 3, 6, 1, static_cast<unsigned long>(t), 0};
      for (int n = 0; n < 2000; ++n) {
        std::string msg = "thread " + std::to_string(t) + " record " + std::to_string(n);
        LumiLocalLog(msg.c_str(), static_cast<DWORD>(t));
        char read[251];
        ReadConfigFileEx2("snmp.apc", "S", key.c_str(), read);
        wrong += value != read || Parse(".1.3.6.1." + std::to_string(t) + ".0") != oid;
      }
    });
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  const std::string log = home_.data("snmplumi.log");
  EXPECT_EQ(FileText(log).substr(0, 9), "00015904\n") << "(16000 - 2 * 7929) * 112";
  const std::regex whole(R"(2026/11/22 23:28:00 \[0000000([0-7])\] thread \1 record \d+ *)");
  auto records = RingRecords(log, 112);
  ASSERT_EQ(records.size(), 7929u);
  for (const std::string &record : records) ASSERT_TRUE(std::regex_match(record, whole)) << record;
}

}  // namespace
}  // namespace snmplumi::testing
