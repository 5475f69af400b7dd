// Shared by the simulator's tests: a minimal SNMP v1 manager (one request, one answer, real UDP)
// and three running cards.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "powernet.h"
#include "upssim_fixture.h"

namespace upssim::testing {

namespace mib = snmplumi::mib;

struct Target {
  std::string address;
  uint16_t port;
  std::string community = "public";
  int version = 0;  // on the wire: 0 SNMP v1, 1 v2c
  std::chrono::milliseconds timeout{1000};
};

struct Variable {
  std::string oid;
  int type = 0;  // ASN.1 type byte of the answer
  int64_t number = 0;
  std::string octets;  // OCTET STRING bytes, or the four bytes of an IpAddress
};

struct Answer {
  bool answered = false;  // false: no answer within the timeout
  long error_status = 0, error_index = 0;
  std::vector<Variable> variables;
};

struct Write {
  std::string oid;
  char type;  // net-snmp letter, as snmpset takes it
  std::string value;
};

Answer Get(const Target &target, const std::vector<std::string> &oids, bool next = false);
Answer Set(const Target &target, const std::vector<Write> &writes);
Variable Read(const Target &target, const std::string &oid);  // a GET that must succeed

// How long to wait for an answer that must not come: far above a loopback round trip.
inline constexpr std::chrono::milliseconds kNoAnswerWait{250};

// ups0 and ups1 with the default community, ups2 with "private". The simulator must stop cleanly:
// under the sanitizers a leak or undefined behaviour in it shows as its exit status.
class CardsTest : public ::testing::Test {
 protected:
  void TearDown() override {
    sim_->Stop();
    EXPECT_EQ(sim_->ExitStatus(), 0) << "the simulator did not stop cleanly";
  }
  Target At(const std::string &card, std::chrono::milliseconds timeout = kNoAnswerWait * 4) const {
    return {sim_->Address(card), sim_->Port(), card == "ups2" ? "private" : "public", 0, timeout};
  }

  std::unique_ptr<Simulator> sim_ = Simulator::Start(
      {{.name = "ups0"}, {.name = "ups1"}, {.name = "ups2", .community = "private"}});
  Target ups0_ = At("ups0"), ups1_ = At("ups1"), ups2_ = At("ups2");
};

}  // namespace upssim::testing
