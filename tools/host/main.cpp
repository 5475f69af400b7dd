// snmplumi-host: loads libsnmplumi.so the way a host service does and shows what it exports.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr const char *kExports[] = {
#define SNMPLUMI_EXPORT(name) #name,
#include "snmplumi_exports.inc"
#undef SNMPLUMI_EXPORT
};

void PrintHelp(const char *program) {
  std::printf(
      "Usage: %s [--library PATH] [--help]\n"
      "\n"
      "Loads the snmplumi library with dlopen, as a host service does, and lists every\n"
      "export with its kind (function or variable) and size. Exits 1 when the library\n"
      "cannot be loaded or an export is missing.\n"
      "\n"
      "  --library PATH  the library to load (default: %s, found next to this program\n"
      "                  in a build tree or by the usual dynamic loader search)\n"
      "  --help          this text\n"
      "\n"
      "Environment: SNMPLUMI_HOME, read when the library loads, is its installation\n"
      "directory (default /usr/local/TELMAR); logs and profiles live in its data/.\n",
      program, SNMPLUMI_SONAME);
}

struct Options {
  std::string library = SNMPLUMI_SONAME;
  bool help = false;
  std::string error;
};

Options ParseOptions(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (arg == "--library" && i + 1 < argc) {
      options.library = argv[++i];
    } else {
      options.error = "unknown or incomplete option: " + arg;
    }
  }
  return options;
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
  std::printf("snmplumi %s loaded from %s\n", SNMPLUMI_VERSION,
              map != nullptr ? map->l_name : options.library.c_str());

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
  dlclose(library);
  return missing == 0 ? 0 : 1;
}
