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
  // An empty MIB path: no MIB file is read, and the missing standard modules are not reported.
  netsnmp_set_mib_directory("");
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_ERRORS, 0);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MIB_WARNINGS, 0);
  init_snmp(kAppName);
  g_initialised = true;
}

void ShutdownNetSnmp() {
  if (!g_initialised) return;
  snmp_shutdown(kAppName);
  g_initialised = false;
}

}  // namespace snmplumi
