// The SNMP answer path: every read the library makes, answered over loopback UDP from the input.
// Input: one byte choosing the read, then answers: a kind byte (see Build), a length (2 bytes,
// little-endian) and that many bytes. The card answers each request with the next answer (the
// last again once they run out), then a noSuchName, so that a refused answer still ends at once.
#include <arpa/inet.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include "fuzz_support.h"
#include "snmp/requests.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

using snmplumi::fuzz::Check;

constexpr char kCardAddress[] = "127.93.0.1";
constexpr char kUpsObject[] = ".1.3.6.1.4.1.318.1.1.1.1.1.2.0";

// BER: the element at the front of in, its content; the element whole in *whole.
bool NextElement(std::string_view &in, std::string_view &content,
                 std::string_view *whole = nullptr) {
  if (in.size() < 2) return false;
  std::size_t at = 2, length = static_cast<uint8_t>(in[1]);
  if (length > 0x80) {
    const std::size_t end = at + (length & 0x7f);
    for (length = 0; at < end && at < in.size(); ++at) length = length << 8 | (in[at] & 0xff);
  }
  if (in.size() - at < length) return false;
  if (whole != nullptr) *whole = in.substr(0, at + length);
  content = in.substr(at, length);
  in.remove_prefix(at + length);
  return true;
}

// Lengths from 0x80 on in the two-byte long form, which BER allows for any length.
std::string Element(uint8_t tag, std::string_view content) {
  const std::size_t n = content.size();
  std::string out(1, static_cast<char>(tag));
  if (n >= 0x80) out += {'\x82', static_cast<char>(n >> 8)};
  return (out += static_cast<char>(n & 0xff)).append(content);
}

// What an answer needs of its request.
struct Request {
  std::string community, request_id, variables, name;  // the last three as whole elements
};

bool ParseRequest(std::string_view datagram, Request &request) {
  std::string_view message, pdu, list, variable, community, field, id, variables, name;
  if (!NextElement(datagram, message) || !NextElement(message, field) ||
      !NextElement(message, community) || !NextElement(message, pdu) ||
      !NextElement(pdu, field, &id) || !NextElement(pdu, field) || !NextElement(pdu, field) ||
      !NextElement(pdu, list, &variables) || !NextElement(list, variable) ||
      !NextElement(variable, field, &name)) {
    return false;
  }
  request = {std::string(community), std::string(id), std::string(variables), std::string(name)};
  return true;
}

const std::string kZero = Element(0x02, std::string_view("\0", 1));

std::string Datagram(const Request &request, uint8_t pdu_type, std::string_view after_id) {
  return Element(0x30, kZero + Element(0x04, request.community) +
                           Element(pdu_type, request.request_id + std::string(after_id)));
}

// The value of bytes ("" gives NULL) as one well-formed element.
std::string Value(std::string_view bytes) {
  return bytes.empty() ? Element(0x05, "")
                       : Element(static_cast<uint8_t>(bytes[0]), bytes.substr(1));
}

std::string Variables(const Request &request, const std::string &value, int count = 1) {
  std::string list;
  for (int i = 0; i < count; ++i) list += Element(0x30, request.name + value);
  return Element(0x30, list);
}

// The answer of kind answer[0] % 8 (see the table) built around the rest of answer.
std::string Build(std::string_view answer, const Request &request) {
  const std::string_view bytes = answer.substr(1), rest = bytes.substr(bytes.empty() ? 0 : 1);
  const uint8_t first = bytes.empty() ? 0 : static_cast<uint8_t>(bytes[0]);
  const std::string no_error = kZero + kZero;
  const std::string after_id[] = {
      no_error + Variables(request, Value(bytes)),                       // 0: a value
      no_error + Variables(request, std::string(bytes)),                 // 1: the value raw
      Element(0x02, bytes) + Element(0x02, "\x01") + request.variables,  // 2: an error status
      no_error + Element(0x30, bytes),             // 3: the variable list's content raw
      std::string(bytes),                          // 4: the PDU after its request id raw
      no_error + Variables(request, Value(rest)),  // 5: a PDU type byte, then as 0
      "",                                          // 6: the whole datagram raw
      no_error + Variables(request, Value(rest), 2 + first % 7),  // 7: a count byte, then as 0
  };
  const int kind = static_cast<uint8_t>(answer[0]) % 8;
  if (kind == 6) return std::string(bytes);
  return Datagram(request, kind == 5 && !bytes.empty() ? first : 0xa2, after_id[kind]);
}

