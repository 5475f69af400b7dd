#include <climits>
#include <future>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

constexpr DWORD kRead = 0x80000000u;
constexpr DWORD kWrite = 0x40000000u;

using PlatformTest = HomeTest;

TEST_F(PlatformTest, TempFileNames) {
  const std::tuple<const char *, unsigned, const char *> given[] = {
      {"_um", 26, "/d/_um001a.TMP"},
      {"_umbrella", 0xabcdef12u, "/d/_umabcdef12.TMP"},
  };
  char name[256];
  for (const auto &[prefix, number, expected] : given) {
    EXPECT_EQ(GetTempFileName("/d", prefix, number, name), number);
    EXPECT_STREQ(name, expected);
  }
  EXPECT_EQ(GetTempFileName(nullptr, "_um", 26, name), 0u);
  EXPECT_FALSE(FileExists("/d")) << "a given number creates nothing";

  // Without one, the counter starts from the tick count and steps past names already taken.
  std::string dir = home_.data();
  unsigned int first = GetTempFileName(dir.c_str(), "_um", 0, name);
  EXPECT_GE(first, GetTickCount() - 2000);
  char expected[256];
  std::snprintf(expected, sizeof expected, "%s/_um%4.4x.TMP", dir.c_str(), first);
  EXPECT_STREQ(name, expected);
  EXPECT_TRUE(FileExists(name) && FileText(name).empty());
  EXPECT_EQ(GetTempFileName(dir.c_str(), "_um", 0, name), first + 1);
}

// Dispositions: 1 create new, 2 create always, 3 open existing, 4 open always, 5 truncate
// existing (refused). A failed write reports 0 bytes written; an overlapped one writes at its
// offset.
TEST_F(PlatformTest, CreateFileFollowsAccessAndDisposition) {
  struct Row {
    DWORD access, disposition;
    const char *before;  // nullptr: no file
    bool opens, reads, writes;
    const char *after;  // nullptr: no file
  } rows[] = {
      {kWrite, 3, nullptr, false, false, false, nullptr},
      {kWrite, 1, nullptr, true, false, true, "x"},
      {kWrite, 1, "abc", false, false, false, "abc"},
      {kRead | kWrite, 5, "abc", false, false, false, "abc"},
      {kRead, 4, "abc", true, true, false, "abc"},
      {kRead | kWrite, 4, nullptr, true, false, true, "x"},
      {kRead | kWrite, 2, "abc", true, false, true, "x"},
  };
  std::string path = home_.data("f");
  for (const Row &row : rows) {
    std::filesystem::remove(path);
    if (row.before != nullptr) PutFile(path, row.before);
    HANDLE fd = CreateFile(path.c_str(), row.access, 0, nullptr, row.disposition, 0, 0);
    EXPECT_EQ(fd != INVALID_HANDLE_VALUE, row.opens) << row.disposition;
    char byte;
    EXPECT_EQ(read(fd, &byte, 1) == 1, row.reads) << row.disposition;
    DWORD written = 99;
    EXPECT_EQ(WriteFile(fd, "x", 1, &written, nullptr), row.writes) << row.disposition;
    EXPECT_EQ(written, row.writes ? 1u : 0u) << row.disposition;
    EXPECT_EQ(CloseHandle(fd), row.opens ? 0 : -1);
    EXPECT_EQ(FileExists(path) ? FileText(path) : "-", row.after ? row.after : "-");
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

TEST_F(PlatformTest, ModuleFileNameAndTempPathNameTheRunningProgram) {
  char exe[PATH_MAX] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  char name[PATH_MAX];
  EXPECT_EQ(GetModuleFileName(nullptr, name, sizeof name), std::strlen(exe));
  EXPECT_STREQ(name, exe);
  EXPECT_EQ(GetModuleFileName(nullptr, name, 5), 4u);
  EXPECT_EQ(std::string(name), std::string(exe, 4));
  int marker = 0;
  EXPECT_EQ(GetModuleFileName(&marker, name, sizeof name), 0u);
  EXPECT_EQ(GetModuleFileName(nullptr, name, 0), 0u);
  EXPECT_EQ(GetModuleFileName(nullptr, nullptr, 10), 0u);

  if (std::strlen(exe) >= 256) GTEST_SKIP() << "program path longer than the module buffer";
  std::string dir = std::filesystem::path(exe).parent_path().string() + "/";
  EXPECT_EQ(GetTempPath(sizeof name, name), 1u);
  EXPECT_EQ(std::string(name), dir);
  std::memset(name, '#', sizeof name);
  EXPECT_EQ(GetTempPath(static_cast<DWORD>(dir.size()), name), 0u) << "no room for the NUL";
  EXPECT_EQ(name[0], '#');
}

TEST_F(PlatformTest, BeginThreadRunsTheRoutine) {
  std::promise<int> ran;
  auto routine = [](void *argument) { static_cast<std::promise<int> *>(argument)->set_value(7); };
  EXPECT_NE(_beginthread(routine, 0, &ran), 0u);
  auto future = ran.get_future();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(future.get(), 7);
}

}  // namespace
}  // namespace snmplumi::testing
