// The real shared library loaded and unloaded 100 times, with 10,000 requests through its own,
// the host's and the trap listener's sessions: no descriptor outlives an unload, and valgrind
// (g++ build) checks the memory at exit.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <filesystem>
#include <future>

#include "loaded_library.h"
#include "powernet.h"
#include "snmplumi.h"
#include "upssim_fixture.h"

namespace {

using namespace std::chrono_literals;

constexpr int kCycles = 100;
constexpr int kRequestsPerCycle = 100;
constexpr int kSlowCycleEvery = 25;  // a lost datagram, an unload with the listener open

long OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The exports a cycle uses, looked up in one loaded copy of the library.
#define EXPORT(name) reinterpret_cast<decltype(&name)>(dlsym(handle, #name))
struct Library {
  void *handle;
  decltype(&SnmpGet) get = EXPORT(SnmpGet);
  decltype(&SnmpEnd) end = EXPORT(SnmpEnd);
  decltype(&AC_SnmpMgrOpen) open = EXPORT(AC_SnmpMgrOpen);
  decltype(&TovLumiGet) wait = EXPORT(TovLumiGet);
  decltype(&TovLumiStop) stop = EXPORT(TovLumiStop);
  snmp_session **listener = EXPORT(Trap_ss);
  int *event = EXPORT(TrapRetStatus);
  pthread_mutex_t *event_mutex = EXPORT(g_hMutexTovLumiStopControl);
};
#undef EXPORT

class HygieneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim_ = upssim::Simulator::Start({{.name = "ups0"}, {.name = "ups1"}, {.name = "ups2"}});
    home_ = MakeLoadedHome("[Snmp]\nUPS_IP=" + sim_->Address("ups0") +
                               "\nUPS_IP1=" + sim_->Address("ups1") +
                               "\nUPS_IP2=" + sim_->Address("ups2") + "\nUPS_Com=public\n",
                           sim_->ClientConfigDir());
  }
  void TearDown() override { std::filesystem::remove_all(home_); }

  // A wait whose listener is open, ended by the event a host signals: the listener stays open
  // for the unload to close, unless another process took port 162 meanwhile.
  void LeaveListenerOpen(const Library &library) {
    auto wait = std::async(std::launch::async, [&library] {
      char buffer[64] = {};
      return library.wait(0, nullptr, buffer);
    });
    while (std::atomic_ref(*library.listener).load() == nullptr) {
      if (wait.wait_for(10ms) == std::future_status::ready) return;  // the fallback's -1
    }
    sim_->SendTrap("ups0", 6, 1, "127.0.0.1", 162);  // read and handed to snmp_input
    pthread_mutex_lock(library.event_mutex);
    *library.event = 1;
    pthread_mutex_unlock(library.event_mutex);
    EXPECT_EQ(wait.get(), 0);
    EXPECT_NE(*library.listener, nullptr) << "an event leaves the listener open";
  }

  void Cycle(int cycle, bool listener) {
    void *handle = dlopen(SNMPLUMI_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    const Library library{handle};
    const bool slow = cycle % kSlowCycleEvery == 0;
    if (slow) sim_->Drop("ups2", 1);
    for (int i = 0; i < kRequestsPerCycle; ++i) {
      if (i == kRequestsPerCycle / 2) library.end();  // a host may close them all and go on
      int32_t value = -1;
      // An answer or a time-out: each way a request can leave its session.
      ASSERT_EQ(library.get(snmplumi::mib::upsBasicOutputStatus, 'i',
                            reinterpret_cast<char *>(&value), 0, i % 3),
                slow && i == 2 ? UPS_E_NO_SERVER : 0)
          << "cycle " << cycle << " request " << i;
    }
    EXPECT_NE(library.open(sim_->Address("ups1").c_str()), nullptr);
    if (listener) {
      char buffer[64] = {};
      library.stop();  // the next wait opens the listener, is stopped at once and closes it
      EXPECT_EQ(library.wait(0, nullptr, buffer), 1);
      EXPECT_EQ(*library.listener, nullptr);
      if (slow) LeaveListenerOpen(library);
    }
    ASSERT_EQ(dlclose(handle), 0);
    ASSERT_EQ(dlopen(SNMPLUMI_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "stayed loaded";
  }

  std::unique_ptr<upssim::Simulator> sim_;
  std::string home_;
};

TEST_F(HygieneTest, LoadUnloadCyclesAndRequestsLeaveNothingBehind) {
  // The listener is part of a cycle only while port 162 can be had.
  const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in local{.sin_family = AF_INET, .sin_port = htons(162), .sin_addr = {}, .sin_zero = {}};
  const bool listener = bind(probe, reinterpret_cast<sockaddr *>(&local), sizeof local) == 0;
  close(probe);
  const long baseline = OpenDescriptors();
  for (int cycle = 0; cycle < kCycles; ++cycle) {
    ASSERT_NO_FATAL_FAILURE(Cycle(cycle, listener));
    ASSERT_EQ(OpenDescriptors(), baseline) << "after unload " << cycle;
  }
}

}  // namespace
