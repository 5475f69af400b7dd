// What the parts of snmplumi-host share: the loaded library, argument handling, errors, output.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "snmplumi.h"

namespace host {

// Exit statuses.
inline constexpr int kExitFailed = 1;     // the operation ran and failed
inline constexpr int kExitUsage = 2;      // wrong arguments
inline constexpr int kExitNoLibrary = 3;  // the library or its installation directory is missing

// A one-line error that ends the program with its exit status.
struct Error : std::runtime_error {
  Error(int status, const std::string &message) : std::runtime_error(message), status(status) {}
  int status;
};
[[noreturn]] inline void UsageError(const std::string &message) {
  throw Error(kExitUsage, message);
}
[[noreturn]] inline void Failure(const std::string &message) { throw Error(kExitFailed, message); }

// Output lines from several threads (the watch runs beside the event wait) stay whole.
void Print(const char *format, ...) __attribute__((format(printf, 1, 2)));

// libsnmplumi.so opened with dlopen, as a host service opens it, on first use: its load-time
// hook reads the settings of the installation directory, and the simulated local unit fills the
// host's call-back table.
class Library {
 public:
  Library(std::string path, bool needs_installation)
      : path_(std::move(path)), needs_installation_(needs_installation) {}
  // Never unloaded: its unload hook runs when the process exits, as in a host that ends; net-snmp
  // keeps tables it never frees, which an unload would turn into leaks.
  ~Library() = default;
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  void *Symbol(const char *name) const;  // throws Failure when the library lacks it
  void *handle() const;
  std::string path() const;

 private:
  std::string path_;
  bool needs_installation_;
  mutable void *handle_ = nullptr;
};

// A call or a variable of the library, typed by its declaration in snmplumi.h.
#define HOST_CALL(library, name) reinterpret_cast<decltype(&::name)>((library).Symbol(#name))
#define HOST_VAR(library, name) (*static_cast<decltype(&::name)>((library).Symbol(#name)))

// The installation directory the library will read: SNMPLUMI_HOME or its default.
std::string InstallDir();
std::string DataDir();
bool IsDirectory(const std::string &path);
// Fails with kExitNoLibrary unless the data directory exists.
void RequireInstallation();

// Arguments of one subcommand: options are taken out first, then the positionals are counted.
class Args {
 public:
  explicit Args(std::vector<std::string> args) : args_(std::move(args)) {}
  bool Flag(std::string_view name);
  // The value after name, or fallback when the option is absent.
  double Number(std::string_view name, double fallback, double low, double high);
  // Fails unless the positionals left number from min to max; then returns them.
  const std::vector<std::string> &Positionals(std::size_t min, std::size_t max);

 private:
  std::vector<std::string> args_;
};

// A decimal integer within [low, high], or a usage error naming what it is.
long ParseInteger(const std::string &text, long low, long high, const char *what);
// A dotted IPv4 address, or a usage error.
void RequireAddress(const std::string &text);

// The UPSes of the settings: the main table (UPS_IP, UPS_IP1 ... UPS_IP129), the servers'
// UPSes (UPS_IP_S0 ...) and the other group (UPS_IP_O0 ...), in that order.
enum class Group { kMain, kServer, kOther };
struct Ups {
  Group group;
  int row;  // in its table
  std::string address;
  std::string Label() const;  // "slot 0", "server 3", "other 100", as the library's log says
};
std::vector<Ups> ConfiguredUps(const Library &library);

// The power-state watch as a host runs it: each pass calls KavAcSnmpCheck and prints the status
// words of every UPS it watches that changed (all of them on the first pass).
class StatusWatch {
 public:
  explicit StatusWatch(const Library &library);
  void Pass();

 private:
  struct Seen {
    Ups ups;
    int word0 = -1;
    int word1 = -1;
  };
  BOOL (*check_)();
  int (&main_words_)[SNMPLUMI_UPS_SLOTS][9];
  int (&other_words_)[4][SNMPLUMI_GROUP_SLOTS];
  std::vector<Seen> seen_;
  int passes_ = 0;
  double start_;
};

// The simulated local unit behind the host's call-backs: a clock, a reap counter, an event log
// and alarm flags, answered the way a host's own unit answers the channel commands.
void InstallLocalUnit(const Library &library);
// The channel exchanges since the last call, "command -> answer" each.
std::vector<std::string> TakeUnitExchanges();

// Subcommands. Each returns the exit status.
int Status(const Library &library, Args &args);
int Register(const Library &library, Args &args);
int Startup(const Library &library, Args &args);
int Check(const Library &library, Args &args);
int Watch(const Library &library, Args &args);
int Wait(const Library &library, Args &args);
int Send(const Library &library, Args &args);
int Query(const Library &library, Args &args);
int Report(const Library &library, Args &args);
int Info(const Library &library, Args &args);
int Exports(const Library &library, Args &args);

}  // namespace host
