#include "agent.h"

#include <arpa/inet.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "hostile.h"

namespace upssim {

struct Agent::Endpoint {
  Agent *agent;
  Card *card;
  snmp_session *session = nullptr;  // the card's server session, which also sends its traps
};

struct Agent::Pending {
  Clock::time_point due;
  snmp_session *session;
  snmp_pdu *response;
  snmp_pdu *request;  // kept to answer tooBig should the response not fit a datagram
};

namespace {

constexpr char kApplication[] = "snmplumi-upssim";
// Enterprise of the traps a card sends: apc.
constexpr oid kApcEnterprise[] = {1, 3, 6, 1, 4, 1, 318};

u_char AsnType(Type type) {
  switch (type) {
    case Type::kInteger:
      return ASN_INTEGER;
    case Type::kGauge32:
      return ASN_GAUGE;
    case Type::kTimeTicks:
      return ASN_TIMETICKS;
    case Type::kOctetString:
      return ASN_OCTET_STR;
    case Type::kIpAddress:
      return ASN_IPADDRESS;
  }
  return ASN_NULL;
}

// The value a varbind of a request carries, as a card value; nullopt for a type no PowerNet
// object has (a SET of it is a badValue).
std::optional<Value> FromVarbind(const netsnmp_variable_list &var) {
  Value value;
  switch (var.type) {
    case ASN_INTEGER:
      value.type = Type::kInteger;
      value.number = static_cast<std::int32_t>(*var.val.integer);
      return value;
    case ASN_GAUGE:
    case ASN_TIMETICKS:
      value.type = var.type == ASN_GAUGE ? Type::kGauge32 : Type::kTimeTicks;
      value.number = static_cast<std::uint32_t>(*var.val.integer);
      return value;
    case ASN_IPADDRESS:
      if (var.val_len != 4) return std::nullopt;
      value.type = Type::kIpAddress;
      value.number = (std::uint32_t{var.val.string[0]} << 24) | (var.val.string[1] << 16) |
                     (var.val.string[2] << 8) | var.val.string[3];
      return value;
    case ASN_OCTET_STR:
      value.type = Type::kOctetString;
      value.octets.assign(reinterpret_cast<const char *>(var.val.string), var.val_len);
      return value;
    default:
      return std::nullopt;
  }
}

// Type letter and value text of a received varbind, for the journal.
std::pair<char, std::string> Describe(const netsnmp_variable_list &var) {
  if (auto value = FromVarbind(var)) {
    return {static_cast<char>(value->type), FormatValue(*value)};
  }
  switch (var.type) {
    case ASN_OBJECT_ID: {
      std::string text;
      for (std::size_t i = 0; i < var.val_len / sizeof(oid); ++i) {
        text += "." + std::to_string(var.val.objid[i]);
      }
      return {'o', text};
    }
    case ASN_NULL:
      return {'n', ""};
    case ASN_COUNTER:
      return {'c', std::to_string(static_cast<std::uint32_t>(*var.val.integer))};
    default:
      return {'?', ""};
  }
}

void ToVarbind(netsnmp_variable_list &var, const Value &value) {
  switch (value.type) {
    case Type::kInteger: {
      long number = static_cast<long>(value.number);
      snmp_set_var_typed_value(&var, ASN_INTEGER, &number, sizeof number);
      break;
    }
    case Type::kGauge32:
    case Type::kTimeTicks: {
      u_long number = static_cast<u_long>(value.number);
      snmp_set_var_typed_value(&var, AsnType(value.type), &number, sizeof number);
      break;
    }
    case Type::kIpAddress: {
      in_addr_t address = htonl(static_cast<std::uint32_t>(value.number));
      snmp_set_var_typed_value(&var, ASN_IPADDRESS, &address, sizeof address);
      break;
    }
    case Type::kOctetString:
      snmp_set_var_typed_value(&var, ASN_OCTET_STR, value.octets.data(), value.octets.size());
      break;
  }
}

Oid VarOid(const netsnmp_variable_list &var) { return Oid(var.name, var.name + var.name_length); }

bool FromLoopback(const snmp_pdu &pdu) {
  if (pdu.transport_data == nullptr ||
      pdu.transport_data_length < static_cast<int>(sizeof(sockaddr_in))) {
    return false;
  }
  const auto *from = static_cast<const netsnmp_sockaddr_storage *>(pdu.transport_data);
  return from->sa.sa_family == AF_INET && (ntohl(from->sin.sin_addr.s_addr) >> 24) == 127;
}

bool BoundToLoopback(int socket) {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  if (getsockname(socket, reinterpret_cast<sockaddr *>(&local), &length) != 0) return false;
  return local.sin_family == AF_INET && (ntohl(local.sin_addr.s_addr) >> 24) == 127;
}

// Why a bind to address:port fails, found by trying it with a plain socket.
int BindErrno(const std::string &address, std::uint16_t port) {
  int probe = socket(AF_INET, SOCK_DGRAM, 0);
  if (probe < 0) return errno;
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &local.sin_addr);
  int result = bind(probe, reinterpret_cast<sockaddr *>(&local), sizeof local) == 0 ? 0 : errno;
  close(probe);
  return result;
}

}  // namespace

