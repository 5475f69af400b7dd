// The unit protocol: command frames through TovLumiSend, and the event wait TovLumiGet with a
// watch beside it, as a host's threads run them.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "decode.h"
#include "host.h"

namespace host {
namespace {

constexpr int kTrapPort = 162;

// Builds the frame, sends it and prints the answer; TovLumiSend's result.
int SendFrame(const Library &library, const std::string &code, const std::string &data) {
  char frame[kFrameSize + 1];
  std::snprintf(frame, sizeof frame, "%s0%03zX%s", code.c_str(), data.size(), data.c_str());
  std::memset(frame + std::strlen(frame), '0', kFrameSize - std::strlen(frame));
  frame[kFrameSize] = '\0';
  Print("request  %s\n", frame);
  int result = HOST_CALL(library, TovLumiSend)(0, 0, frame, static_cast<int>(kFrameSize));
  Print("answer   %.48s  (TovLumiSend: %d)\n", frame, result);
  PrintFrame(std::string_view(frame, kFrameSize));
  for (const std::string &exchange : TakeUnitExchanges()) {
    Print("  host unit asked  %s\n", exchange.c_str());
  }
  return result;
}

bool Printable(const std::string &text) {
  for (unsigned char c : text) {
    if (!std::isprint(c)) return false;
  }
  return true;
}

// Keeps UDP port 162 on loopback from the library's trap listener, so that every call of the
// wait reports from the status words, as it does wherever the port is taken or not permitted.
class TrapPortHold {
 public:
  TrapPortHold() : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kTrapPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
      outcome_ = "this program holds 127.0.0.1:162";
      return;
    }
    int error = errno;
    outcome_ = error == EACCES       ? "port 162 is not permitted to this user"
               : error == EADDRINUSE ? "another program holds port 162"
                                     : std::string("port 162: ") + std::strerror(error);
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  ~TrapPortHold() {
    if (fd_ >= 0) close(fd_);
  }
  TrapPortHold(const TrapPortHold &) = delete;
  TrapPortHold &operator=(const TrapPortHold &) = delete;
  const std::string &outcome() const { return outcome_; }

 private:
  int fd_;
  std::string outcome_;
};

// A host's other threads beside the event wait: one runs the watch every interval seconds, one
// calls TovLumiStop on Ctrl-C, SIGTERM or after timeout seconds (0: never), and says whether
// the trap listener opened. Both end when the object goes.
class BesideTheWait {
 public:
  BesideTheWait(const Library &library, double interval, double timeout)
      : stop_(HOST_CALL(library, TovLumiStop)), listener_(HOST_VAR(library, Trap_ss)) {
    // Blocked in every thread, so only the stopper takes them.
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    if (interval > 0) watch_.emplace(library);
    stopper_ = std::thread([this, timeout] { Stopper(timeout); });
    if (interval > 0) watcher_ = std::thread([this, interval] { Watcher(interval); });
  }
  ~BesideTheWait() {
    done_ = true;
    if (watcher_.joinable()) watcher_.join();
    stopper_.join();
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  }
  BesideTheWait(const BesideTheWait &) = delete;
  BesideTheWait &operator=(const BesideTheWait &) = delete;

 private:
  void Stopper(double timeout) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
    bool told = false;
    while (!done_) {
      timespec slice{0, 100 * 1000 * 1000};
      int signal = sigtimedwait(&signals_, nullptr, &slice);
      bool expired = timeout > 0 && std::chrono::steady_clock::now() >= deadline;
      if (signal > 0 || expired) {
        Print("%s: TovLumiStop\n", signal == SIGINT    ? "Ctrl-C"
                                   : signal == SIGTERM ? "SIGTERM"
                                                       : "--timeout");
        stop_();
        return;
      }
      if (!told && __atomic_load_n(&listener_, __ATOMIC_ACQUIRE) != nullptr) {
        Print(
            "trap listener open on UDP port 162: the wait returns on a stop (Ctrl-C) or on\n"
            "TrapRetStatus; traps reach the library's log only\n");
        told = true;
      }
    }
  }

