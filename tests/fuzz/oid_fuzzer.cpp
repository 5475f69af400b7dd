// xp_snmp_parse_oid over arbitrary texts, in both conversion modes, into an array of exactly the
// capacity it is told, with any ring index a host may have left. Input: mode (1 byte, bit 0),
// capacity (1 byte), ring index (1 byte), then the text. In conversion mode the result must be
// what the own parser's rules give.
#include <cctype>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz_support.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

using snmplumi::fuzz::Check;

// The own parser's rules: a dot and a digit first; 32-bit sub-identifiers up to each dot, at
// most 63 of them; the walk ends at any other character, where the number must be 0; the last
// sub-identifier is that 0.
std::optional<std::vector<unsigned long>> OwnRules(const char *text, std::size_t capacity) {
  if (text[0] != '.' || !std::isdigit(static_cast<unsigned char>(text[1]))) return std::nullopt;
  std::vector<unsigned long> words;
  uint32_t number = 0;
  for (const char *p = text + 1; words.size() < 63; ++p) {
    if (std::isdigit(static_cast<unsigned char>(*p))) {
      number = number * 10 + static_cast<uint32_t>(*p - '0');
    } else if (*p == '.') {
      words.push_back(number);
      number = 0;
    } else if (number != 0) {
      return std::nullopt;
    } else {
      break;
    }
  }
  words.push_back(0);
  if (words.size() > capacity) return std::nullopt;
  return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // net-snmp reads the snmp.conf of the temporary home, which has none.
  static snmplumi::testing::TempHome home;
  static const int environment = setenv("SNMPCONFPATH", home.root().c_str(), 1);
  (void)environment;
  if (size < 3) return 0;
  g_bAC_MIBConvertMode = data[0] & 1;
  const std::size_t capacity = data[1];
  OIDdatc = static_cast<signed char>(data[2]);
  data += 3;
  size -= 3;
  const std::string text = snmplumi::fuzz::NextField(data, size);

  // Exactly the capacity told: a word written past it is a heap overflow.
  auto name = std::make_unique<unsigned long[]>(capacity);
  std::size_t length = capacity;
  unsigned long *parsed = xp_snmp_parse_oid(text.c_str(), name.get(), &length);
  if (parsed != nullptr) {
    Check(parsed == name.get() && length <= capacity, "a parse fits the caller's array");
  }
  if (g_bAC_MIBConvertMode == 1) {
    auto expected = OwnRules(text.c_str(), capacity);
    Check(expected.has_value() == (parsed != nullptr), "the own parser accepts by its rules");
    if (expected) {
      Check(OIDdatc >= 1 && OIDdatc <= 32, "a parse moves the ring index on, inside the ring");
      Check(std::vector<unsigned long>(name.get(), name.get() + length) == *expected,
            "the own parser gives the sub-identifiers of its rules");
    }
  }
  return 0;
}