void InitNetSnmp() {
  setenv("MIBS", "", 1);
  setenv("MIBDIRS", "", 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  snmp_disable_log();
  init_snmp(kApplication);
}

void ShutdownNetSnmp() {
  snmp_close_sessions();
  snmp_shutdown(kApplication);
}

bool IsLoopbackAddress(const std::string &address) {
  in_addr parsed{};
  return inet_pton(AF_INET, address.c_str(), &parsed) == 1 && (ntohl(parsed.s_addr) >> 24) == 127;
}

Agent::Agent(std::vector<Card> &cards, Journal &journal) : cards_(cards), journal_(journal) {}

Agent::~Agent() {
  for (Pending &pending : pending_) {
    snmp_free_pdu(pending.response);
    snmp_free_pdu(pending.request);
  }
}

bool Agent::Bind(std::string &error, bool &address_in_use) {
  address_in_use = false;
  for (Card &card : cards_) {
    std::string where = card.address() + ":" + std::to_string(card.port());
    if (!IsLoopbackAddress(card.address())) {
      error = "card " + card.name() + ": " + card.address() + " is not a loopback address";
      return false;
    }
    netsnmp_transport *transport =
        netsnmp_transport_open_server(kApplication, ("udp:" + where).c_str());
    if (transport == nullptr) {
      int reason = BindErrno(card.address(), card.port());
      address_in_use = reason == EADDRINUSE;
      error = "cannot bind card " + card.name() + " to " + where + ": " +
              (reason != 0 ? std::strerror(reason) : "net-snmp refused the address");
      if (reason == EACCES) error += " (ports below 1024 need privileges; choose another port)";
      return false;
    }
    if (!BoundToLoopback(transport->sock)) {
      transport->f_close(transport);
      netsnmp_transport_free(transport);
      error = "card " + card.name() + ": socket is not bound to loopback; refusing to serve";
      return false;
    }
    endpoints_.push_back(std::make_unique<Endpoint>(Endpoint{this, &card}));
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_VERSION_1;
    session.retries = 0;
    session.timeout = 0;
    session.callback = &Agent::Callback;
    session.callback_magic = endpoints_.back().get();
    session.isAuthoritative = SNMP_SESS_UNKNOWNAUTH;
    endpoints_.back()->session = snmp_add(&session, transport, nullptr, nullptr);
    if (endpoints_.back()->session == nullptr) {
      error = "cannot open an SNMP session for card " + card.name() + " on " + where;
      return false;
    }
  }
  return true;
}

int Agent::Callback(int operation, snmp_session *session, int, snmp_pdu *pdu, void *magic) {
  if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && pdu != nullptr) {
    auto *endpoint = static_cast<Endpoint *>(magic);
    endpoint->agent->Answer(*endpoint->card, session, pdu);
  }
  return 1;  // net-snmp frees the request
}

