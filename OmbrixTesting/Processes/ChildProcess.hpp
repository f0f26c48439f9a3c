#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::testing {

/// A program that runs beside the test and exchanges lines with it; killed at the end of the scope
/// if it still runs. One thread.
class ChildProcess {
 public:
  /// Starts the program; its standard error is the test's. Throws `std::runtime_error`.
  explicit ChildProcess(std::vector<std::string> command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Writes a line to the program's standard input.
  void send(std::string_view line) const;

  /// The next line of its standard output; empty at the end, or if none arrives in time.
  std::optional<std::string> readLine(
      std::chrono::steady_clock::duration timeout = std::chrono::seconds(30));

  /// Sends a signal to it, by number.
  void signal(int number) const;

  /// Kills it at once, as `kill -9` does, and waits for its end.
  void kill();

  /// Waits for its end; returns its exit status, or -1 if a signal ended it.
  int wait();

 private:
  pid_t process_ = -1;
  int input_ = -1, output_ = -1;
  std::string buffer_;
};

}  // namespace ombrix::testing
