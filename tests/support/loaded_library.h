// For the tests that dlopen the real library and so cannot link the test support library.
#pragma once

#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// A new installation directory named by the environment (debug lines on, snmp_apc as snmp.apc),
// net-snmp's client_config and a persistent directory holding the cert_indexes it would announce.
inline std::string MakeLoadedHome(const std::string &snmp_apc, const std::string &client_config) {
  std::string home = (std::filesystem::temp_directory_path() / "snmplumi-so-XXXXXX").string();
  if (mkdtemp(home.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  std::filesystem::create_directories(home + "/data/UPS");
  std::filesystem::create_directories(home + "/netsnmp/cert_indexes");
  std::ofstream(home + "/data/config.apc") << "[Lumi]\nTraceMode=ON\n";
  std::ofstream(home + "/data/snmp.apc") << snmp_apc;
  setenv("SNMPLUMI_HOME", home.c_str(), 1);
  setenv("SNMPCONFPATH", client_config.c_str(), 1);
  setenv("SNMP_PERSISTENT_DIR", (home + "/netsnmp").c_str(), 1);
  return home;
}

// Keeps net-snmp mapped, so that LeakSanitizer's suppressions of its never-freed tables apply.
inline void PinNetSnmp() {
#ifdef SNMPLUMI_PIN_NETSNMP
  dl_iterate_phdr(
      [](dl_phdr_info *info, size_t, void *) {
        if (std::string(info->dlpi_name).find("libnetsnmp.so") != std::string::npos)
          dlopen(info->dlpi_name, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
        return 0;
      },
      nullptr);
#endif
}
