// snmplumi-upssim: simulates APC UPS network management cards speaking SNMP v1 on loopback, for
// the test suite, the demo and integrators without a UPS on their desk.
#include <fcntl.h>
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent.h"
#include "card.h"
#include "control.h"
#include "journal.h"
#include "scenario.h"

namespace {

using namespace upssim;

constexpr char kProgram[] = "snmplumi-upssim";
constexpr std::size_t kMaxCommandLine = 65536;

// Exit statuses: a test fixture retries on other addresses after kExitAddressInUse.
constexpr int kExitOk = 0;
constexpr int kExitUsage = 1;
constexpr int kExitAddressInUse = 2;

constexpr char kHelp[] = R"(Usage: snmplumi-upssim [--journal FILE] [--no-control] SCENARIO

Simulates APC UPS network management cards: each card answers SNMP v1 GET,
GETNEXT and SET on its own loopback address with the PowerNet objects a UPS
management library uses, and behaves like the UPS behind it (power orders,
power failures, self-tests). Cards bind only addresses in 127.0.0.0/8.

Options:
  --journal FILE  write one line per SET variable received to FILE (created or
                  truncated; flushed per line):
                    TIME<TAB>CARD<TAB>OID<TAB>TYPE<TAB>VALUE<TAB>ANSWER
                  ANSWER is the error status sent (noError, noSuchName, badValue,
                  readOnly, genErr, tooBig), or silent / dropped / badCommunity
                  when the card sent nothing.
  --no-control    do not read commands from standard input; run until SIGTERM
                  or SIGINT (for running in the background)
  --help          this text

Once every card is bound the simulator prints "ready N cards" on standard
output. It exits on "quit", at the end of standard input, or on SIGTERM/SIGINT.
Exit status: 0 done, 1 bad option or scenario, 2 an address was in use.

SCENARIO FILE
  One statement per line; blank lines and lines starting with # are ignored.
    port PORT                        UDP port of the cards that follow
                                     (default 161, which needs privileges)
    community TEXT                   community of the cards that follow
                                     (default public)
    card NAME ADDRESS[:PORT] [COMMUNITY]
                                     one card; NAME: letters, digits, _ - .
    cards COUNT PREFIX ADDRESS[:PORT] [COMMUNITY]
                                     COUNT cards PREFIX0, PREFIX1, ... on
                                     consecutive addresses from ADDRESS
    set OBJECT TYPE VALUE            start value of an object: before the first
                                     card for every card, after a card or cards
                                     line for those cards
  ADDRESS must be 127.A.B.C; 127.0.0.1 is refused (the library reads it as an
  empty slot). Example:
    port 16161
    card ups0 127.16.0.1
    card ups1 127.16.0.2 private
    set upsBasicIdentModel s Smart-UPS 3000
    cards 160 rack 127.16.1.1
    set upsAdvOutputLoad = 55

OBJECTS AND VALUES
  OBJECT is a numeric OID (.1.3.6.1.4.1.318.1.1.1.4.1.1.0) or a MIB name
  (upsBasicOutputStatus). TYPE is a net-snmp letter: i INTEGER (number or
  enumeration name), u Gauge32, t TimeTicks, a IpAddress, s OCTET STRING,
  x OCTET STRING in hexadecimal; or = for the object's own MIB type. VALUE is
  the rest of the line, blanks included; in s values \\ \n \r \t \xHH escape.
  Each card starts with the table defaults (Smart-UPS 1500 on line, 100 V in
  and out, 23 % load, capacity 100 %), upsBasicIdentName set to the card's name
  and a serial number AS0812NNNNNN with four trailing blanks.

CARD BEHAVIOUR
  upsAdvControlUpsOff 2|3           output off(7), output voltage 0
  upsAdvControlUpsSleep 2|3         timedSleeping(5) for upsAdvConfigUpsSleepTime,
                                    then on line; during a power failure
                                    sleepingUntilPowerReturn(11)
  upsBasicControlConserveBattery 2  only on battery (else badValue):
                                    sleepingUntilPowerReturn(11)
  upsAdvControlTurnOnUPS 2          output back on
  Orders read back as 1 (noTurnUpsOff, ...). A sleeping UPS comes back
  upsAdvConfigReturnDelay after the mains return. On battery, time on battery
  counts up in real time (a control set moves the count); on line it reads 0
  or what a control set put there. Read-write objects keep what is written. A SET of a read-only object answers noSuchName (SNMP v1), a wrong
  type or an unknown enumeration value badValue. A wrong community gets no
  answer. Only SNMP v1 is spoken.

CONTROL COMMANDS (standard input; one reply line each: "ok ..." or "error ...")
  get CARD OBJECT                   current value: "ok TYPE VALUE"
  set CARD OBJECT TYPE VALUE        change any object, read-only ones too
  power CARD fail [CAUSE]           mains fail: on battery, input 0 V,
                                    upsAdvInputLineFailCause CAUSE (number or
                                    name, default blackout), time on battery
                                    counting in real time
  power CARD restore                mains back: on line, time on battery 0
  selftest CARD [SECONDS]           fail cause selfTest(9) and SECONDS on
                                    battery (default 10; 0: cause only)
  silent CARD on|off                answer no request (SETs are journaled)
  error CARD OBJECT get|set STATUS  answer that status for the object until
                                    cleared: noSuchName badValue readOnly genErr
                                    tooBig (or 1-18); "none" removes one
  error CARD clear                  remove every injected error of the card
  delay CARD MS                     answer MS milliseconds late (0: at once)
  drop CARD N                       lose the next N requests the card receives
                                    (a wrong community or a silent card does not
                                    count), as a network loses datagrams: no
                                    answer, a SET is not carried out (journaled
                                    as dropped); 0 cancels
  drop CARD every K                 lose every K-th request from now on (K >= 2;
                                    2: every other one; 0 stops)
  drop CARD off                     no more drops of either kind
  oversize CARD OBJECT LENGTH       answer a string object LENGTH bytes long: its
                                    value padded with X (0: off); an answer too
                                    large for a datagram becomes tooBig
  hostile CARD SEED|off             answer every GET with a hostile value, the
                                    same sequence for the same SEED: the other
                                    ASN.1 type, an empty string, a string of
                                    129 to 4096 bytes with %, NUL and line end,
                                    binary bytes, an INTEGER or unsigned type at
                                    a 32-bit extreme, a Counter64 past 32 bits,
                                    an OID of 128 sub-identifiers, NULL, an
                                    IpAddress, an Opaque or an SNMPv2 exception;
                                    SETs are carried out as ever
  trap CARD GENERIC SPECIFIC ADDRESS:PORT
                                    send an SNMP v1 trap from the card to
                                    ADDRESS:PORT (127.0.0.0/8 only; port 162 is
                                    the trap port): GENERIC 0-6 or coldStart
                                    warmStart linkDown linkUp
                                    authenticationFailure egpNeighborLoss
                                    enterpriseSpecific; SPECIFIC a number (APC
                                    cards: 5 on battery, 9 power restored); agent
                                    address the card's, enterprise apc
                                    (.1.3.6.1.4.1.318), the card's community
  show CARD                         one-line state of the card
  cards                             every card with its address and port
  help                              the command list
  quit                              stop
  CARD is a card name or * for every card (not for get and show).
  Examples:
    set ups0 upsAdvBatteryCapacity u 35
    set ups0 upsBasicBatteryTimeOnBattery t 20000
    power * fail brownout
    error ups1 upsCommStatus get genErr
    error ups1 .1.3.6.1.4.1.318.1.1.1.6.2.1.0 set readOnly
    oversize ups2 upsAdvIdentSerialNumber 300
    hostile ups0 42
    delay ups3 1500
    drop * every 3
    trap ups0 enterpriseSpecific 5 127.0.0.1:162

EXAMPLE
  printf 'card ups0 127.16.0.1:16161\n' > one.scenario
  snmplumi-upssim --journal sets.log one.scenario
  # in another terminal:
  snmpget -v1 -c public -On -m '' 127.16.0.1:16161 .1.3.6.1.4.1.318.1.1.1.4.1.1.0
  A larger scenario: tools/upssim/example.scenario in the source tree.
)";