void Agent::Answer(Card &card, snmp_session *session, snmp_pdu *request) {
  if (request->version != SNMP_VERSION_1 || !FromLoopback(*request)) return;
  int command = request->command;
  if (command != SNMP_MSG_GET && command != SNMP_MSG_GETNEXT && command != SNMP_MSG_SET) return;
  bool community_ok =
      request->community != nullptr && request->community_len == card.community().size() &&
      std::memcmp(request->community, card.community().data(), request->community_len) == 0;
  if (community_ok) card.CountRequest();
  // Lost requests get no answer; the journal still shows that the order arrived. A wrong
  // community or a silent card loses it before the drop counters see it.
  const char *lost = !community_ok          ? "badCommunity"
                     : card.faults().silent ? "silent"
                     : card.faults().Lose() ? "dropped"
                                            : nullptr;
  if (lost != nullptr) {
    if (command == SNMP_MSG_SET) JournalSet(card, request, lost);
    return;
  }
  Clock::time_point now = Clock::now();
  long error_index = 0;
  snmp_pdu *response = snmp_clone_pdu(request);
  if (response == nullptr) return;
  int status = command == SNMP_MSG_SET
                   ? Set(card, request, now, error_index)
                   : Get(card, response, command == SNMP_MSG_GETNEXT, now, error_index);
  if (status != kNoError) {
    // v1: an error answer carries the request's variables unchanged.
    snmp_free_pdu(response);
    response = snmp_clone_pdu(request);
    if (response == nullptr) return;
  }
  response->command = SNMP_MSG_RESPONSE;
  response->errstat = status;
  response->errindex = error_index;
  if (command == SNMP_MSG_SET) JournalSet(card, request, ErrorStatusName(status));
  snmp_pdu *request_copy = snmp_clone_pdu(request);
  if (card.faults().delay.count() > 0) {
    pending_.push_back(Pending{now + card.faults().delay, session, response, request_copy});
  } else {
    Send(session, response, request_copy);
  }
}

int Agent::Get(Card &card, snmp_pdu *response, bool next, Clock::time_point now,
               long &error_index) {
  long position = 0;
  for (netsnmp_variable_list *var = response->variables; var != nullptr; var = var->next_variable) {
    ++position;
    error_index = position;
    std::optional<std::size_t> object = next ? NextObject(VarOid(*var)) : FindObject(VarOid(*var));
    if (!object) return kNoSuchName;
    if (auto error = card.faults().errors.find({*object, Operation::kGet});
        error != card.faults().errors.end()) {
      return error->second;
    }
    Value value = card.Read(*object, now);
    if (auto oversize = card.faults().oversize.find(*object);
        oversize != card.faults().oversize.end() && value.type == Type::kOctetString) {
      // The real value first, then filler, to exactly the asked length.
      value.octets.resize(oversize->second, 'X');
    }
    if (next) {
      const Oid &name = ObjectOid(*object);
      std::vector<oid> converted(name.begin(), name.end());
      snmp_set_var_objid(var, converted.data(), converted.size());
    }
    if (Faults &faults = card.faults(); faults.hostile_seed) {
      SetHostileValue(*var, value, HostileDraw(*faults.hostile_seed, faults.hostile_count++));
    } else {
      ToVarbind(*var, value);
    }
  }
  error_index = 0;
  return kNoError;
}

int Agent::Set(Card &card, snmp_pdu *request, Clock::time_point now, long &error_index) {
  // v1 SETs are all or nothing: check every variable before changing anything.
  std::vector<std::pair<std::size_t, Value>> writes;
  long position = 0;
  for (netsnmp_variable_list *var = request->variables; var != nullptr; var = var->next_variable) {
    error_index = ++position;
    std::optional<std::size_t> object = FindObject(VarOid(*var));
    if (!object) return kNoSuchName;
    if (auto error = card.faults().errors.find({*object, Operation::kSet});
        error != card.faults().errors.end()) {
      return error->second;
    }
    std::optional<Value> value = FromVarbind(*var);
    if (!value) return Objects()[*object].access == Access::kReadOnly ? kNoSuchName : kBadValue;
    if (int status = card.CheckSet(*object, *value, now); status != kNoError) return status;
    writes.emplace_back(*object, std::move(*value));
  }
  for (auto &[object, value] : writes) card.ApplySet(object, value, now);
  error_index = 0;
  return kNoError;
}

