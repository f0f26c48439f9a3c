#include "OmbrixPlatform/Values/FatalError.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMaximumHooks = 8;
constexpr auto kLongestFlush = 10s;

std::array<std::atomic<void (*)() noexcept>, kMaximumHooks> hooks{};
std::atomic_flag isStopping{};
thread_local bool stopsItself = false;  // the calling thread runs the hooks

}  // namespace

void addFatalErrorHook(void (*hook)() noexcept) noexcept {
  for (auto& slot : hooks) {
    void (*empty)() noexcept = nullptr;
    if (slot.compare_exchange_strong(empty, hook) || empty == hook) return;
  }
}

void fatalError(std::string_view message, std::source_location location) noexcept {
  // If a hook fails, the message is written at once.
  const bool isFirst = !isStopping.test_and_set();
  if (isFirst) {
    stopsItself = true;
    for (auto& slot : hooks) {
      if (auto* hook = slot.load()) hook();
    }
  }
  std::fprintf(stderr, "Fatal error: %.*s (%s:%u)\n", static_cast<int>(message.size()),
               message.data(), location.file_name(), static_cast<unsigned>(location.line()));
  std::fflush(stderr);
  // Aborting on a second thread would cut off the first one's hooks; it waits only for a limited
  // time, since it may hold a lock that they need.
  if (!isFirst && !stopsItself) std::this_thread::sleep_for(kLongestFlush);
  std::abort();
}

void fatalException(std::string_view source, std::source_location location) noexcept {
  std::string message = "an exception left " + std::string(source) + ": ";
  try {
    throw;
  } catch (const std::exception& error) {
    message += error.what();
  } catch (...) {
    message += "of an unknown type";
  }
  fatalError(message, location);
}

}  // namespace ombrix::platform