int g_signal_pipe[2] = {-1, -1};

extern "C" void OnSignal(int) {
  char byte = 1;
  [[maybe_unused]] ssize_t written = write(g_signal_pipe[1], &byte, 1);
}

void InstallSignals() {
  if (pipe(g_signal_pipe) != 0) return;
  for (int fd : g_signal_pipe) fcntl(fd, F_SETFD, FD_CLOEXEC);
  fcntl(g_signal_pipe[1], F_SETFL, O_NONBLOCK);
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

// Every card holds a socket; make sure the descriptor limit allows them.
void RaiseDescriptorLimit(std::size_t cards) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  rlim_t wanted = static_cast<rlim_t>(cards) + 64;
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool Reply(const std::string &text) {
  if (text.empty()) return true;
  std::fputs(text.c_str(), stdout);
  std::fputc('\n', stdout);
  return std::fflush(stdout) == 0;
}

// Reads what standard input has, answers each complete line. False when the channel is done.
class ControlInput {
 public:
  explicit ControlInput(Control &control) : control_(control) {}

  bool Read() {
    char chunk[4096];
    ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
    if (got < 0) return errno == EINTR || errno == EAGAIN;
    if (got == 0) return false;
    for (char c : std::string_view(chunk, static_cast<std::size_t>(got))) {
      if (c != '\n') {
        if (buffer_.size() < kMaxCommandLine) {
          buffer_ += c;
        } else {
          too_long_ = true;
        }
        continue;
      }
      std::string line = std::move(buffer_);
      buffer_.clear();
      if (too_long_) {
        too_long_ = false;
        if (!Reply("error line too long")) return false;
        continue;
      }
      Control::Reply reply = control_.Execute(line, Clock::now());
      if (!Reply(reply.text) || reply.quit) return false;
    }
    return true;
  }

 private:
  Control &control_;
  std::string buffer_;
  bool too_long_ = false;
};

void Serve(Agent &agent, Control *control) {
  std::optional<ControlInput> input;
  if (control != nullptr) input.emplace(*control);
  bool reading = input.has_value();
  netsnmp_large_fd_set fds;
  netsnmp_large_fd_set_init(&fds, FD_SETSIZE);
  while (true) {
    int count = 0;
    int block = 1;
    timeval timeout{};
    NETSNMP_LARGE_FD_ZERO(&fds);
    snmp_select_info2(&count, &fds, &timeout, &block);
    if (reading) {
      NETSNMP_LARGE_FD_SET(STDIN_FILENO, &fds);
      count = std::max(count, STDIN_FILENO + 1);
    }
    NETSNMP_LARGE_FD_SET(g_signal_pipe[0], &fds);
    count = std::max(count, g_signal_pipe[0] + 1);
    if (auto due = agent.SendDue(Clock::now())) {
      auto micros = std::chrono::duration_cast<std::chrono::microseconds>(*due).count() + 1;
      timeval until_due{static_cast<time_t>(micros / 1000000),
                        static_cast<suseconds_t>(micros % 1000000)};
      if (block || until_due.tv_sec < timeout.tv_sec ||
          (until_due.tv_sec == timeout.tv_sec && until_due.tv_usec < timeout.tv_usec)) {
        timeout = until_due;
      }
      block = 0;
    }
    int ready =
        netsnmp_large_fd_set_select(count, &fds, nullptr, nullptr, block ? nullptr : &timeout);
    if (ready < 0) {
      if (errno == EINTR) continue;
      std::fprintf(stderr, "%s: select: %s\n", kProgram, std::strerror(errno));
      break;
    }
    if (ready == 0) {
      snmp_timeout();
      continue;
    }
    if (NETSNMP_LARGE_FD_ISSET(g_signal_pipe[0], &fds)) break;
    if (reading && NETSNMP_LARGE_FD_ISSET(STDIN_FILENO, &fds) && !input->Read()) break;
    snmp_read2(&fds);
  }
  netsnmp_large_fd_set_cleanup(&fds);
}

int Usage(const std::string &problem) {
  std::fprintf(stderr, "%s: %s (see --help)\n", kProgram, problem.c_str());
  return kExitUsage;
}

}  // namespace

