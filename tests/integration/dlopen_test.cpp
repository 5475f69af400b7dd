// The real shared library as a host loads it: the settings its load-time hook reads serve the
// requests (its unload is the hygiene test's), and the host's standard error stays clean.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "loaded_library.h"
#include "powernet.h"
#include "snmplumi.h"
#include "upssim_fixture.h"

namespace {

TEST(SharedLibraryTest, LoadRequestsAndUnloadAsAHostDoes) {
  auto sim = upssim::Simulator::Start({{.name = "ups", .community = "lumi"}});
  const std::string home = MakeLoadedHome(
      "[Snmp]\nUPS_IP=" + sim->Address("ups") + "\nUPS_Com=lumi\n", sim->ClientConfigDir());
  ::testing::internal::CaptureStderr();
  void *library = dlopen(SNMPLUMI_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  PinNetSnmp();
  auto get = reinterpret_cast<decltype(&SnmpGet)>(dlsym(library, "SnmpGet"));
  ASSERT_NE(get, nullptr);
  int32_t status = 0;
  EXPECT_EQ(get(snmplumi::mib::upsBasicOutputStatus, 'i', reinterpret_cast<char *>(&status), 0, 0),
            0u)
      << "the constructor read UPS_IP and the community";
  EXPECT_EQ(status, 2);
  EXPECT_EQ(dlclose(library), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "")
      << "a host's standard error is not the library's";
  std::filesystem::remove_all(home);
}

}  // namespace
