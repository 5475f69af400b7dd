// One power-state watch pass over 130 configured cards against its floor: the same 390 GETs
// (output voltage, time on battery, fail cause of each card) issued with bare net-snmp calls in
// the same run. Prints the ratio of their median times (target: at most 1.10).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "powernet.h"
#include "run_benchmarks.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"
#include "test_home.h"
#include "upssim_fixture.h"

namespace {

constexpr int kCards = 130;
constexpr int kQuietPass = 4;  // a report schedule position that reports nothing here
std::unique_ptr<upssim::Simulator> g_sim;

// The floor: the same GETs one after the other on single sessions, as lean as net-snmp allows.
void BM_BareNetSnmpGets(benchmark::State &state) {
  std::vector<void *> sessions;
  static char community[] = "public";
  for (int i = 0; i < kCards; ++i) {
    netsnmp_session description;
    snmp_sess_init(&description);
    description.version = SNMP_VERSION_1;
    description.peername = UpsIp[i];
    description.community = reinterpret_cast<u_char *>(community);
    description.community_len = std::strlen(community);
    sessions.push_back(snmp_sess_open(&description));
  }
  std::vector<std::vector<oid>> objects;
  for (const char *text :
       {snmplumi::mib::upsAdvOutputVoltage, snmplumi::mib::upsBasicBatteryTimeOnBattery,
        snmplumi::mib::upsAdvInputLineFailCause}) {
    std::vector<oid> name(MAX_OID_LEN);
    size_t length = MAX_OID_LEN;
    snmp_parse_oid(text, name.data(), &length);
    name.resize(length);
    objects.push_back(name);
  }
  for (auto _ : state) {
    for (void *session : sessions) {
      for (const std::vector<oid> &name : objects) {
        netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
        snmp_add_null_var(pdu, name.data(), name.size());
        netsnmp_pdu *response = nullptr;
        if (snmp_sess_synch_response(session, pdu, &response) != STAT_SUCCESS) {
          state.SkipWithError("no answer");
          return;
        }
        benchmark::DoNotOptimize(response->variables->val.integer);
        snmp_free_pdu(response);
      }
    }
  }
  for (void *session : sessions) snmp_sess_close(session);
}

void BM_WatchPass(benchmark::State &state) {
  for (auto _ : state) {
    WatchingCounter = kQuietPass;
    KavAcSnmpCheck();
  }
}

BENCHMARK(BM_BareNetSnmpGets)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_WatchPass)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char **argv) {
  snmplumi::testing::TempHome home;
  std::vector<upssim::CardOptions> cards;
  for (int i = 0; i < kCards; ++i) cards.push_back({.name = "ups" + std::to_string(i)});
  g_sim = upssim::Simulator::Start(cards);
  setenv("SNMPCONFPATH", g_sim->ClientConfigDir().c_str(), 1);
  std::strcpy(UpsCommunity, "public");
  for (int i = 0; i < kCards; ++i) std::strcpy(UpsIp[i], g_sim->Address(cards[i].name).c_str());
  for (auto &row : UpsIpOther) row[0] = '\0';
  KavAcSnmpCheck();  // opens the sessions and initialises net-snmp for both contenders
  if (ups_X1[0][1] != 0) {
    std::fprintf(stderr, "the simulated cards do not answer as expected\n");
    return 1;
  }

  auto times = snmplumi::bench::RunBenchmarks(&argc, argv);
  snmplumi::bench::PrintRatio(times, "BM_WatchPass", "BM_BareNetSnmpGets",
                              "watch pass / bare net-snmp GETs", "1.10");
  SnmpEnd();
  g_sim.reset();
  return 0;
}
