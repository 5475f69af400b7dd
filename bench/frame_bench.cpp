// TovLumiSend of a fixed-answer frame ("012") against its floor: the two library log records it
// writes, written bare in the same run. Prints the ratio of their median times (target: at most
// 1.5).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

#include "run_benchmarks.h"
#include "snmplumi.h"
#include "test_home.h"

namespace {

void BM_TwoLogRecords(benchmark::State &state) {
  for (auto _ : state) {
    LumiLocalLog("TovLumiSend(Cmd:012 / Len:000 / Resp:)", 0);
    LumiLocalLog("TovLumiSend(RespData:0120002420000000000000000000000000000000000000000)", 0);
  }
}

void BM_StatusFrame(benchmark::State &state) {
  char frame[48];
  for (auto _ : state) {
    std::memcpy(frame, "0120000", 7);
    if (TovLumiSend(0, 0, frame, 48) != 0) {
      state.SkipWithError("status frame failed");
      break;
    }
  }
}

BENCHMARK(BM_TwoLogRecords)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_StatusFrame)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char **argv) {
  snmplumi::testing::TempHome home;
  auto times = snmplumi::bench::RunBenchmarks(&argc, argv);
  snmplumi::bench::PrintRatio(times, "BM_StatusFrame", "BM_TwoLogRecords",
                              "TovLumiSend(\"012\") / two log records", "1.5");
  return 0;
}
