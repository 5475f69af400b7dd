#include <arpa/inet.h>
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "host.h"

namespace host {
namespace {

constexpr char kDefaultInstallDir[] = "/usr/local/TELMAR";

std::mutex print_mutex;

}  // namespace

bool IsDirectory(const std::string &path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void Print(const char *format, ...) {
  std::lock_guard<std::mutex> lock(print_mutex);
  va_list args;
  va_start(args, format);
  std::vfprintf(stdout, format, args);
  va_end(args);
  std::fflush(stdout);
}

void *Library::handle() const {
  if (handle_ != nullptr) return handle_;
  if (needs_installation_) RequireInstallation();
  // The trap report reads a fixed private test address unless told otherwise: keep it on
  // loopback unless the user chose one.
  const char *trap_report = std::getenv("SNMPLUMI_TRAP_REPORT_IP");
  if (trap_report == nullptr || *trap_report == '\0') {
    setenv("SNMPLUMI_TRAP_REPORT_IP", "127.0.0.1", 1);
  }
  handle_ = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) throw Error(kExitNoLibrary, std::string("cannot load ") + dlerror());
  InstallLocalUnit(*this);
  return handle_;
}

void *Library::Symbol(const char *name) const {
  void *address = dlsym(handle(), name);
  if (address == nullptr) Failure(std::string("the library lacks ") + name);
  return address;
}

std::string Library::path() const {
  link_map *map = nullptr;
  return dlinfo(handle(), RTLD_DI_LINKMAP, &map) == 0 && map != nullptr ? map->l_name : path_;
}

std::string InstallDir() {
  const char *home = std::getenv("SNMPLUMI_HOME");
  return home != nullptr && *home != '\0' ? home : kDefaultInstallDir;
}

std::string DataDir() { return InstallDir() + "/data"; }

void RequireInstallation() {
  if (!IsDirectory(InstallDir())) {
    throw Error(kExitNoLibrary,
                "no installation directory " + InstallDir() + " (SNMPLUMI_HOME names another)");
  }
  if (!IsDirectory(DataDir())) {
    throw Error(kExitNoLibrary, "the installation directory has no " + DataDir());
  }
}

bool Args::Flag(std::string_view name) {
  for (auto it = args_.begin(); it != args_.end(); ++it) {
    if (*it == name) {
      args_.erase(it);
      return true;
    }
  }
  return false;
}

double Args::Number(std::string_view name, double fallback, double low, double high) {
  for (auto it = args_.begin(); it != args_.end(); ++it) {
    if (*it != name) continue;
    if (it + 1 == args_.end()) UsageError(std::string(name) + " needs a number");
    char *end = nullptr;
    errno = 0;
    double value = std::strtod((it + 1)->c_str(), &end);
    if (errno != 0 || end == (it + 1)->c_str() || *end != '\0' || value < low || value > high) {
      char range[64];
      std::snprintf(range, sizeof range, "%g to %g", low, high);
      UsageError(std::string(name) + " takes a number from " + range + ", not " + *(it + 1));
    }
    args_.erase(it, it + 2);
    return value;
  }
  return fallback;
}

const std::vector<std::string> &Args::Positionals(std::size_t min, std::size_t max) {
  for (const std::string &arg : args_) {
    if (arg.size() > 1 && arg[0] == '-' && arg[1] == '-') UsageError("unknown option " + arg);
  }
  if (args_.size() < min) UsageError("missing arguments");
  if (args_.size() > max) UsageError("too many arguments: " + args_[max]);
  return args_;
}

std::string Ups::Label() const {
  switch (group) {
    case Group::kMain:
      return "slot " + std::to_string(row);
    case Group::kServer:
      return "server " + std::to_string(row);
    case Group::kOther:
      return "other " + std::to_string(100 + row);
  }
  return "?";
}

std::vector<Ups> ConfiguredUps(const Library &library) {
  std::vector<Ups> found;
  auto &main = HOST_VAR(library, UpsIp);
  for (int row = 0; row < SNMPLUMI_UPS_SLOTS; ++row) {
    if (std::strcmp(main[row], "127.0.0.1") != 0) found.push_back({Group::kMain, row, main[row]});
  }
  // These two tables mark a free row with "" (the report also skips "127.0.0.1").
  struct Table {
    Group group;
    char (*rows)[64];
  };
  const Table tables[] = {{Group::kServer, HOST_VAR(library, UpsIpServer)},
                          {Group::kOther, HOST_VAR(library, UpsIpOther)}};
  for (const Table &table : tables) {
    for (int row = 0; row < SNMPLUMI_GROUP_SLOTS; ++row) {
      const char *address = table.rows[row];
      if (*address != '\0' && std::strcmp(address, "127.0.0.1") != 0) {
        found.push_back({table.group, row, address});
      }
    }
  }
  return found;
}

long ParseInteger(const std::string &text, long low, long high, const char *what) {
  char *end = nullptr;
  errno = 0;
  long value = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || text.empty() || *end != '\0' || value < low || value > high) {
    UsageError(std::string("bad ") + what + " \"" + text + "\" (" + std::to_string(low) + " to " +
               std::to_string(high) + ")");
  }
  return value;
}

void RequireAddress(const std::string &text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
    UsageError("bad address \"" + text + "\" (a dotted IPv4 address)");
  }
}

}  // namespace host
