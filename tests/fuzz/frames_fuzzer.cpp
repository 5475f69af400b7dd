// TovLumiSend over arbitrary frames, with no UPS configured and no retries, so that no request
// is ever sent and nothing waits: every frame exercises the parsing, the handlers' answers and
// the rebuilding, in exactly 48 bytes of the fuzzer's own.
#include <cstring>
#include <memory>

#include "snmplumi.h"
#include "test_home.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static snmplumi::testing::TempHome home;
  static snmplumi::testing::FakeClock clock{snmplumi::testing::kSomeTime};
  [[maybe_unused]] static const bool configured = [] {
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    GetRetryMax = SetRetryMax = 0;
    return std::strcpy(UpsOffMode, "S") != nullptr;
  }();
  auto frame = std::make_unique<char[]>(48);
  std::memcpy(frame.get(), data, size < 48 ? size : 48);
  TovLumiSend(0, 0, frame.get(), 48);
  clock.sleeps.clear();
  return 0;
}
