#include "snmp_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <poll.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace upssim::testing {
namespace {

constexpr char kApplication[] = "upssim-tests";

// net-snmp for the test process: no MIB files, no snmp.conf, nothing written at exit.
class NetSnmpEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    snmp_disable_log();
    init_snmp(kApplication);
  }
  void TearDown() override { snmp_shutdown(kApplication); }
};

[[maybe_unused]] ::testing::Environment *const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new NetSnmpEnvironment);

Answer Exchange(const Target &target, netsnmp_pdu *request) {
  netsnmp_session settings;
  snmp_sess_init(&settings);
  std::string peer = target.address + ":" + std::to_string(target.port);
  settings.peername = peer.data();
  settings.version = target.version;
  settings.community = reinterpret_cast<u_char *>(const_cast<char *>(target.community.data()));
  settings.community_len = target.community.size();
  settings.timeout = static_cast<long>(target.timeout.count()) * 1000;
  settings.retries = 0;
  void *session = snmp_sess_open(&settings);
  if (session == nullptr) {
    snmp_free_pdu(request);
    throw std::runtime_error("cannot open an SNMP session to " + peer);
  }
  netsnmp_pdu *response = nullptr;
  Answer answer;
  if (snmp_sess_synch_response(session, request, &response) == STAT_SUCCESS) {
    answer.answered = true;
    answer.error_status = response->errstat;
    answer.error_index = response->errindex;
    for (netsnmp_variable_list *var = response->variables; var; var = var->next_variable) {
      Variable variable;
      for (size_t i = 0; i < var->name_length; ++i) {
        variable.oid += "." + std::to_string(var->name[i]);
      }
      variable.type = var->type;
      if (var->type == ASN_OCTET_STR || var->type == ASN_IPADDRESS) {
        variable.octets.assign(reinterpret_cast<const char *>(var->val.string), var->val_len);
      } else if (var->type == ASN_GAUGE || var->type == ASN_TIMETICKS) {
        variable.number = static_cast<uint32_t>(*var->val.integer);
      } else if (var->type == ASN_INTEGER) {
        variable.number = *var->val.integer;
      }
      answer.variables.push_back(variable);
    }
  }
  if (response != nullptr) snmp_free_pdu(response);
  snmp_sess_close(session);
  return answer;
}

void AddName(netsnmp_pdu *pdu, const std::string &text, char type, const char *value) {
  oid name[MAX_OID_LEN];
  size_t length = MAX_OID_LEN;
  if (read_objid(text.c_str(), name, &length) == 0) {
    snmp_free_pdu(pdu);
    throw std::runtime_error("bad OID " + text);
  }
  if (value == nullptr) {
    snmp_add_null_var(pdu, name, length);
  } else if (snmp_add_var(pdu, name, length, type, value) != 0) {
    snmp_free_pdu(pdu);
    throw std::runtime_error("cannot encode " + text + " " + type + " " + value);
  }
}

}  // namespace

const Variable &Answer::Only() const {
  if (variables.size() != 1) throw std::runtime_error("answer does not hold one variable");
  return variables.front();
}

TrapListener::TrapListener() {
  netsnmp_transport *transport = netsnmp_transport_open_server(kApplication, "udp:127.0.0.1:0");
  if (transport == nullptr) throw std::runtime_error("cannot open a trap listener");
  sockaddr_in local{};
  socklen_t length = sizeof local;
  getsockname(transport->sock, reinterpret_cast<sockaddr *>(&local), &length);
  port_ = ntohs(local.sin_port);
  socket_ = transport->sock;
  netsnmp_session settings;
  snmp_sess_init(&settings);
  settings.callback = &TrapListener::Received;
  settings.callback_magic = this;
  session_ = snmp_sess_add(&settings, transport, nullptr, nullptr);
  if (session_ == nullptr) throw std::runtime_error("cannot add the trap listener's session");
}

TrapListener::~TrapListener() { snmp_sess_close(session_); }

int TrapListener::Received(int operation, netsnmp_session *, int, netsnmp_pdu *pdu, void *magic) {
  if (operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE || pdu->command != SNMP_MSG_TRAP) return 1;
  Trap trap;
  if (pdu->transport_data != nullptr) {
    const auto *pair = static_cast<const netsnmp_indexed_addr_pair *>(pdu->transport_data);
    trap.from = inet_ntoa(pair->remote_addr.sin.sin_addr);
  }
  trap.community.assign(reinterpret_cast<const char *>(pdu->community), pdu->community_len);
  for (size_t i = 0; i < pdu->enterprise_length; ++i) {
    trap.enterprise += "." + std::to_string(pdu->enterprise[i]);
  }
  in_addr agent{};
  std::memcpy(&agent, pdu->agent_addr, sizeof agent);
  trap.agent_address = inet_ntoa(agent);
  trap.generic = pdu->trap_type;
  trap.specific = pdu->specific_type;
  trap.time = pdu->time;
  static_cast<TrapListener *>(magic)->received_.push_back(trap);
  return 1;
}

std::optional<Trap> TrapListener::Next(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (received_.empty()) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd readable{socket_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket_, &set);
    snmp_sess_read(session_, &set);
  }
  Trap trap = received_.front();
  received_.erase(received_.begin());
  return trap;
}

Answer Get(const Target &target, const std::vector<std::string> &oids) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
  for (const std::string &oid : oids) AddName(pdu, oid, 0, nullptr);
  return Exchange(target, pdu);
}

Answer GetNext(const Target &target, const std::string &oid) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GETNEXT);
  AddName(pdu, oid, 0, nullptr);
  return Exchange(target, pdu);
}

Answer Set(const Target &target, const std::vector<Write> &writes) {
  netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_SET);
  for (const Write &write : writes) AddName(pdu, write.oid, write.type, write.value.c_str());
  return Exchange(target, pdu);
}

}  // namespace upssim::testing
