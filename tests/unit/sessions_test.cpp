#include <sys/resource.h>

#include <set>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

class SessionsTest : public HomeTest {
 protected:
  void SetUp() override {
    setenv("SNMPCONFPATH", home_.root().c_str(), 1);
    std::strcpy(UpsCommunity, "public");
  }
  void TearDown() override { SnmpEnd(); }
};

// An entry is an address with a community; a failed or empty open keeps the entry free.
TEST_F(SessionsTest, EntriesAreFoundByAddressAndCommunity) {
  for (const char *refused : {"", static_cast<const char *>(nullptr), "127.0.2.9:70000"}) {
    EXPECT_EQ(AC_SnmpMgrOpen(refused), nullptr);  // port 70000 fails locally
  }
  EXPECT_STREQ(g_session_tbl[0].UPSCommunity, "");
  LPSNMP_MGR_SESSION first = AC_SnmpMgrOpen("127.0.2.1");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(AC_SnmpMgrOpen("127.0.2.1"), first);
  std::strcpy(UpsCommunity, "private");
  LPSNMP_MGR_SESSION second = AC_SnmpMgrOpen("127.0.2.1");
  EXPECT_TRUE(second != nullptr && second != first);
  EXPECT_STREQ(g_session_tbl[0].UPSCommunity, "public");
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
  std::set<LPSNMP_MGR_SESSION> sessions;
  for (int i = 0; i < 999; ++i) {
    std::string address = "127.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
    sessions.insert(AC_SnmpMgrOpen(address.c_str()));
  }
  EXPECT_TRUE(sessions.size() == 999 && sessions.count(nullptr) == 0);
  EXPECT_EQ(AC_SnmpMgrOpen("127.2.0.1"), nullptr);
  EXPECT_EQ(SnmpGetR("127.2.0.1", ".1.3.6.1.2.1.1.1.0", 's', nullptr, 1), UPS_E_NO_SERVER);
  EXPECT_STREQ(g_session_tbl[999].IP, "") << "entry 999 is never used";
  EXPECT_TRUE(LogMessages(home_).empty());
}

TEST_F(SessionsTest, OverlongAddressOrCommunityIsRefusedAndLoggedOnce) {
  std::string address = "127.0.2.1:161" + std::string(19, ' ');  // 32 characters
  for (int i = 0; i < 2; ++i) EXPECT_EQ(AC_SnmpMgrOpen(address.c_str()), nullptr);
  std::strcpy(UpsCommunity, std::string(32, 'c').c_str());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(AC_SnmpMgrOpen("127.0.2.1"), nullptr);
  auto messages = LogMessages(home_);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].rfind(" session refused: address longer than 31 characters", 0), 0u);
  EXPECT_EQ(messages[1].rfind(" session refused: community longer than 31 characters", 0), 0u);
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
  SnmpEnd();
  SnmpEnd();  // nothing left to close
}

}  // namespace
}  // namespace snmplumi::testing
