// The scenario file: which cards to start, where, and with which values.
#pragma once

#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

#include "value.h"

namespace upssim {

// "FILE:LINE: what is wrong", one line.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Override {
  std::size_t object;
  Value value;
};

struct CardPlan {
  std::string name;
  std::string address;
  std::uint16_t port;
  std::string community;
  std::vector<Override> overrides;  // in file order, after the file-wide ones
};

inline constexpr std::size_t kMaxCards = 4096;
inline constexpr std::uint16_t kDefaultPort = 161;

std::vector<CardPlan> LoadScenario(const std::string &path);
std::vector<CardPlan> ParseScenario(std::istream &in, const std::string &file_name);

}  // namespace upssim
