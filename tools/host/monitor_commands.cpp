// Looking at the UPSes: the status table, the power-state watch, the status queries, reports.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "decode.h"
#include "host.h"
#include "powernet.h"

namespace host {
namespace {

constexpr int kNotRead = 99999;

double Now() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::string Value(int value, const char *unit) {
  return value == kNotRead ? "-" : std::to_string(value) + unit;
}

}  // namespace

int Status(const Library &library, Args &args) {
  args.Positionals(0, 0);
  auto get = HOST_CALL(library, SnmpGetR);
  // A number read through the library as text, with its unit, or "-" when it was not read.
  auto number = [&](const char *ip, const char *oid_text, char type, const char *unit,
                    int32_t *value) {
    bool ok = get(ip, oid_text, type, reinterpret_cast<char *>(value), 0) == 0;
    return ok ? std::to_string(type == 't' ? *value / 100 : *value) + unit : std::string("-");
  };
  Print("%-10s %-16s %-18s %-24s %6s %6s %5s %5s %8s\n", "UPS", "address", "model", "output",
        "in V", "out V", "load", "batt", "run time");
  int configured = 0;
  int answered = 0;
  for (const Ups &ups : ConfiguredUps(library)) {
    const char *ip = ups.address.c_str();
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
    Print("%-10s %-16s %-18.18s %-24s %6s %6s %5s %5s %8s\n", ups.Label().c_str(), ip,
          ok ? model : "- (no answer)", status == "-" ? "-" : NameOf(kOutputStatus, code),
          in_volts.c_str(), out_volts.c_str(), load.c_str(), capacity.c_str(), run_time.c_str());
  }
  Print("%d UPS configured, %d answered\n", configured, answered);
  return answered > 0 ? 0 : kExitFailed;
}

StatusWatch::StatusWatch(const Library &library)
    : check_(HOST_CALL(library, KavAcSnmpCheck)),
      main_words_(HOST_VAR(library, ups_X1)),
      other_words_(HOST_VAR(library, ups_Other_X1)),
      start_(Now()) {
  for (const Ups &ups : ConfiguredUps(library)) {
    if (ups.group != Group::kServer) seen_.push_back({ups});  // servers' UPSes are not watched
  }
  Print("%7s %5s  %-10s %-16s %-6s %-6s %s\n", "time", "pass", "UPS", "address", "word 0", "word 1",
        "meaning");
}

void StatusWatch::Pass() {
  check_();
  ++passes_;
  for (Seen &seen : seen_) {
    bool main = seen.ups.group == Group::kMain;
    // The event wait changes words on another thread.
    int word0 = __atomic_load_n(
        main ? &main_words_[seen.ups.row][0] : &other_words_[0][seen.ups.row], __ATOMIC_RELAXED);
    int word1 = main ? __atomic_load_n(&main_words_[seen.ups.row][1], __ATOMIC_RELAXED) : 0;
    if (word0 == seen.word0 && word1 == seen.word1) continue;
    seen.word0 = word0;
    seen.word1 = word1;
    std::string meaning = WordMeaning(0, word0);
    if (word1 != 0) meaning += "; " + WordMeaning(1, word1);
    char word1_text[16] = "-";  // the other group has one word
    if (main) std::snprintf(word1_text, sizeof word1_text, "%02x", word1);
    Print("%6.1fs %5d  %-10s %-16s %02x     %-6s %s\n", Now() - start_, passes_,
          seen.ups.Label().c_str(), seen.ups.address.c_str(), word0, word1_text, meaning.c_str());
  }
}

int Watch(const Library &library, Args &args) {
  long passes = static_cast<long>(args.Number("--passes", 0, 0, 1e9));
  double interval = args.Number("--interval", 1, 0.1, 3600);
  args.Positionals(0, 0);
  StatusWatch watch(library);
  for (long pass = 1; passes == 0 || pass <= passes; ++pass) {
    if (pass > 1) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    watch.Pass();
  }
  return 0;
}

int Query(const Library &library, Args &args) {
  std::string address = args.Positionals(1, 1)[0];
  RequireAddress(address);
  char ip[64] = {};
  std::snprintf(ip, sizeof ip, "%s", address.c_str());

  int status = kNotRead;
  BOOL status_ok = HOST_CALL(library, GetUpsStatusFromSnmp)(ip, &status);
  Print("%-28s %d  output %s\n", "GetUpsStatusFromSnmp", status_ok,
        Described(kOutputStatus, status).c_str());

  int input = kNotRead;
  BOOL input_ok = HOST_CALL(library, GetUpsInputStatusFromSnmp)(ip, &input);
  std::string input_text = (input & 0x100) != 0 && input != kNotRead
                               ? "stored fault " + std::to_string(input & ~0x100)
                               : Described(kInputStatus, input);
  Print("%-28s %d  input %s\n", "GetUpsInputStatusFromSnmp", input_ok, input_text.c_str());

  int output = kNotRead, volts = kNotRead, charge = kNotRead, on_battery = kNotRead;
  int temperature = kNotRead, replace = kNotRead, cause = kNotRead;
  BOOL detail_ok = HOST_CALL(library, GetUpsDetailStatusFromSnmp2)(
      ip, &output, &volts, &charge, &on_battery, &temperature, &replace, &cause);
  Print("%-28s %d  output %s, input %s, capacity %s, on battery %s, fail cause %s\n",
        "GetUpsDetailStatusFromSnmp2", detail_ok, Described(kOutputStatus, output).c_str(),
        Value(volts, " V").c_str(), Value(charge, " %").c_str(), Value(on_battery, " s").c_str(),
        Described(kLineFailCause, cause).c_str());
  Print("%-28s    battery %s, %s\n", "", Value(temperature, " C").c_str(),
        Described(kReplaceIndicator, replace).c_str());

  int group = kNotRead, member = kNotRead, delay = kNotRead, offset = kNotRead;
  int members = kNotRead;
  char flags[65] = {};
  BOOL scg_ok = HOST_CALL(library, GetUpsDetailStatusFromSnmp3)(ip, &group, &member, &delay,
                                                                &offset, &members, flags);
  Print("%-28s %d  SCG group %s, %s, sync delay %s, capacity offset %s, members %s\n",
        "GetUpsDetailStatusFromSnmp3", scg_ok, Value(group, "").c_str(),
        Described(kScgActiveMembership, member).c_str(), Value(delay, " s").c_str(),
        Value(offset, " %").c_str(), Value(members, "").c_str());
  Print("%-28s    state flags %s\n", "", *flags != '\0' ? flags : "-");
  return status_ok && input_ok && detail_ok && scg_ok ? 0 : kExitFailed;
}

int Report(const Library &library, Args &args) {
  std::string text = args.Positionals(1, 1)[0];
  long index = ParseInteger(text, -1000000, 1000000, "report index");
  bool known = (index >= 0 && index <= 15) || (index >= 100 && index <= 115) ||
               (index >= 1000 && index <= 8999) || (index >= 9000 && index <= 9004);
  if (!known) {
    UsageError("bad report index " + text +
               " (9000-9004 slots 0-4, 0-15 servers, 100-115 others, 1000-8999 records)");
  }
  char line[256] = {};
  DWORD made = HOST_CALL(library, SnmpGetReport)(static_cast<int>(index), line);
  if (made != 1) Failure("no UPS at report index " + text);
  Print("report %ld:%s\n", index, line);
  std::span<const ReportColumn> columns = ReportColumns();
  std::size_t column = 0;
  for (const char *at = line; *at != '\0' && column < columns.size();) {
    at += std::strspn(at, " ");
    std::size_t length = std::strcspn(at, " ");
    if (length == 0) break;
    std::string value(at, length);
    if (value.front() == '[') value.erase(0, 1);
    if (value.back() == ']') value.pop_back();
    const ReportColumn &named = columns[column++];
    if (!named.names.empty() && value.find('-') == std::string::npos) {
      value += std::string(" ") + NameOf(named.names, std::atoi(value.c_str()));
    }
    Print("  %-18s %s\n", named.label, value.c_str());
    at += length;
  }
  return 0;
}

}  // namespace host
