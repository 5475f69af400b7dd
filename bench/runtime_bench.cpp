// The runtime's two costs a host pays most often, each against its floor measured in the same
// run:
//  - one library log record against the same bytes written with bare open/pread/pwrite/close
//    (target: at most 1.3);
//  - lib_init with a full snmp.apc (every setting and 130 addresses) against the same number of
//    bare profile reads of that file, each a plain scan for its key (target: at most 1.2).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "run_benchmarks.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

snmplumi::testing::TempHome *g_home;
constexpr char kMessage[] = "TovLumiSend(Cmd:012 / Len:000 / Resp:)";

// What a ring record costs at the least: read the position, write the record and the header.
void BM_BareRecord(benchmark::State &state) {
  std::string path = g_home->data("bare.log");
  char record[113];
  std::snprintf(record, sizeof record, "2026/11/22 23:28:00 [00000000] %-80.80s\n", kMessage);
  long position = 0;
  for (auto _ : state) {
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    char header[9] = {};
    if (::pread(fd, header, 8, 0) < 0) break;
    position = (std::atol(header) + 112) % (111 * 8000);
    if (::pwrite(fd, record, 112, 9 + position) < 0) break;
    std::snprintf(header, sizeof header, "%08ld", position);
    if (::pwrite(fd, header, 8, 0) < 0) break;
    ::close(fd);
  }
}

void BM_LibraryLogRecord(benchmark::State &state) {
  for (auto _ : state) LumiLocalLog(kMessage, 0);
}

std::vector<std::pair<std::string, std::string>> g_keys;  // (file, key) lib_init reads

// One profile read at the least: open, scan the lines for the key, close.
void BM_BareProfileReads(benchmark::State &state) {
  for (auto _ : state) {
    for (const auto &[file, key] : g_keys) {
      std::FILE *in = std::fopen(file.c_str(), "r");
      char line[512];
      while (in != nullptr && std::fgets(line, sizeof line, in) != nullptr) {
        if (std::strncmp(line, key.c_str(), key.size()) == 0 && line[key.size()] == '=') break;
      }
      if (in != nullptr) std::fclose(in);
      benchmark::DoNotOptimize(line);
    }
  }
}

void BM_LibInit(benchmark::State &state) {
  for (auto _ : state) lib_init();
}

BENCHMARK(BM_BareRecord)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_LibraryLogRecord)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_BareProfileReads)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_LibInit)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

// A snmp.apc that sets every key, with all 130 main addresses and the 48 group addresses.
void WriteFullConfiguration() {
  std::string config = g_home->data("config.apc");
  std::string snmp = g_home->data("snmp.apc");
  snmplumi::testing::PutFile(config, "[Lumi]\nTraceMode=OFF\n");
  g_keys.emplace_back(config, "TraceMode");
  std::string text = "[Snmp]\n";
  auto add = [&](const std::string &key, const std::string &value) {
    text += key + "=" + value + "\n";
    g_keys.emplace_back(snmp, key);
  };
  add("AC_MIB_Conv", "N");
  add("NO_TRAP", "N");
  add("UPS_IP", "127.18.0.1");
  for (int i = 1; i < 130; ++i)
    add("UPS_IP" + std::to_string(i), "127.18.0." + std::to_string(i + 1));
  for (const char *group : {"UPS_IP_S", "SERVER_IP_", "UPS_IP_O"}) {
    for (int i = 0; i < 16; ++i)
      add(group + std::to_string(i), "127.19.0." + std::to_string(i + 1));
  }
  const char *rest[][2] = {
      {"UPS_Com", "public"},
      {"UPS_Off", "S"},
      {"UPS_Power_fail_wait", "120"},
      {"UPS_Power_fail_wait_other", "90"},
      {"UPS_other_on_wait", "30"},
      {"SNMP_Trap_interval", "10"},
      {"DilayTimeCut", "Y"},
      {"SNMP_GET_RETRY", "5"},
      {"SNMP_SET_RETRY", "5"},
      {"NAME", "ups"},
      {"PORT", "5001"},
      {"ARM_PORT", "5002"},
      {"SEND_IP", "127.0.0.1"},
      {"AUTO_REBOOT_ORG", "N"},
      {"upsAdvConfigHighTransferVolt", "253"},
      {"upsAdvConfigLowTransferVolt", "196"},
      {"upsAdvConfigAlarm", "atLowBattery"},
      {"upsAdvConfigAlarmTimer", "30"},
      {"upsAdvConfigMinReturnCapacity", "50"},
      {"upsAdvConfigSensitivity", "high"},
      {"upsAdvConfigLowBatteryRunTime", "120"},
      {"upsAdvConfigBattExhaustThresh", "300"},
      {"upsAdvTestDiagnosticSchedule", "weekly"},
      {"upsBasicIdentName", "rack"},
      {"OffRequestCount", "3"},
      {"OffRequestInterval", "2"},
  };
  for (const auto &[key, value] : rest) add(key, value);
  snmplumi::testing::PutFile(snmp, text);
}

}  // namespace

int main(int argc, char **argv) {
  snmplumi::testing::TempHome home;
  g_home = &home;
  WriteFullConfiguration();
  auto times = snmplumi::bench::RunBenchmarks(&argc, argv);
  snmplumi::bench::PrintRatio(times, "BM_LibraryLogRecord", "BM_BareRecord",
                              "log record / bare open-pread-pwrite-close", "1.3");
  std::string label = "lib_init / " + std::to_string(g_keys.size()) + " bare profile reads";
  snmplumi::bench::PrintRatio(times, "BM_LibInit", "BM_BareProfileReads", label.c_str(), "1.2");
  return 0;
}
