# net-snmp's client library from Debian's libsnmp-dev. Its agent libraries are never linked: they
# define symbols with the names of snmplumi's own exports.
find_package(PkgConfig REQUIRED)
pkg_check_modules(NETSNMP REQUIRED IMPORTED_TARGET GLOBAL netsnmp)
add_library(NetSnmp::Client ALIAS PkgConfig::NETSNMP)
