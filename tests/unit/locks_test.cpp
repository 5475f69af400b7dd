#include <fcntl.h>

#include <chrono>

#include "unit_test.h"

namespace snmplumi::testing {
namespace {

using LocksTest = HomeTest;

TEST_F(LocksTest, SleepUsesWholeSecondsFromOneSecondOn) {
  FakeClock clock(kSomeTime);
  for (DWORD milliseconds : {1999, 1000, 999, 0}) Sleep(milliseconds);
  EXPECT_EQ(clock.sleeps, (std::vector<unsigned long>{1000000, 1000000, 999000, 0}));
}

// Mode 0 blocks, mode 1 tries 26 times 200 ms apart, any other mode leaves the mutex alone; a
// failure is logged with the text of errno, whatever the lock call returned.
TEST_F(LocksTest, LockModes) {
  const std::string pid = std::to_string(getpid());
  const std::tuple<int, int, std::vector<unsigned long>> rows[] = {
      {0, EDEADLK, {}}, {1, EBUSY, std::vector<unsigned long>(25, 200000)}, {2, -1, {}}};
  for (const auto &[mode, result, sleeps] : rows) {
    FakeClock clock(kSomeTime);
    pthread_mutex_t mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    pthread_mutex_lock(&mutex);  // held by this thread: locking again fails, trying too
    g_iMutexMode = mode;
    errno = ENOENT;
    int locked = kavac_pthread_mutex_lock(&mutex, 7);
    EXPECT_EQ(locked, result) << "mode " << mode;
    EXPECT_EQ(clock.sleeps, sleeps) << "mode " << mode;
    EXPECT_EQ(kavac_pthread_mutex_unlock(&mutex, locked, 7), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0) << "a failed lock leaves the mutex held";
  }
  EXPECT_EQ(LibraryLog(home_),
            (std::vector<LogRecord>{
                {ENOENT, "[lck err] p=" + pid + " c=7 :No such file or directory"},
                {ENOENT, " [trylock error] p=" + pid + " c=7 :No such file or directory"}}));
}

// An open-file-description lock conflicts with getlock's record lock as another process's
// lock would, even in this process.
TEST_F(LocksTest, GetlockFailsAtOnceOnAFileLockedElsewhere) {
  std::string path = home_.data("locked");
  PutFile(path, "x");
  int other = open(path.c_str(), O_RDWR);
  struct flock lock = {
      .l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = 0, .l_len = 0, .l_pid = 0};
  ASSERT_EQ(fcntl(other, F_OFD_SETLK, &lock), 0);

  int fd = open(path.c_str(), O_RDWR);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(getlock(fd, F_WRLCK) + getlock(fd, F_RDLCK), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  close(other);
  EXPECT_EQ(getlock(fd, F_WRLCK) + getlock(fd, F_UNLCK), 2) << "free once the other is gone";
  close(fd);

  const std::string busy = std::strerror(EAGAIN);
  EXPECT_EQ(LibraryLog(home_),
            (std::vector<LogRecord>{{EAGAIN, "fcntl retry over(F_WRLCK)-p(0):" + busy},
                                    {EAGAIN, "fcntl retry over(F_RDLCK)-p(0):" + busy}}));
}

}  // namespace
}  // namespace snmplumi::testing
