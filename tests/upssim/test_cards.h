// A minimal SNMP v1 manager (one request, one answer, real UDP) and three running cards.
#pragma once

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "powernet.h"
#include "upssim_fixture.h"

namespace upssim::testing {

namespace mib = snmplumi::mib;

// For an answer that must not come: far above a loopback round trip.
inline constexpr std::chrono::milliseconds kNoAnswerWait{250};

struct Target {
  std::string address;
  uint16_t port;
  std::string community = "public";
  std::chrono::milliseconds timeout = kNoAnswerWait * 4;
};

struct Variable {
  std::string oid;
  int type = 0;  // ASN.1 type byte
  int64_t number = 0;
  std::string octets;  // of an OCTET STRING or IpAddress
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

// A SET of `writes`, or a GET of their OIDs.
inline Answer Exchange(const Target &target, int command, const std::vector<Write> &writes) {
  [[maybe_unused]] static const bool initialised = [] {  // numeric OIDs, no snmp.conf
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    snmp_disable_log();
    init_snmp("upssim-tests");
    return true;
  }();
  netsnmp_pdu *request = snmp_pdu_create(command);
  for (const Write &write : writes) {
    oid name[MAX_OID_LEN];
    size_t length = MAX_OID_LEN;
    bool named = read_objid(write.oid.c_str(), name, &length) != 0;
    if (named && command != SNMP_MSG_SET) {
      snmp_add_null_var(request, name, length);
    } else if (!named || snmp_add_var(request, name, length, write.type, write.value.c_str())) {
      snmp_free_pdu(request);
      throw std::runtime_error("cannot encode " + write.oid + " " + write.value);
    }
  }
  netsnmp_session settings;
  snmp_sess_init(&settings);
  std::string peer = target.address + ":" + std::to_string(target.port);
  settings.peername = peer.data();
  settings.version = SNMP_VERSION_1;
  settings.community = reinterpret_cast<u_char *>(const_cast<char *>(target.community.data()));
  settings.community_len = target.community.size();
  settings.timeout = static_cast<long>(target.timeout.count()) * 1000;
  settings.retries = 0;
  void *session = snmp_sess_open(&settings);
  if (session == nullptr) throw std::runtime_error("cannot open an SNMP session to " + peer);
  netsnmp_pdu *response = nullptr;
  Answer answer;
  if (snmp_sess_synch_response(session, request, &response) == STAT_SUCCESS) {
    answer = {true, response->errstat, response->errindex, {}};
    for (netsnmp_variable_list *var = response->variables; var; var = var->next_variable) {
      Variable &variable = answer.variables.emplace_back();
      for (size_t i = 0; i < var->name_length; ++i) {
        variable.oid += "." + std::to_string(var->name[i]);
      }
      variable.type = var->type;
      if (var->type == ASN_OCTET_STR || var->type == ASN_IPADDRESS) {
        variable.octets.assign(reinterpret_cast<const char *>(var->val.string), var->val_len);
      } else if (var->type == ASN_INTEGER || var->type == ASN_GAUGE || var->type == ASN_TIMETICKS) {
        long number = *var->val.integer;  // Gauge32 and TimeTicks unsigned
        variable.number = var->type == ASN_INTEGER ? number : static_cast<uint32_t>(number);
      }
    }
  }
  snmp_free_pdu(response);
  snmp_sess_close(session);
  return answer;
}

inline Answer Get(const Target &target, const std::vector<std::string> &oids) {
  std::vector<Write> names;
  for (const std::string &oid : oids) names.push_back({oid, 0, ""});
  return Exchange(target, SNMP_MSG_GET, names);
}

inline Answer Set(const Target &target, const std::vector<Write> &writes) {
  return Exchange(target, SNMP_MSG_SET, writes);
}

inline Variable Read(const Target &target, const std::string &oid) {  // a GET that must succeed
  Answer answer = Get(target, {oid});
  if (!answer.answered || answer.error_status != 0 || answer.variables.size() != 1) {
    throw std::runtime_error("GET " + oid + ": error " + std::to_string(answer.error_status));
  }
  return answer.variables.front();
}

// ups2's community is "private". Under the sanitizers a leak or undefined behaviour in the
// simulator shows as its exit status.
class CardsTest : public ::testing::Test {
 protected:
  void TearDown() override {
    sim_->Stop();
    EXPECT_EQ(sim_->ExitStatus(), 0) << "the simulator did not stop cleanly";
  }
  Target At(const std::string &card, std::chrono::milliseconds timeout = kNoAnswerWait * 4) const {
    return {sim_->Address(card), sim_->Port(), card == "ups2" ? "private" : "public", timeout};
  }

  std::unique_ptr<Simulator> sim_ = Simulator::Start(
      {{.name = "ups0"}, {.name = "ups1"}, {.name = "ups2", .community = "private"}});
  Target ups0_ = At("ups0"), ups1_ = At("ups1"), ups2_ = At("ups2");
};

}  // namespace upssim::testing
