// xp_snmp_parse_oid over arbitrary texts, in both conversion modes, into an array of exactly the
// capacity it is told, with any ring index a host may have left. Input: mode (1 byte, bit 0),
// capacity (1 byte), ring index (1 byte), then the text.
#include <memory>

#include "fuzz_support.h"
#include "snmplumi.h"
#include "test_home.h"

using snmplumi::fuzz::Check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // net-snmp reads the snmp.conf of the temporary home, which has none.
  static snmplumi::testing::TempHome home;
  [[maybe_unused]] static const int environment = setenv("SNMPCONFPATH", home.root().c_str(), 1);
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
  Check(parsed == nullptr || (parsed == name.get() && length <= capacity),
        "a parse fits the caller's array");
  return 0;
}