int main(int argc, char **argv) {
  std::string journal_path;
  std::string scenario_path;
  bool control_channel = true;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kHelp, stdout);
      return kExitOk;
    } else if (arg == "--journal") {
      if (++i == argc) return Usage("--journal needs a file name");
      journal_path = argv[i];
    } else if (arg.starts_with("--journal=")) {
      journal_path = arg.substr(std::strlen("--journal="));
    } else if (arg == "--no-control") {
      control_channel = false;
    } else if (arg.starts_with("-") && arg != "-") {
      return Usage("unknown option " + std::string(arg));
    } else if (!scenario_path.empty()) {
      return Usage("one scenario file only");
    } else {
      scenario_path = arg;
    }
  }
  if (scenario_path.empty()) return Usage("missing SCENARIO file");

  std::vector<CardPlan> plans;
  try {
    plans = LoadScenario(scenario_path);
  } catch (const ScenarioError &error) {
    std::fprintf(stderr, "%s: %s\n", kProgram, error.what());
    return kExitUsage;
  }

  Journal journal;
  if (!journal_path.empty() && !journal.Open(journal_path)) {
    std::fprintf(stderr, "%s: cannot write journal %s: %s\n", kProgram, journal_path.c_str(),
                 std::strerror(errno));
    return kExitUsage;
  }

  std::vector<Card> cards;
  cards.reserve(plans.size());
  Clock::time_point start = Clock::now();
  for (const CardPlan &plan : plans) {
    cards.emplace_back(plan.name, plan.address, plan.port, plan.community, cards.size() + 1);
    for (const Override &entry : plan.overrides)
      cards.back().Force(entry.object, entry.value, start);
  }

  RaiseDescriptorLimit(cards.size());
  InstallSignals();
  InitNetSnmp();
  int status = kExitOk;
  {
    Agent agent(cards, journal);
    std::string error;
    bool address_in_use = false;
    if (!agent.Bind(error, address_in_use)) {
      std::fprintf(stderr, "%s: %s\n", kProgram, error.c_str());
      status = address_in_use ? kExitAddressInUse : kExitUsage;
    } else {
      Control control(cards, [&agent](const Card &card, long generic, long specific,
                                      const std::string &address, std::uint16_t port) {
        std::string error;
        agent.SendTrap(card, generic, specific, address, port, error);
        return error;
      });
      Reply("ready " + std::to_string(cards.size()) + " cards");
      Serve(agent, control_channel ? &control : nullptr);
    }
  }
  ShutdownNetSnmp();
  return status;
}
