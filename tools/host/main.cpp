// snmplumi-host: loads libsnmplumi.so the way a host service does, then shows what it exports
// or asks every configured UPS for its state through the library's own calls.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "powernet.h"
#include "snmplumi.h"

namespace {

constexpr const char *kExports[] = {
#define SNMPLUMI_EXPORT(name) #name,
#include "snmplumi_exports.inc"
#undef SNMPLUMI_EXPORT
};

void PrintHelp(const char *program) {
  std::printf(
      "Usage: %s [--library PATH] [--exports] [--help]\n"
      "\n"
      "Loads the snmplumi library with dlopen, as a host service does. Loading runs the\n"
      "library's start-up: it reads data/config.apc and data/snmp.apc of its installation\n"
      "directory. Then, for every UPS configured there (UPS_IP, UPS_IP1 ... UPS_IP129), it\n"
      "reads the model, output status, input and output voltage, load, battery capacity\n"
      "and run time with SnmpGetR and prints one line per UPS ('-' for what did not\n"
      "answer). Exits 1 when the library cannot be loaded or no UPS answered.\n"
      "\n"
      "  --library PATH  the library to load (default: %s, found next to this program\n"
      "                  in a build tree or by the usual dynamic loader search)\n"
      "  --exports       list every export with its kind and size instead; exits 1 when\n"
      "                  one is missing\n"
      "  --help          this text\n"
      "\n"
      "Environment: SNMPLUMI_HOME, read when the library loads, is its installation\n"
      "directory (default /usr/local/TELMAR). net-snmp's SNMPCONFPATH may point at an\n"
      "snmp.conf with timeout, retries and defaultPort (the library adds no port to a\n"
      "UPS address).\n",
      program, SNMPLUMI_SONAME);
}

struct Options {
  std::string library = SNMPLUMI_SONAME;
  bool exports = false;
  bool help = false;
  std::string error;
};

Options ParseOptions(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--exports") {
      options.exports = true;
    } else if (arg == "--library" && i + 1 < argc) {
      options.library = argv[++i];
    } else {
      options.error = "unknown or incomplete option: " + arg;
    }
  }
  return options;
}

int ListExports(void *library) {
  int missing = 0;
  std::printf("%-45s %-9s %s\n", "export", "kind", "size");
  for (const char *name : kExports) {
    void *address = dlsym(library, name);
    Dl_info info{};
    void *entry = nullptr;
    if (address == nullptr || dladdr1(address, &info, &entry, RTLD_DL_SYMENT) == 0 ||
        entry == nullptr) {
      std::printf("%-45s MISSING\n", name);
      ++missing;
      continue;
    }
    const auto *symbol = static_cast<const ElfW(Sym) *>(entry);
    bool function = (symbol->st_info & 0xf) == STT_FUNC;
    std::printf("%-45s %-9s %zu\n", name, function ? "function" : "variable",
                static_cast<std::size_t>(symbol->st_size));
  }
  std::printf("%zu exports, %d missing\n", std::size(kExports), missing);
  return missing == 0 ? 0 : 1;
}

// upsBasicOutputStatus values, by their PowerNet names.
const char *OutputStatusName(int32_t status) {
  static constexpr const char *kNames[] = {"?",
                                           "unknown",
                                           "onLine",
                                           "onBattery",
                                           "onSmartBoost",
                                           "timedSleeping",
                                           "softwareBypass",
                                           "off",
                                           "rebooting",
                                           "switchedBypass",
                                           "hardwareFailureBypass",
                                           "sleepingUntilPowerReturn",
                                           "onSmartTrim"};
  return status >= 1 && status <= 12 ? kNames[status] : "?";
}

int ShowStatus(void *library) {
  auto get = reinterpret_cast<decltype(&SnmpGetR)>(dlsym(library, "SnmpGetR"));
  auto *slots = static_cast<char(*)[64]>(dlsym(library, "UpsIp"));
  if (get == nullptr || slots == nullptr) {
    std::fprintf(stderr, "the library lacks SnmpGetR or UpsIp\n");
    return 1;
  }
  // A number read through the library as text, with its unit, or "-" when it was not read.
  auto number = [&](const char *ip, const char *oid_text, char type, const char *unit,
                    int32_t *value) {
    bool ok = get(ip, oid_text, type, reinterpret_cast<char *>(value), 0) == 0;
    return ok ? std::to_string(type == 't' ? *value / 100 : *value) + unit : std::string("-");
  };
  std::printf("%-5s %-16s %-18s %-12s %6s %6s %5s %5s %8s\n", "slot", "address", "model", "output",
              "in V", "out V", "load", "batt", "run time");
  int configured = 0;
  int answered = 0;
  for (int slot = 0; slot < SNMPLUMI_UPS_SLOTS; ++slot) {
    const char *ip = slots[slot];
    if (std::strcmp(ip, "127.0.0.1") == 0) continue;  // an unused slot
    ++configured;
    char model[256] = {};
    bool ok = get(ip, snmplumi::mib::upsBasicIdentModel, 's', model, 0) == 0;
    answered += ok ? 1 : 0;
    int32_t code = 0;
    int32_t scratch = 0;
    std::string status = number(ip, snmplumi::mib::upsBasicOutputStatus, 'i', "", &code);
    std::string in_volts = number(ip, snmplumi::mib::upsAdvInputLineVoltage, 'u', "", &scratch);
    std::string out_volts = number(ip, snmplumi::mib::upsAdvOutputVoltage, 'u', "", &scratch);
    std::string load = number(ip, snmplumi::mib::upsAdvOutputLoad, 'u', "%", &scratch);
    std::string capacity = number(ip, snmplumi::mib::upsAdvBatteryCapacity, 'u', "%", &scratch);
    std::string run_time =
        number(ip, snmplumi::mib::upsAdvBatteryRunTimeRemaining, 't', "s", &scratch);
    std::printf("%-5d %-16s %-18.18s %-12.12s %6s %6s %5s %5s %8s\n", slot, ip,
                ok ? model : "- (no answer)", status == "-" ? "-" : OutputStatusName(code),
                in_volts.c_str(), out_volts.c_str(), load.c_str(), capacity.c_str(),
                run_time.c_str());
  }
  std::printf("%d UPS configured, %d answered\n", configured, answered);
  return answered > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  Options options = ParseOptions(argc, argv);
  if (options.help) {
    PrintHelp(argv[0]);
    return 0;
  }
  if (!options.error.empty()) {
    std::fprintf(stderr, "%s: %s (try --help)\n", argv[0], options.error.c_str());
    return 2;
  }

  void *library = dlopen(options.library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s: cannot load %s: %s\n", argv[0], options.library.c_str(), dlerror());
    return 1;
  }
  link_map *map = nullptr;
  dlinfo(library, RTLD_DI_LINKMAP, &map);
  std::printf("snmplumi %s loaded from %s\n\n", SNMPLUMI_VERSION,
              map != nullptr ? map->l_name : options.library.c_str());
  int status = options.exports ? ListExports(library) : ShowStatus(library);
  dlclose(library);
  return status;
}