// The library pointed at the card: a UDP socket on loopback and a thread answering from the
// current script, for the life of the process.
struct Setup {
  Setup() {
    sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {}, .sin_zero = {}};
    inet_pton(AF_INET, kCardAddress, &address.sin_addr);
    socklen_t length = sizeof address;
    Check(bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
              getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &length) == 0,
          "the card binds a loopback port");
    std::thread([this] { Serve(); }).detach();
    snmplumi::testing::PutFile(
        home.root() + "/snmp.conf",
        "defaultPort " + std::to_string(ntohs(address.sin_port)) + "\ntimeout 1\nretries 0\n");
    setenv("SNMPCONFPATH", home.root().c_str(), 1);
    for (char *slot : UpsIp) std::strcpy(slot, "127.0.0.1");
    for (char *slot : {UpsIp[0], UpsIpServer[0], UpsIpOther[0]}) std::strcpy(slot, kCardAddress);
    std::strcpy(UpsCommunity, "public");
    GetRetryMax = SetRetryMax = 2;
    snmplumi::testing::PutFile(home.data("ac_e_net.apc"),
                               "[UPS1]\nShutoffDelay=180\nReturnDelay=60\nHighTransferVolt=253\n"
                               "LowTransferVolt=196\nConfigAlarm=1\nConfigAlarmTimer=30\n"
                               "MinReturnCapacity=10\nSensitivity=1\nLowBatteryRunTime=120\n"
                               "BattExhaustThresh=300\nTestDiagnosticSchedule=2\n");
  }
  ~Setup() { SnmpEnd(); }
  [[noreturn]] void Serve() {
    std::vector<char> buffer(65536);
    for (;;) {
      sockaddr_in from{};
      socklen_t length = sizeof from;
      const ssize_t n = recvfrom(socket_, buffer.data(), buffer.size(), 0,
                                 reinterpret_cast<sockaddr *>(&from), &length);
      Request request;
      if (n <= 0 || !ParseRequest(std::string_view(buffer.data(), n), request)) continue;
      auto send = [&](const std::string &datagram) {
        sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&from),
               length);
      };
      std::lock_guard<std::mutex> lock(mutex);
      if (!answers.empty()) send(Build(answers[std::min(next++, answers.size() - 1)], request));
      send(Datagram(request, 0xa2,
                    Element(0x02, "\x02") + Element(0x02, "\x01") + request.variables));
    }
  }
  // A record of a UPS that is new to the file: the whole identification and configuration runs.
  void FreshRecord() const {
    snmplumi::testing::PutFile(home.data("UPS/UPSinfo.ini"),
                               std::string("[1000]\nIP=") + kCardAddress +
                                   "\nUPS_type=Symmetra RM]]\npath=UPS1\nSCGonoff=1\nSCG_MGN=3\n");
  }

  // The trap report reads its fixed card: this one.
  bool environment =
      (snmplumi::fuzz::PreferRamTempDir(), setenv("SNMPLUMI_TRAP_REPORT_IP", kCardAddress, 1) == 0);
  snmplumi::testing::TempHome home;
  snmplumi::testing::FakeClock clock{snmplumi::testing::kSomeTime};
  int socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::mutex mutex;
  std::vector<std::string> answers;
  std::size_t next = 0;
};

// A frame of exactly 48 bytes, sent as the host sends it.
void Frame(const char *request) {
  auto frame = std::make_unique<char[]>(48);
  std::memcpy(frame.get(), request, std::strlen(request));
  TovLumiSend(0, 0, frame.get(), 48);
  // The host reads an answer by its length: a length past position 46 sends it past its buffer.
  const std::string length(frame.get() + 4, 3);
  Check(std::strtoul(length.c_str(), nullptr, 16) <= 40, "an answer's length fits its frame");
}

void Read(const Setup &setup, unsigned choice) {
  char ip[sizeof kCardAddress];
  std::strcpy(ip, kCardAddress);
  int a = 0, b = 0, c = 0, d = 0, e = 0, f = 0, g = 0;
  auto state = std::make_unique<char[]>(65);
  auto report = std::make_unique<char[]>(160);
  // SnmpGetR copies at most kExportedValueLimit bytes: a byte more would be past the end.
  auto value = std::make_unique<char[]>(snmplumi::kExportedValueLimit);
  // Choices 0 to 19 read with SnmpGetR, as each type letter, with and without its log line.
  const std::function<void()> reads[] = {
      [&] {
        SnmpGetR(ip, kUpsObject, "iutasxdonb"[choice % 10], value.get(), choice < 10 ? 1 : 2);
      },
      [&] { GetUpsStatusFromSnmp(ip, &a); },
      [&] { GetUpsInputStatusFromSnmp(ip, &a); },
      [&] { GetUpsDetailStatusFromSnmp(ip, &a, &b, &c, &d, &e); },
      [&] { GetUpsDetailStatusFromSnmp2(ip, &a, &b, &c, &d, &e, &f, &g); },
      [&] { GetUpsDetailStatusFromSnmp3(ip, &a, &b, &c, &d, &e, state.get()); },
      [&] { SnmpGetReport(9000, report.get()); },
      [&] { setup.FreshRecord(), SnmpGetReport(1000, report.get()); },
      [] { KavAcSnmpCheck(); },
      [] { GetTrapReport(9000); },
      [] { Frame("H010000"); },
      [] { Frame("0F20000"); },
      [] { Frame("1B20000"); },
      [] { Frame("1520000"); },
      [] { Frame("181000801011200"); },
      [&] { setup.FreshRecord(), UPSCheckSnmpRequest(1000, 0); },
      [&] { setup.FreshRecord(), UPSCheckSnmpRequest2(1000, 0); },
      [] { WaitDromStartUp(0); },
      [&] { SetUpsSleepOffbySnmp(ip, 0, snmplumi::testing::kSomeTime + 3600); },
  };
  reads[choice < 20 ? 0 : choice - 19]();
  Check(std::strlen(state.get()) <= 64, "the state flags end within 65 bytes");
  Check(std::strlen(report.get()) < 160, "a report line ends within 160 bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Setup setup;
  if (size < 1) return 0;
  std::unique_lock<std::mutex> lock(setup.mutex);
  setup.answers.clear();
  setup.next = 0;
  for (std::size_t at = 1; at + 3 <= size;) {
    const std::size_t length =
        std::min<std::size_t>(data[at + 1] | data[at + 2] << 8, size - at - 3);
    setup.answers.emplace_back(1, static_cast<char>(data[at]));
    setup.answers.back().append(reinterpret_cast<const char *>(data + at + 3), length);
    at += 3 + length;
  }
  lock.unlock();
  Read(setup, data[0] % 38);
  setup.clock.sleeps.clear();
  return 0;
}
