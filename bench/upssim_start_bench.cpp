// How long the simulator takes to have 162 cards answering (the most the library watches), next
// to the floor of starting it with one card, in one run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "run_benchmarks.h"
#include "upssim_fixture.h"

namespace {

std::vector<upssim::CardOptions> Cards(int count) {
  std::vector<upssim::CardOptions> cards;
  for (int i = 0; i < count; ++i) cards.push_back({.name = "ups" + std::to_string(i)});
  return cards;
}

// Start returns once every card is bound; the destructor stops the process.
void BM_StartAndStop(benchmark::State &state) {
  auto cards = Cards(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    auto simulator = upssim::Simulator::Start(cards);
    benchmark::DoNotOptimize(simulator.get());
  }
}

BENCHMARK(BM_StartAndStop)->Arg(1)->Arg(162)->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

int main(int argc, char **argv) {
  auto times = snmplumi::bench::RunBenchmarks(&argc, argv);
  double floor = times["BM_StartAndStop/1/iterations:20"];
  double many = times["BM_StartAndStop/162/iterations:20"];
  if (floor > 0 && many > 0) {
    std::printf(
        "\n162 cards / 1 card, start and stop: %.2f  (%.1f ms for 162 cards; target well "
        "under 1000 ms)\n",
        many / floor, many);
  }
  return 0;
}