  void Watcher(double interval) {
    while (!done_) {
      watch_->Pass();
      auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(interval);
      while (!done_ && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
    }
  }

  int (*stop_)();
  snmp_session *&listener_;
  sigset_t signals_;
  std::optional<StatusWatch> watch_;
  std::atomic<bool> done_{false};
  std::thread stopper_;
  std::thread watcher_;
};

// The configured slot whose words the status string carries, when exactly one does.
void PrintMatchingSlot(const Library &library, std::string_view text) {
  auto &words = HOST_VAR(library, ups_X1);
  std::optional<Ups> match;
  int matches = 0;
  for (const Ups &ups : ConfiguredUps(library)) {
    if (ups.group != Group::kMain) continue;
    char fields[19] = {};
    for (int word = 0; word < 9; ++word) {
      std::snprintf(fields + 2 * word, 3, "%02x",
                    __atomic_load_n(&words[ups.row][word], __ATOMIC_RELAXED));
    }
    if (text.substr(kDataStart, 18) == fields) {
      match = ups;
      ++matches;
    }
  }
  if (matches == 1) {
    Print("  (the words of %s, %s)\n", match->Label().c_str(), match->address.c_str());
  }
}

}  // namespace

int Send(const Library &library, Args &args) {
  const std::vector<std::string> &positionals = args.Positionals(1, 2);
  const std::string &code = positionals[0];
  std::string data = positionals.size() > 1 ? positionals[1] : "";
  if (code.size() != 3 || !Printable(code)) {
    UsageError("bad frame: the code is three characters, not \"" + code + "\"");
  }
  if (data.size() > kDataArea || !Printable(data)) {
    UsageError("bad frame: the data is up to 40 printable characters (" +
               std::to_string(data.size()) + " given)");
  }
  return SendFrame(library, code, data) == 0 ? 0 : kExitFailed;
}

int Wait(const Library &library, Args &args) {
  double interval = args.Number("--interval", 1, 0, 3600);
  double timeout = args.Number("--timeout", 0, 0, 1e6);
  bool poll = args.Flag("--poll");
  bool shutdown = args.Flag("--shutdown");
  args.Positionals(0, 0);

  std::optional<TrapPortHold> hold;
  if (HOST_VAR(library, NO_TRAP_SERVICE) != 0) {
    Print("NO_TRAP is set: no trap listener; the wait returns on a stop or on TrapRetStatus\n");
  } else if (poll) {
    hold.emplace();
    Print("--poll: %s, so the wait reports from the status words\n", hold->outcome().c_str());
  }

  auto get = HOST_CALL(library, TovLumiGet);
  char text[kFrameSize + 1] = {};
  int result = -1;
  {
    BesideTheWait beside(library, interval, timeout);
    unsigned short unit_address = 0;
    bool told = false;
    while ((result = get(0, &unit_address, text)) == -1) {
      if (!told) {
        Print(
            "TovLumiGet: -1 (no trap port: each call reports from the status words, -1 once\n"
            "                a second until every UPS in service is past its wait)\n");
        told = true;
      }
    }
  }
  std::string_view status(text, strnlen(text, sizeof text));
  Print("TovLumiGet: %d (%s)\n", result, result == 0 ? "an event" : "stopped");
  if (status.size() == kFrameSize) {
    Print("status string  %s\n", text);
    PrintStatusString(status);
    if (result == 0) PrintMatchingSlot(library, status);
  } else {
    Print("  no status string: TrapRetStatus was set by the host\n");
  }
  if (result == 0 && shutdown) {
    Print("shutdown: V00\n");
    SendFrame(library, "V00", "");
  }
  return result == 0 ? 0 : kExitFailed;
}

}  // namespace host
