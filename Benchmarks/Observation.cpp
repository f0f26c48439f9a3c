// Signals: sending to few and many observers, and their coming and going, beside Boost.Signals2.

#include <benchmark/benchmark.h>

#include <boost/signals2.hpp>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "OmbrixPlatform/Observation/Signal.hpp"

namespace {

using Ours = ombrix::platform::Signal<int>;
using Peer = boost::signals2::signal<void(int)>;

void send(Ours& signal, int value) { signal.send(value); }
void send(Peer& signal, int value) { signal(value); }
auto connect(Ours& signal, long& sum) {
  return signal.connect([&sum](int value) { sum += value; });
}
auto connect(Peer& signal, long& sum) {
  return boost::signals2::scoped_connection(signal.connect([&sum](int value) { sum += value; }));
}

template <class Signal>
long sumOfOneSend(long observers) {
  Signal signal;
  long sum = 0;
  std::vector<decltype(connect(signal, sum))> tokens;
  for (long i = 0; i < observers; ++i) tokens.push_back(connect(signal, sum));
  tokens.erase(tokens.begin());
  send(signal, 3);
  return sum;
}

void checkThatAnswersAgree() {
  if (sumOfOneSend<Ours>(1000) == 999 * 3 && sumOfOneSend<Peer>(1000) == 999 * 3) return;
  std::fputs("signals reach the wrong observers\n", stderr);
  std::abort();
}

template <class Signal>
void Send(benchmark::State& state) {
  checkThatAnswersAgree();
  Signal signal;
  long sum = 0;
  std::vector<decltype(connect(signal, sum))> tokens;
  for (long i = 0; i < state.range(0); ++i) tokens.push_back(connect(signal, sum));
  for (auto _ : state) send(signal, 1);
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations() * std::max(1L, state.range(0)));
}
BENCHMARK(Send<Ours>)->Name("send/ombrix")->Arg(0)->Arg(1)->Arg(10)->Arg(10'000);
BENCHMARK(Send<Peer>)->Name("send/boost-signals2")->Arg(0)->Arg(1)->Arg(10)->Arg(10'000);

template <class Signal>
void ConnectAndEnd(benchmark::State& state) {
  Signal signal;
  long sum = 0;
  for (auto _ : state) {
    std::vector<decltype(connect(signal, sum))> tokens;
    tokens.reserve(static_cast<std::size_t>(state.range(0)));
    for (long i = 0; i < state.range(0); ++i) tokens.push_back(connect(signal, sum));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ConnectAndEnd<Ours>)->Name("connect-end/ombrix")->Arg(1)->Arg(10'000);
BENCHMARK(ConnectAndEnd<Peer>)->Name("connect-end/boost-signals2")->Arg(1)->Arg(10'000);

}  // namespace
