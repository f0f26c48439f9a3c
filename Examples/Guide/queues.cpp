#include <Ombrix/Settings.hpp>
#include <atomic>
#include <cstdio>

using namespace ombrix;

Async<int> half(int number) {
  if (number % 2 != 0) throw Error("an odd number has no half");
  co_return number / 2;
}

Async<int> quarter(int number) {
  const int once = co_await half(number);
  const int twice = co_await half(once);
  co_return twice;
}

int main() {
  std::printf("a quarter of 12 is %d\n", quarter(12).get());  // waits for it
  try {
    quarter(6).get();
  } catch (const Error& error) {
    std::puts(error.what());
  }

  std::atomic<int> sum = 0;
  const auto queue = NSOperationQueue::make("sums");
  for (int i = 0; i < 100; ++i) queue->addOperation([&sum, i] { sum += i; });
  queue->waitUntilAllOperationsAreFinished();
  std::printf("the sum is %d\n", sum.load());
}