void Agent::JournalSet(const Card &card, snmp_pdu *request, const std::string &answer) {
  for (netsnmp_variable_list *var = request->variables; var != nullptr; var = var->next_variable) {
    auto [type, text] = Describe(*var);
    journal_.Write(card.name(), FormatOid(VarOid(*var)), type, text, answer);
  }
}

void Agent::Send(snmp_session *session, snmp_pdu *response, snmp_pdu *request) {
  if (snmp_send(session, response) == 0) {
    snmp_free_pdu(response);
    // Too large for one datagram: a card answers tooBig with the request's variables.
    if (request != nullptr) {
      request->command = SNMP_MSG_RESPONSE;
      request->errstat = kTooBig;
      request->errindex = 0;
      if (snmp_send(session, request) != 0) return;
    }
  }
  if (request != nullptr) snmp_free_pdu(request);
}

bool Agent::SendTrap(const Card &card, long generic, long specific, const std::string &address,
                     std::uint16_t port, std::string &error) {
  auto endpoint = std::find_if(endpoints_.begin(), endpoints_.end(),
                               [&](const auto &candidate) { return candidate->card == &card; });
  in_addr destination{};
  in_addr agent_address{};
  if (!IsLoopbackAddress(address) || inet_pton(AF_INET, address.c_str(), &destination) != 1) {
    error = address + " is not a loopback address";
    return false;
  }
  if (endpoint == endpoints_.end() ||
      inet_pton(AF_INET, card.address().c_str(), &agent_address) != 1) {
    error = "card " + card.name() + " has no session";
    return false;
  }
  snmp_pdu *trap = snmp_pdu_create(SNMP_MSG_TRAP);
  trap->enterprise = snmp_duplicate_objid(kApcEnterprise, std::size(kApcEnterprise));
  trap->enterprise_length = std::size(kApcEnterprise);
  trap->trap_type = generic;
  trap->specific_type = specific;
  trap->time = static_cast<u_long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_).count() / 10);
  std::memcpy(trap->agent_addr, &agent_address, sizeof trap->agent_addr);
  trap->community = static_cast<u_char *>(std::malloc(card.community().size() + 1));
  std::memcpy(trap->community, card.community().c_str(), card.community().size() + 1);
  trap->community_len = card.community().size();
  // Where to: net-snmp's UDP transport sends a PDU to its address pair, as it sends an answer.
  auto *to =
      static_cast<netsnmp_indexed_addr_pair *>(std::calloc(1, sizeof(netsnmp_indexed_addr_pair)));
  to->remote_addr.sin.sin_family = AF_INET;
  to->remote_addr.sin.sin_port = htons(port);
  to->remote_addr.sin.sin_addr = destination;
  trap->transport_data = to;
  trap->transport_data_length = sizeof(netsnmp_indexed_addr_pair);
  if (snmp_send((*endpoint)->session, trap) == 0) {
    int library_error = 0, system_error = 0;
    char *text = nullptr;
    snmp_error((*endpoint)->session, &library_error, &system_error, &text);
    error = std::string("cannot send the trap: ") + (text != nullptr ? text : "net-snmp failed");
    std::free(text);
    snmp_free_pdu(trap);
    return false;
  }
  return true;
}

std::optional<Clock::duration> Agent::SendDue(Clock::time_point now) {
  std::optional<Clock::duration> next;
  std::vector<Pending> due;
  std::erase_if(pending_, [&](const Pending &pending) {
    if (pending.due <= now) {
      due.push_back(pending);
      return true;
    }
    Clock::duration wait = pending.due - now;
    if (!next || wait < *next) next = wait;
    return false;
  });
  // Oldest first, so that equal delays keep the order of the requests.
  std::stable_sort(due.begin(), due.end(),
                   [](const Pending &a, const Pending &b) { return a.due < b.due; });
  for (Pending &pending : due) Send(pending.session, pending.response, pending.request);
  return next;
}

}  // namespace upssim
