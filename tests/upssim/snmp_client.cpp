#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <stdexcept>

#include "test_cards.h"

namespace upssim::testing {
namespace {

// No MIB files and no snmp.conf: numeric OIDs, and settings only from the session.
void InitNetSnmpOnce() {
  [[maybe_unused]] static const bool initialised = [] {
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    snmp_disable_log();
    init_snmp("upssim-tests");
    return true;
  }();
}

Answer Exchange(const Target &target, int command, const std::vector<Write> &writes) {
  InitNetSnmpOnce();
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
  settings.version = target.version;
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
  if (response != nullptr) snmp_free_pdu(response);
  snmp_sess_close(session);
  return answer;
}

}  // namespace

Answer Get(const Target &target, const std::vector<std::string> &oids, bool next) {
  std::vector<Write> names;
  for (const std::string &oid : oids) names.push_back({oid, 0, ""});
  return Exchange(target, next ? SNMP_MSG_GETNEXT : SNMP_MSG_GET, names);
}

Answer Set(const Target &target, const std::vector<Write> &writes) {
  return Exchange(target, SNMP_MSG_SET, writes);
}

Variable Read(const Target &target, const std::string &oid) {
  Answer answer = Get(target, {oid});
  if (!answer.answered || answer.error_status != 0 || answer.variables.size() != 1) {
    throw std::runtime_error("GET " + oid + ": no answer or error " +
                             std::to_string(answer.error_status));
  }
  return answer.variables.front();
}

}  // namespace upssim::testing
