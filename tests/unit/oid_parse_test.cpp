#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

class OidParseTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("SNMPCONFPATH", home_.root().c_str(), 1); }

  // The sub-identifiers parsed from text, or {} when the parse fails.
  std::vector<unsigned long> Parse(const char *text, size_t capacity = 128) {
    unsigned long name[128] = {};
    size_t length = capacity;
    if (xp_snmp_parse_oid(text, name, &length) == nullptr) return {};
    return std::vector<unsigned long>(name, name + length);
  }

  uint32_t RingWord(int slot, int index) {
    uint32_t word = 0;
    for (int byte = 0; byte < 4; ++byte) {
      word |= static_cast<uint32_t>(static_cast<unsigned char>(OIDdat[slot][index * 4 + byte]))
              << (8 * byte);
    }
    return word;
  }

  TempHome home_;
};

using Oid = std::vector<unsigned long>;

TEST_F(OidParseTest, OwnParserTakesOnlyScalarInstances) {
  g_bAC_MIBConvertMode = 1;
  EXPECT_EQ(Parse(".1.3.6.1.2.1.1.1.0"), (Oid{1, 3, 6, 1, 2, 1, 1, 1, 0}));
  EXPECT_EQ(Parse(".1.3.6.1.2.1.1.1.5"), Oid{}) << "the last sub-identifier must be 0";
  EXPECT_EQ(Parse(".1.3.x"), (Oid{1, 3, 0})) << "a letter ends the walk";
  EXPECT_EQ(Parse("1.3.6.1.2.1.1.1.0"), Oid{}) << "the leading dot is required";
  EXPECT_EQ(Parse("."), Oid{});
  EXPECT_EQ(Parse(".4294967296.0"), (Oid{0, 0})) << "sub-identifiers wrap at 32 bits";
}

TEST_F(OidParseTest, NetSnmpParserIsUsedOutsideConversionMode) {
  EXPECT_EQ(Parse("1.3.6.1.2.1.1.1.0"), (Oid{1, 3, 6, 1, 2, 1, 1, 1, 0}));
  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.2.2.1.0"),
            (Oid{1, 3, 6, 1, 4, 1, 318, 1, 1, 1, 2, 2, 1, 0}));
  EXPECT_EQ(OIDdatc, 0) << "the own parser's ring is not touched";
  EXPECT_EQ(Parse(".1.3.6.1.2.1.1.1.5"), (Oid{1, 3, 6, 1, 2, 1, 1, 1, 5}));
}

TEST_F(OidParseTest, RingReusesSlotZeroOnThe33rdParse) {
  g_bAC_MIBConvertMode = 1;
  for (int i = 0; i < 32; ++i) {
    std::string text = ".1.3." + std::to_string(100 + i) + ".0";
    ASSERT_EQ(Parse(text.c_str()).size(), 4u);
  }
  EXPECT_EQ(OIDdatc, 32);
  EXPECT_EQ(RingWord(0, 2), 100u);
  EXPECT_EQ(RingWord(31, 2), 131u);

  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.8.1.2.0").size(), 14u);  // the 33rd
  EXPECT_EQ(OIDdatc, 1);
  EXPECT_EQ(RingWord(0, 6), 318u);
  EXPECT_EQ(RingWord(0, 13), 0u);
  EXPECT_EQ(RingWord(1, 2), 101u) << "slot 1 keeps its earlier parse";

  EXPECT_EQ(Parse(".1.3.7"), Oid{});
  EXPECT_EQ(OIDdatc, 1) << "a failed parse does not advance the ring";
}

TEST_F(OidParseTest, CommStatusFallbackIsLogged) {
  g_bAC_MIBConvertMode = 1;
  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.8.1.0").size(), 13u);
  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.8.2.0").size(), 13u);
  EXPECT_EQ(LogMessages(home_),
            std::vector<std::string>{"!!!!!! **** SnmpMgrStrToOid error!! 64bit!? **** !!!!!!"});
}

TEST_F(OidParseTest, HostileRingIndexAndSmallCapacityAreSafe) {
  g_bAC_MIBConvertMode = 1;
  OIDdatc = -5;
  EXPECT_EQ(Parse(".1.3.0").size(), 3u);
  EXPECT_EQ(OIDdatc, 1);
  EXPECT_EQ(Parse(".1.3.6.1.0", 4), Oid{}) << "five sub-identifiers do not fit four";
  std::string longest = "";
  for (int i = 0; i < 70; ++i) longest += ".7";
  EXPECT_EQ(Parse(longest.c_str()).size(), 64u) << "at most 63 are read from the text";
}

TEST_F(OidParseTest, ConcurrentParsesStayExact) {
  g_bAC_MIBConvertMode = 1;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &wrong] {
      std::string text = ".1.3.6.1." + std::to_string(t) + ".0";
      for (int i = 0; i < 2000; ++i) {
        unsigned long name[128];
        size_t length = 128;
        if (xp_snmp_parse_oid(text.c_str(), name, &length) == nullptr || length != 6 ||
            name[4] != static_cast<unsigned long>(t) || name[5] != 0) {
          ++wrong;
        }
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace snmplumi::testing
