// For the tests that unload the real library under LeakSanitizer.
#pragma once

#include <dlfcn.h>
#include <link.h>

#include <string>

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
