#include <climits>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

constexpr DWORD kRead = 0x80000000u;
constexpr DWORD kWrite = 0x40000000u;

using PlatformTest = HomeTest;

// A given number creates nothing; without one, the counter starts from the tick count and steps
// past names already taken.
TEST_F(PlatformTest, TempFileNames) {
  char name[256];
  EXPECT_EQ(GetTempFileName("/d", "_umbrella", 0xabcdef12u, name), 0xabcdef12u);
  EXPECT_STREQ(name, "/d/_umabcdef12.TMP");
  EXPECT_EQ(GetTempFileName(nullptr, "_um", 26, name), 0u);
  std::string dir = home_.data();
  unsigned int first = GetTempFileName(dir.c_str(), "_um", 0, name);
  EXPECT_GE(first, GetTickCount() - 2000);
  char expected[256];
  std::snprintf(expected, sizeof expected, "%s/_um%4.4x.TMP", dir.c_str(), first);
  EXPECT_STREQ(name, expected);
  EXPECT_TRUE(FileExists(name) && FileText(name).empty());
  EXPECT_EQ(GetTempFileName(dir.c_str(), "_um", 0, name), first + 1);
}

// Dispositions: 1 create new, 2 create always, 3 open existing, 4 open always, 5 truncate existing
// (refused). Rows: access, disposition, file before ("-": none), opens, reads, writes, file after.
TEST_F(PlatformTest, CreateFileFollowsAccessAndDisposition) {
  const std::tuple<DWORD, DWORD, const char *, bool, bool, bool, const char *> rows[] = {
      {kWrite, 3, "-", false, false, false, "-"},
      {kWrite, 1, "-", true, false, true, "x"},
      {kWrite, 1, "abc", false, false, false, "abc"},
      {kRead | kWrite, 5, "abc", false, false, false, "abc"},
      {kRead, 4, "abc", true, true, false, "abc"},
      {kRead | kWrite, 4, "-", true, false, true, "x"},
      {kRead | kWrite, 2, "abc", true, false, true, "x"},
  };
  std::string path = home_.data("f");
  for (const auto &[access, disposition, before, opens, reads, writes, after] : rows) {
    std::filesystem::remove(path);
    if (before != std::string("-")) PutFile(path, before);
    HANDLE fd = CreateFile(path.c_str(), access, 0, nullptr, disposition, 0, 0);
    EXPECT_EQ(fd != INVALID_HANDLE_VALUE, opens) << disposition;
    char byte;
    EXPECT_EQ(read(fd, &byte, 1) == 1, reads) << disposition;
    DWORD written = 99;
    EXPECT_EQ(WriteFile(fd, "x", 1, &written, nullptr), writes) << disposition;
    CloseHandle(fd);
    EXPECT_EQ(FileExists(path) ? FileText(path) : "-", after) << disposition;
  }
  PutFile(path, "0123456789");
  HANDLE fd = CreateFile(path.c_str(), kRead | kWrite, 0, nullptr, 3, 0, 0);
  OVERLAPPED at{};
  at.Offset = 4;
  DWORD written = 99;
  EXPECT_EQ(WriteFile(fd, "ab", 2, &written, &at) + WriteFile(fd, "c", 1, &written, nullptr), 2);
  EXPECT_EQ(FileText(path), "0123abc789") << "the second write follows the first";
  CloseHandle(fd);
}

// Both copy the program's path cut to the buffer, never past it.
TEST_F(PlatformTest, ModuleFileNameAndTempPathStayInTheirBuffers) {
  char exe[PATH_MAX] = {}, name[PATH_MAX];
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  EXPECT_EQ(GetModuleFileName(nullptr, name, 5), 4u);
  EXPECT_EQ(std::string(name), std::string(exe, 4));
  EXPECT_EQ(GetModuleFileName(nullptr, name, 0) + GetModuleFileName(nullptr, nullptr, 10), 0u);
  if (std::strlen(exe) >= 256) GTEST_SKIP() << "program path longer than the module buffer";
  std::string dir = std::filesystem::path(exe).parent_path().string() + "/";
  EXPECT_EQ(GetTempPath(sizeof name, name), 1u);
  EXPECT_EQ(std::string(name), dir);
  std::memset(name, '#', sizeof name);
  EXPECT_EQ(GetTempPath(static_cast<DWORD>(dir.size()), name), 0u) << "no room for the NUL";
  EXPECT_EQ(name[0], '#');
}

}  // namespace
}  // namespace snmplumi::testing
