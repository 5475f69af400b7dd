#include "unit_test.h"

namespace snmplumi::testing {
namespace {

using Oid = std::vector<unsigned long>;

class OidParseTest : public HomeTest {
 protected:
  void SetUp() override { setenv("SNMPCONFPATH", home_.root().c_str(), 1); }

  static Oid Parse(const std::string &text, size_t capacity = 128) {
    unsigned long name[128] = {};
    size_t length = capacity;
    if (xp_snmp_parse_oid(text.c_str(), name, &length) == nullptr) return {};
    return Oid(name, name + length);
  }

  // Sub-identifier index of ring slot slot, stored little-endian in 32 bits.
  static uint32_t RingWord(int slot, int index) {
    uint32_t word = 0;
    for (int byte = 3; byte >= 0; --byte) {
      word = word << 8 | static_cast<unsigned char>(OIDdat[slot][index * 4 + byte]);
    }
    return word;
  }
};

// net-snmp takes the texts outside conversion mode; the own parser only scalar instances, and
// it says so when it has to take the communication status.
TEST_F(OidParseTest, ParserByMode) {
  std::string seventy;
  for (int i = 0; i < 70; ++i) seventy += ".7";

  const std::tuple<int, std::string, size_t, Oid> rows[] = {
      {0, "1.3.6.1.2.1.1.1.0", 128, {1, 3, 6, 1, 2, 1, 1, 1, 0}},
      {0, ".1.3.6.1.2.1.1.1.5", 128, {1, 3, 6, 1, 2, 1, 1, 1, 5}},
      {1, ".1.3.6.1.2.1.1.1.0", 128, {1, 3, 6, 1, 2, 1, 1, 1, 0}},
      {1, ".1.3.6.1.2.1.1.1.5", 128, {}},  // the last sub-identifier must be 0
      {1, ".1.3.x", 128, {1, 3, 0}},       // a letter ends the walk
      {1, "1.3.6.1.2.1.1.1.0", 128, {}},   // the leading dot is required
      {1, ".", 128, {}},
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
  EXPECT_EQ(LogMessages(home_),
            std::vector<std::string>{"!!!!!! **** SnmpMgrStrToOid error!! 64bit!? **** !!!!!!"});
}

// A host may write any index: it starts again at slot 0. A failed parse does not advance it.
TEST_F(OidParseTest, RingOf32SlotsStartsAgainAtSlotZero) {
  g_bAC_MIBConvertMode = 1;
  OIDdatc = -5;
  for (int i = 0; i < 32; ++i)
    ASSERT_EQ(Parse(".1.3." + std::to_string(100 + i) + ".0").size(), 4u);
  EXPECT_EQ(OIDdatc, 32);
  EXPECT_EQ(RingWord(0, 2), 100u);
  EXPECT_EQ(RingWord(31, 2), 131u);
  EXPECT_EQ(Parse(".1.3.6.1.4.1.318.1.1.1.8.1.2.0").size(), 14u);
  EXPECT_EQ(OIDdatc, 1);
  EXPECT_EQ(RingWord(0, 6), 318u);
  EXPECT_EQ(RingWord(1, 2), 101u) << "slot 1 keeps its earlier parse";
  EXPECT_EQ(Parse(".1.3.7"), Oid{});
  EXPECT_EQ(OIDdatc, 1);
}

TEST_F(OidParseTest, ConcurrentParsesStayExact) {
  g_bAC_MIBConvertMode = 1;
  std::atomic<int> wrong{0};
  RunThreads(8, [&wrong](int t) {
    const Oid expected{1, 3, 6, 1, static_cast<unsigned long>(t), 0};
    for (int i = 0; i < 2000; ++i)
      wrong += Parse(".1.3.6.1." + std::to_string(t) + ".0") != expected;
  });
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace snmplumi::testing
