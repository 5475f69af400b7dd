#include "snmp/netsnmp.h"

namespace snmplumi {
namespace {

bool g_initialised = false;
constexpr char kAppName[] = "snmplumi";

}  // namespace

std::mutex &NetSnmpMutex() {
  static std::mutex mutex;
  return mutex;
}

void EnsureNetSnmp() {
  if (g_initialised) return;
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
  // No MIB directory and no MIB module to look for: numeric OIDs need neither, and a module
  // that is not found would be reported on the host's standard error.
  netsnmp_set_mib_directory("");
  char no_modules[] = "mibs :";
  netsnmp_config_remember(no_modules);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_ERRORS, 0);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_WARNINGS, 0);
  // Creates net-snmp's certificate index directory (/var/lib/snmp/cert_indexes) if missing, as
  // every net-snmp application does; nothing else is written.
  init_snmp(kAppName);
  g_initialised = true;
}

void ShutdownNetSnmp() {
  if (!g_initialised) return;
  snmp_shutdown(kAppName);
  g_initialised = false;
}

}  // namespace snmplumi
