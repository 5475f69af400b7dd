# net-snmp from Debian's libsnmp-dev. NetSnmp::Client is the client library the snmplumi library
# links; NetSnmp::Agent adds the agent libraries, for the simulator only: they define symbols
# with the names of snmplumi's own exports.
find_package(PkgConfig REQUIRED)
pkg_check_modules(NETSNMP REQUIRED IMPORTED_TARGET GLOBAL netsnmp)
pkg_check_modules(NETSNMP_AGENT REQUIRED IMPORTED_TARGET GLOBAL netsnmp-agent)
add_library(NetSnmp::Client ALIAS PkgConfig::NETSNMP)
add_library(NetSnmp::Agent ALIAS PkgConfig::NETSNMP_AGENT)
