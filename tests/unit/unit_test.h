#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "snmplumi.h"
#include "test_home.h"

namespace snmplumi::testing {

class HomeTest : public ::testing::Test {
 protected:
  TempHome home_;
};

inline void RunThreads(int count, const std::function<void(int)> &body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
  for (auto &thread : threads) thread.join();
}

}  // namespace snmplumi::testing
