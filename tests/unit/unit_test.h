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

}  // namespace snmplumi::testing
