// A minimal SNMP v1 manager for the simulator's tests: one request, one answer, real UDP.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct snmp_session;
struct snmp_pdu;

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

// An SNMP v1 trap as a manager receives it.
struct Trap {
  std::string from;  // source address of the datagram
  std::string community, enterprise, agent_address;
  long generic = -1, specific = -1;
  unsigned long time = 0;  // hundredths of a second
};

// A trap receiver on 127.0.0.1 and a port of its own.
class TrapListener {
 public:
  TrapListener();
  ~TrapListener();
  TrapListener(const TrapListener &) = delete;
  TrapListener &operator=(const TrapListener &) = delete;

  uint16_t Port() const { return port_; }
  // The next trap received within timeout, if any.
  std::optional<Trap> Next(std::chrono::milliseconds timeout);

 private:
  static int Received(int operation, snmp_session *session, int request_id, snmp_pdu *pdu,
                      void *magic);

  void *session_ = nullptr;
  int socket_ = -1;
  uint16_t port_ = 0;
  std::vector<Trap> received_;
};

Answer Get(const Target &target, const std::vector<std::string> &oids);
Answer GetNext(const Target &target, const std::string &oid);
Answer Set(const Target &target, const std::vector<Write> &writes);

}  // namespace upssim::testing
