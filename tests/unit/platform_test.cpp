#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <future>
#include <string>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

constexpr DWORD kRead = 0x80000000u;
constexpr DWORD kWrite = 0x40000000u;

class PlatformTest : public ::testing::Test {
 protected:
  TempHome home_;
};

TEST_F(PlatformTest, TempFileNameWithGivenNumberCreatesNothing) {
  char name[64];
  EXPECT_EQ(GetTempFileName("/d", "_um", 26, name), 26u);
  EXPECT_STREQ(name, "/d/_um001a.TMP");
  EXPECT_EQ(GetTempFileName("/d", "_um", 74565, name), 74565u);
  EXPECT_STREQ(name, "/d/_um12345.TMP");
  EXPECT_EQ(GetTempFileName("/d", "_umbrella", 0xabcdef12u, name), 0xabcdef12u);
  EXPECT_STREQ(name, "/d/_umabcdef12.TMP");
  EXPECT_EQ(GetTempFileName(nullptr, "_um", 26, name), 0u);
  EXPECT_FALSE(FileExists("/d"));
}

TEST_F(PlatformTest, TempFileNameWithoutNumberCreatesAFreshFile) {
  std::string dir = home_.data();
  char first[256];
  char second[256];
  unsigned int a = GetTempFileName(dir.c_str(), "_um", 0, first);
  unsigned int b = GetTempFileName(dir.c_str(), "_um", 0, second);
  ASSERT_NE(a, 0u);
  char expected[256];
  std::snprintf(expected, sizeof expected, "%s/_um%4.4x.TMP", dir.c_str(), a);
  EXPECT_STREQ(first, expected);
  EXPECT_NE(std::string(first), std::string(second));
  EXPECT_EQ(b, a + 1) << "the second call steps past the name the first one took";
  struct stat status;
  ASSERT_EQ(stat(first, &status), 0);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_GE(a, GetTickCount() - 2000) << "the counter starts from the tick count";
}

TEST_F(PlatformTest, CreateFileFollowsItsDisposition) {
  std::string path = home_.data("f");
  HANDLE fd = CreateFile(path.c_str(), kWrite, 0, nullptr, 3, 0, 0);
  EXPECT_EQ(fd, INVALID_HANDLE_VALUE) << "open existing does not create";

  fd = CreateFile(path.c_str(), kWrite, 0, nullptr, 1, 0, 0);
  ASSERT_NE(fd, INVALID_HANDLE_VALUE);
  EXPECT_EQ(write(fd, "abc", 3), 3);
  char byte;
  EXPECT_EQ(read(fd, &byte, 1), -1) << "write access alone is write-only";
  EXPECT_EQ(CloseHandle(fd), 0);
  EXPECT_EQ(CloseHandle(fd), -1);
  EXPECT_EQ(CreateFile(path.c_str(), kWrite, 0, nullptr, 1, 0, 0), INVALID_HANDLE_VALUE)
      << "create new refuses an existing file";

  EXPECT_EQ(CreateFile(path.c_str(), kRead | kWrite, 0, nullptr, 5, 0, 0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(FileText(path), "abc") << "truncate existing is refused without touching the file";

  fd = CreateFile(path.c_str(), kRead, 0, nullptr, 4, 0, 0);
  ASSERT_NE(fd, INVALID_HANDLE_VALUE);
  EXPECT_EQ(read(fd, &byte, 1), 1);
  EXPECT_EQ(write(fd, "x", 1), -1) << "read access alone is read-only";
  CloseHandle(fd);

  fd = CreateFile(path.c_str(), kRead | kWrite, 0, nullptr, 2, 0, 0);
  ASSERT_NE(fd, INVALID_HANDLE_VALUE);
  EXPECT_EQ(FileText(path), "") << "create always truncates";
  CloseHandle(fd);
}

TEST_F(PlatformTest, WriteFileWritesAtTheOverlappedOffset) {
  std::string path = home_.data("w");
  PutFile(path, "0123456789");
  HANDLE fd = CreateFile(path.c_str(), kRead | kWrite, 0, nullptr, 3, 0, 0);
  ASSERT_NE(fd, INVALID_HANDLE_VALUE);
  OVERLAPPED at{};
  at.Offset = 4;
  DWORD written = 99;
  EXPECT_EQ(WriteFile(fd, "ab", 2, &written, &at), 1);
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(WriteFile(fd, "c", 1, &written, nullptr), 1);
  EXPECT_EQ(FileText(path), "0123abc789");
  CloseHandle(fd);
  written = 99;
  EXPECT_EQ(WriteFile(fd, "x", 1, &written, nullptr), 0);
  EXPECT_EQ(written, 0u);
}

TEST_F(PlatformTest, ModuleFileNameIsTheRunningProgram) {
  char expected[PATH_MAX] = {};
  ASSERT_GT(readlink("/proc/self/exe", expected, sizeof expected - 1), 0);
  char name[PATH_MAX];
  EXPECT_EQ(GetModuleFileName(nullptr, name, sizeof name), std::strlen(expected));
  EXPECT_STREQ(name, expected);

  EXPECT_EQ(GetModuleFileName(nullptr, name, 5), 4u);
  EXPECT_EQ(std::string(name), std::string(expected, 4));
  int marker = 0;
  EXPECT_EQ(GetModuleFileName(&marker, name, sizeof name), 0u);
  EXPECT_EQ(GetModuleFileName(nullptr, name, 0), 0u);
  EXPECT_EQ(GetModuleFileName(nullptr, nullptr, 10), 0u);
}

TEST_F(PlatformTest, TempPathIsTheProgramDirectory) {
  char exe[PATH_MAX] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  std::string expected = std::filesystem::path(exe).parent_path().string() + "/";
  if (std::strlen(exe) >= 256) GTEST_SKIP() << "program path longer than the module buffer";
  char path[PATH_MAX];
  EXPECT_EQ(GetTempPath(sizeof path, path), 1u);
  EXPECT_EQ(std::string(path), expected);
  std::memset(path, '#', sizeof path);
  EXPECT_EQ(GetTempPath(static_cast<DWORD>(expected.size()), path), 0u);
  EXPECT_EQ(path[0], '#');
}

TEST_F(PlatformTest, BeginThreadRunsTheRoutineDetached) {
  std::promise<int> ran;
  auto routine = [](void *argument) { static_cast<std::promise<int> *>(argument)->set_value(7); };
  EXPECT_NE(_beginthread(routine, 0, &ran), 0u);
  auto future = ran.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(future.get(), 7);
}

}  // namespace
}  // namespace snmplumi::testing
