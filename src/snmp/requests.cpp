// GET and SET of one UPS object: type letters, result codes and log lines. GET failures are
// logged only when the caller asks (the monitoring polls expect failures); SET failures always.
#include "snmp/requests.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "powernet.h"
#include "runtime/log_line.h"
#include "runtime/system_error.h"
#include "snmp/exchange.h"
#include "snmp/netsnmp.h"
#include "snmp/sessions.h"

// The exported copy of the OID; checked against the one in powernet.h.
constexpr char OID2upsBasicIdentName[] = ".1.3.6.1.4.1.318.1.1.1.1.1.2.0";

namespace snmplumi {
namespace {

static_assert(std::string_view(OID2upsBasicIdentName) == mib::upsBasicIdentName);

constexpr std::size_t kOidCapacity = 128;
constexpr int kLogExchange = 1;

struct AddVarError {
  int code;
  const char *text;
};

constexpr std::array kAddVarErrors = {
    AddVarError{SNMPERR_VAR_TYPE, "  snmp_add_var error! <SNMPERR_VAR_TYPE> "},
    AddVarError{SNMPERR_NULL_PDU, "  snmp_add_var error! <SNMPERR_NULL_PDU> "},
    AddVarError{SNMPERR_UNKNOWN_OBJID, "  snmp_add_var error! <SNMPERR_UNKNOWN_OBJID> "},
    AddVarError{SNMPERR_VALUE, "  snmp_add_var error! <SNMPERR_VALUE> "},
    AddVarError{SNMPERR_BAD_NAME, "  snmp_add_var error! <SNMPERR_BAD_NAME> "},
    AddVarError{SNMPERR_LONG_OID, "  snmp_add_var error! <SNMPERR_LONG_OID> "},
    AddVarError{SNMPERR_RANGE, "  snmp_add_var error! <SNMPERR_RANGE> "},
};
constexpr const char *kOtherAddVarError = "  snmp_add_var error!  ";

struct SetErrorRow {
  long status;
  const char *text;
  DWORD result;
};

// The number after "errorIndex=" is the error status itself; the log readers expect it so.
constexpr std::array kSetErrors = {
    SetErrorRow{SNMP_ERR_TOOBIG, "[s]SNMP Error: SNMP_ERR_TOOBIG, errorIndex=%d",
                UPS_E_CANT_ACCESS},
    SetErrorRow{SNMP_ERR_NOSUCHNAME, "[s]SNMP Error: SNMP_ERR_NOSUCHNAME, errorIndex=%d",
                UPS_E_CANT_ACCESS},
    SetErrorRow{SNMP_ERR_BADVALUE, "[s]SNMP Error: SNMP_ERR_BADVALUE, errorIndex=%d",
                UPS_E_INVALID_PARAM},
    SetErrorRow{SNMP_ERR_READONLY, "[s]SNMP Error: SNMP_ERR_READONLY, errorIndex=%d",
                UPS_E_CANT_ACCESS},
    SetErrorRow{SNMP_ERR_GENERR, "[s]SNMP Error: SNMP_ERR_GENERR, errorIndex=%d",
                UPS_E_CANT_ACCESS},
};
constexpr SetErrorRow kOtherSetError{0, "[s]SNMP Error: other, errorIndex=%d", UPS_E_CANT_ACCESS};

void FreePdu(netsnmp_pdu *pdu) {
  if (pdu == nullptr) return;
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  snmp_free_pdu(pdu);
}

netsnmp_pdu *CreatePdu(int command) {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  EnsureNetSnmp();
  return snmp_pdu_create(command);
}

void PrintOidError(const char *oid_text) {
  std::lock_guard<std::mutex> lock(NetSnmpMutex());
  snmp_perror(oid_text);
}

// The 32-bit value of an answer, whatever its type: integer types by value, anything else
// from its first bytes (as the card's bytes would have been read as an integer).
int32_t Int32Of(const netsnmp_variable_list &variable) {
  switch (variable.type) {
    case ASN_INTEGER:
    case ASN_COUNTER:
    case ASN_GAUGE:
    case ASN_TIMETICKS:
    case ASN_UINTEGER:
      return variable.val.integer != nullptr ? static_cast<int32_t>(*variable.val.integer) : 0;
    default: {
      int32_t value = 0;
      if (variable.val.string != nullptr) {
        std::memcpy(&value, variable.val.string, std::min<std::size_t>(variable.val_len, 4));
      }
      return value;
    }
  }
}

int StringLength(const netsnmp_variable_list &variable) {
  return variable.val.string != nullptr ? static_cast<int>(variable.val_len) : 0;
}

void CopyBytes(void *value, std::size_t value_size, const void *bytes, std::size_t length) {
  if (value == nullptr || bytes == nullptr || length == 0 || value_size == 0) return;
  std::memcpy(value, bytes, std::min(length, value_size));
}

// Copies one answered variable by the caller's letter (the received type is not checked).
// Returns false for an unknown letter. line receives the log text.
bool CopyByLetter(const netsnmp_variable_list &variable, char type, void *value,
                  std::size_t value_size, char (&line)[512]) {
  switch (type) {
    case 'i':
    case 'u':
    case 't':
    case 'a': {
      int32_t number = Int32Of(variable);
      static constexpr const char *kFormats[] = {"get = %d (type=i)", "get = %d (type=u)",
                                                 "get = %d(type=t)", "get = %d(type=a)"};
      const char *format = kFormats[type == 'i' ? 0 : type == 'u' ? 1 : type == 't' ? 2 : 3];
      std::snprintf(line, sizeof line, format, number);
      CopyBytes(value, value_size, &number, sizeof number);
      return true;
    }
    case 's':
    case 'x':
    case 'd':
      std::snprintf(line, sizeof line, "get = %.*s (type=s, x, d)", StringLength(variable),
                    reinterpret_cast<const char *>(variable.val.string));
      CopyBytes(value, value_size, variable.val.string, variable.val_len);
      return true;
    case 'o':
      std::snprintf(line, sizeof line, "get = ?(type=o)");
      CopyBytes(value, value_size, variable.val.objid, variable.val_len);
      return true;
    case 'n':
      std::snprintf(line, sizeof line, "get = null(type=n)");
      return true;
    default:
      return false;
  }
}

bool ParseName(const char *oid_text, oid *name, size_t *name_length) {
  *name_length = kOidCapacity;
  return xp_snmp_parse_oid(oid_text, name, name_length) != nullptr;
}

}  // namespace

const char *SlotAddress(int index) {
  if (index < 0 || index >= SNMPLUMI_UPS_SLOTS) return nullptr;
  return UpsIp[index];
}

DWORD GetValue(const char *ip, const char *oid_text, char type, void *value, std::size_t value_size,
               int logflag) {
  Session *session = SessionFor(ip);
  if (session == nullptr) return UPS_E_NO_SERVER;
  netsnmp_pdu *pdu = CreatePdu(SNMP_MSG_GET);
  oid name[kOidCapacity];
  size_t name_length = 0;
  if (pdu == nullptr || oid_text == nullptr || !ParseName(oid_text, name, &name_length)) {
    int error_number = errno;
    if (oid_text != nullptr) PrintOidError(oid_text);
    FreePdu(pdu);  // never sent: ours to free
    if (logflag == kLogExchange) {
      LogLine(static_cast<DWORD>(error_number), " Get:create err:%s", ErrnoText(error_number));
    }
    return UPS_E_NO_SERVER;
  }
  {
    std::lock_guard<std::mutex> lock(NetSnmpMutex());
    snmp_add_null_var(pdu, name, name_length);
  }

  netsnmp_pdu *response = nullptr;
  int status = Exchange(*session, pdu, &response);
  int error_number = errno;
  if (status == STAT_TIMEOUT) {
    if (logflag == kLogExchange) {
      LogLine(0, " get [%s][%s]", ip, oid_text);
      LogLine(static_cast<DWORD>(error_number), " Get Timeout: No Response from %s : %s", ip,
              ErrnoText(error_number));
    }
    return UPS_E_NO_SERVER;
  }
  if (status != STAT_SUCCESS) {
    if (logflag == kLogExchange) {
      LogLine(0, " get [%s][%s]", ip, oid_text);
      LogLine(static_cast<DWORD>(error_number), " Get ERROR:%d", status);
    }
    FreePdu(response);
    return UPS_E_NO_SERVER;
  }
  if (response->errstat != SNMP_ERR_NOERROR) {
    if (g_bDebugMode == 1) {
      const char *text;
      {
        std::lock_guard<std::mutex> lock(NetSnmpMutex());
        text = snmp_errstring(static_cast<int>(response->errstat));
      }
      LogLine(0, " get [%s][%s]", ip, oid_text);
      LogLine(static_cast<DWORD>(error_number), "  error: %s", text);
    }
    // No snmp_fix_pdu of the answer here: its result was never used, only leaked.
    FreePdu(response);
    return UPS_E_CANT_ACCESS;
  }

  DWORD result = 0;
  for (netsnmp_variable_list *variable = response->variables; variable != nullptr;
       variable = variable->next_variable) {
    if (logflag == kLogExchange) LogLine(0, " get [%s][%s]", ip, oid_text);
    char line[512];
    if (!CopyByLetter(*variable, type, value, value_size, line)) {
      if (logflag != kLogExchange) LogLine(0, " get [%s][%s]", ip, oid_text);
      LogLine(static_cast<DWORD>(static_cast<unsigned char>(type)), " get = \\?\\?(type=\\?:[%c])",
              type);
      result = 1;
      break;
    }
    if (logflag == kLogExchange) LogLine(0, "%s", line);
  }
  FreePdu(response);
  return result;
}

DWORD SetValue(const char *ip, const char *oid_text, char type, const void *value) {
  if (oid_text == nullptr || value == nullptr) return UPS_E_NO_SERVER;
  char number_text[32];
  const char *text = static_cast<const char *>(value);
  if (type == 'i') {
    int32_t number;
    std::memcpy(&number, value, sizeof number);
    std::snprintf(number_text, sizeof number_text, "%ld", static_cast<long>(number));
    text = number_text;
  } else if (type == 't') {
    uint32_t number;
    std::memcpy(&number, value, sizeof number);
    std::snprintf(number_text, sizeof number_text, "%lu", static_cast<unsigned long>(number));
    text = number_text;
  } else if (type != 's') {
    // How 'u' and 'a' values travel: as text that net-snmp converts.
    LogLine(0, "SnmpSetR: unknown type? : (%c)", type);
  }

  Session *session = SessionFor(ip);
  if (session == nullptr) return UPS_E_NO_SERVER;
  netsnmp_pdu *pdu = CreatePdu(SNMP_MSG_SET);
  if (g_bDebugMode == 1 || std::strcmp(oid_text, OID2upsBasicIdentName) != 0) {
    LogLine(0, " Set[%d] names=[%s] types=[%c] val=[%s]", 0, oid_text, type, text);
  }

  int failures = 0;
  oid name[kOidCapacity];
  size_t name_length = 0;
  if (pdu == nullptr || !ParseName(oid_text, name, &name_length)) {
    LogLine(0, "  xp_snmp_parse_oid error! ");
    PrintOidError(oid_text);
    ++failures;
  } else {
    int added;
    {
      std::lock_guard<std::mutex> lock(NetSnmpMutex());
      added = snmp_add_var(pdu, name, name_length, type, text);
    }
    if (added != 0) {
      const char *line = kOtherAddVarError;
      for (const AddVarError &row : kAddVarErrors) {
        if (row.code == added) line = row.text;
      }
      LogLine(static_cast<DWORD>(added), "%s", line);
      PrintOidError(oid_text);
      ++failures;
    }
  }
  if (failures != 0) {
    int error_number = errno;
    FreePdu(pdu);  // never sent: ours to free
    LogLine(static_cast<DWORD>(failures), " snmp create err:%s", ErrnoText(error_number));
    return UPS_E_NO_SERVER;
  }

  netsnmp_pdu *response = nullptr;
  int status = Exchange(*session, pdu, &response);
  int error_number = errno;
  if (status == STAT_SUCCESS && response->errstat == SNMP_ERR_NOERROR) {
    if (g_bDebugMode == 1) {
      for (netsnmp_variable_list *variable = response->variables; variable != nullptr;
           variable = variable->next_variable) {
        if (type == 's') {
          LogLine(0, " snmp:OK(%d.%d) Val=[%.*s]", status, 0, StringLength(*variable),
                  reinterpret_cast<const char *>(variable->val.string));
        } else {
          LogLine(0, " snmp:OK(%d.%d) Val=[%d]", status, 0, Int32Of(*variable));
        }
      }
    }
    FreePdu(response);
    return 0;
  }
  if (status == STAT_SUCCESS) {
    long error_status = response->errstat;
    const SetErrorRow *row = &kOtherSetError;
    for (const SetErrorRow &candidate : kSetErrors) {
      if (candidate.status == error_status) row = &candidate;
    }
    LogLine(0, row->text, static_cast<int>(error_status));
    FreePdu(response);
    return row->result;
  }
  if (status == STAT_TIMEOUT) {
    LogLine(static_cast<DWORD>(error_number), "  Timeout: No Response from %s : %s", ip,
            ErrnoText(error_number));
  } else {
    LogLine(static_cast<DWORD>(error_number), "  ERROR:%d", status);
  }
  FreePdu(response);
  return UPS_E_NO_SERVER;
}

}  // namespace snmplumi

DWORD SnmpGetR(const char *IP, const char *OID, char type, char *Value, int logflag) {
  return snmplumi::GetValue(IP, OID, type, Value, snmplumi::kExportedValueLimit, logflag);
}

DWORD SnmpSetR(const char *IP, const char *OID, char type, const char *Value) {
  return snmplumi::SetValue(IP, OID, type, Value);
}

DWORD SnmpGet(const char *OID, char type, char *Value, unsigned char msgf, int index) {
  const char *address = snmplumi::SlotAddress(index);
  if (address == nullptr) return UPS_E_NO_SERVER;
  return snmplumi::GetValue(address, OID, type, Value, snmplumi::kExportedValueLimit, msgf);
}

DWORD SnmpSet(const char *OID, char type, const char *Value, int ups_index) {
  const char *address = snmplumi::SlotAddress(ups_index);
  if (address == nullptr) return UPS_E_NO_SERVER;
  return snmplumi::SetValue(address, OID, type, Value);
}
