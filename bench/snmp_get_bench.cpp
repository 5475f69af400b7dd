// SnmpGetR against a bare net-snmp synchronous GET of the same object on the same simulated
// card, in one run. Prints the ratio of their median times (target: at most 1.10).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "powernet.h"
#include "run_benchmarks.h"
#include "snmp/netsnmp.h"
#include "snmplumi.h"
#include "test_home.h"
#include "upssim_fixture.h"

namespace {

std::unique_ptr<upssim::Simulator> g_sim;
std::string g_address;

// The floor: what any net-snmp client pays for one GET.
void BM_BareNetSnmpGet(benchmark::State &state) {
  netsnmp_session description;
  snmp_sess_init(&description);
  description.version = SNMP_VERSION_1;
  description.peername = g_address.data();
  static char community[] = "public";
  description.community = reinterpret_cast<u_char *>(community);
  description.community_len = std::strlen(community);
  netsnmp_session *session = snmp_open(&description);
  if (session == nullptr) {
    state.SkipWithError("snmp_open failed");
    return;
  }
  for (auto _ : state) {
    netsnmp_pdu *pdu = snmp_pdu_create(SNMP_MSG_GET);
    oid name[MAX_OID_LEN];
    size_t length = MAX_OID_LEN;
    snmp_parse_oid(snmplumi::mib::upsAdvBatteryCapacity, name, &length);
    snmp_add_null_var(pdu, name, length);
    netsnmp_pdu *response = nullptr;
    if (snmp_synch_response(session, pdu, &response) != STAT_SUCCESS) {
      state.SkipWithError("no answer");
      break;
    }
    benchmark::DoNotOptimize(response->variables->val.integer);
    snmp_free_pdu(response);
  }
  snmp_close(session);
}

void BM_SnmpGetR(benchmark::State &state) {
  for (auto _ : state) {
    int32_t capacity = 0;
    if (SnmpGetR(g_address.c_str(), snmplumi::mib::upsAdvBatteryCapacity, 'u',
                 reinterpret_cast<char *>(&capacity), 0) != 0) {
      state.SkipWithError("no answer");
      break;
    }
    benchmark::DoNotOptimize(capacity);
  }
}

BENCHMARK(BM_BareNetSnmpGet)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_SnmpGetR)->Repetitions(5)->ReportAggregatesOnly(true);

// Keeps the median time of each benchmark while printing as usual.
}  // namespace

int main(int argc, char **argv) {
  snmplumi::testing::TempHome home;
  g_sim = upssim::Simulator::Start({{.name = "ups"}});
  g_address = g_sim->Address("ups");
  setenv("SNMPCONFPATH", g_sim->ClientConfigDir().c_str(), 1);
  std::strcpy(UpsCommunity, "public");
  int32_t warm = 0;  // opens the session and initialises net-snmp for both contenders
  if (SnmpGetR(g_address.c_str(), snmplumi::mib::upsAdvBatteryCapacity, 'u',
               reinterpret_cast<char *>(&warm), 0) != 0) {
    std::fprintf(stderr, "the simulated card does not answer\n");
    return 1;
  }

  auto times = snmplumi::bench::RunBenchmarks(&argc, argv);
  snmplumi::bench::PrintRatio(times, "BM_SnmpGetR", "BM_BareNetSnmpGet",
                              "SnmpGetR / bare net-snmp GET", "1.10");
  SnmpEnd();
  g_sim.reset();
  return 0;
}
