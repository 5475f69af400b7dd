#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {
namespace {

constexpr std::size_t kRecord = 112;

class LocksTest : public ::testing::Test {
 protected:
  std::vector<std::string> LogMessages() const {
    std::vector<std::string> messages;
    for (const std::string &record : RingRecords(home_.data("snmplumi.log"), kRecord)) {
      messages.push_back(record.substr(20));
    }
    return messages;
  }

  TempHome home_;
};

TEST_F(LocksTest, SleepUsesWholeSecondsFromOneSecondOn) {
  FakeClock clock(kSomeTime);
  Sleep(1999);
  Sleep(1000);
  Sleep(999);
  Sleep(0);
  EXPECT_EQ(clock.sleeps, (std::vector<unsigned long>{1000000, 1000000, 999000, 0}));
}

// Holds a mutex on another thread until released.
class HeldElsewhere {
 public:
  explicit HeldElsewhere(pthread_mutex_t &mutex) : mutex_(mutex) {
    holder_ = std::thread([this] {
      pthread_mutex_lock(&mutex_);
      locked_.set_value();
      release_.get_future().wait();
      pthread_mutex_unlock(&mutex_);
    });
    locked_.get_future().wait();
  }
  ~HeldElsewhere() {
    release_.set_value();
    holder_.join();
  }

 private:
  pthread_mutex_t &mutex_;
  std::promise<void> locked_;
  std::promise<void> release_;
  std::thread holder_;
};

TEST_F(LocksTest, TrylockModeGivesUpAfterTwentySixTries) {
  FakeClock clock(kSomeTime);
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  g_iMutexMode = 1;
  {
    HeldElsewhere held(mutex);
    int result = kavac_pthread_mutex_lock(&mutex, 1000);
    EXPECT_EQ(result, EBUSY);
    EXPECT_EQ(clock.sleeps, std::vector<unsigned long>(25, 200000));

    EXPECT_EQ(kavac_pthread_mutex_unlock(&mutex, result, 1000), 0);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY) << "a failed lock must not be unlocked";
  }
  auto messages = LogMessages();
  ASSERT_EQ(messages.size(), 1u);
  std::string expected = " [trylock error] p=" + std::to_string(getpid()) + " c=1000 :";
  EXPECT_EQ(messages[0].substr(11, expected.size()), expected);
}

TEST_F(LocksTest, BlockingModeLogsALockFailure) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_t mutex;
  pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);

  ASSERT_EQ(kavac_pthread_mutex_lock(&mutex, 3), 0);
  errno = ENOENT;  // the log shows errno's text, whatever the lock call returned
  EXPECT_EQ(kavac_pthread_mutex_lock(&mutex, 4), EDEADLK);
  auto messages = LogMessages();
  ASSERT_EQ(messages.size(), 1u);
  std::string expected =
      "[00000002] [lck err] p=" + std::to_string(getpid()) + " c=4 :No such file or directory";
  EXPECT_EQ(messages[0].substr(0, expected.size()), expected);

  kavac_pthread_mutex_unlock(&mutex, 0, 3);
  pthread_mutex_destroy(&mutex);
}

TEST_F(LocksTest, UnknownModeLeavesTheMutexAlone) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  g_iMutexMode = 2;
  EXPECT_EQ(kavac_pthread_mutex_lock(&mutex, 0), -1);
  EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
  pthread_mutex_unlock(&mutex);
  EXPECT_TRUE(LogMessages().empty());
}

TEST_F(LocksTest, GetlockFailsAtOnceOnAFileLockedByAnotherProcess) {
  std::string path = home_.data("locked");
  PutFile(path, "x");
  int ready[2];
  int release[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(release), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int fd = open(path.c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    bool locked = fd >= 0 && fcntl(fd, F_SETLK, &lock) == 0;
    char byte = locked ? '1' : '0';
    (void)!write(ready[1], &byte, 1);
    (void)!read(release[0], &byte, 1);
    _exit(0);
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  ASSERT_EQ(byte, '1');

  int fd = open(path.c_str(), O_RDWR);
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(getlock(fd, F_WRLCK), 0);
  EXPECT_EQ(getlock(fd, F_RDLCK), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));

  (void)!write(release[1], "x", 1);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(getlock(fd, F_WRLCK), 1) << "free once the other process is gone";
  EXPECT_EQ(getlock(fd, F_UNLCK), 1);
  close(fd);

  auto messages = LogMessages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].substr(0, 42), "[0000000b] fcntl retry over(F_WRLCK)-p(0):");
  EXPECT_EQ(messages[1].substr(0, 42), "[0000000b] fcntl retry over(F_RDLCK)-p(0):");
}

}  // namespace
}  // namespace snmplumi::testing
