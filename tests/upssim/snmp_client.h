// A minimal SNMP v1 manager for the simulator's tests: one request, one answer, real UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace upssim::testing {

struct Target {
  std::string address;
  uint16_t port;
  std::string community = "public";
  int version = 0;  // on the wire: 0 SNMP v1, 1 v2c
  std::chrono::milliseconds timeout{1000};
};

struct Variable {
  std::string oid;
  int type = 0;  // ASN.1 type byte of the answer (ASN_INTEGER, ASN_GAUGE, ...)
  int64_t number = 0;
  std::string octets;  // OCTET STRING bytes, or the four bytes of an IpAddress
};

struct Answer {
  bool answered = false;  // false: timeout or no answer
  long error_status = 0;
  long error_index = 0;
  std::vector<Variable> variables;

  const Variable &Only() const;  // the single variable of a one-variable answer
};

struct Write {
  std::string oid;
  char type;  // net-snmp letter, as snmpset takes it
  std::string value;
};

Answer Get(const Target &target, const std::vector<std::string> &oids);
Answer GetNext(const Target &target, const std::string &oid);
Answer Set(const Target &target, const std::vector<Write> &writes);

}  // namespace upssim::testing
