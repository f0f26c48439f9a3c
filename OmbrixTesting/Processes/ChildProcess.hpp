#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::testing {

/// A program that runs beside the test and talks with it in lines; killed at the end of the scope
/// when it still runs. One thread.
class ChildProcess {
 public:
  /// Starts the program; its standard error is the test's. Throws `std::runtime_error`.
  explicit ChildProcess(std::vector<std::string> command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Writes a line to the program's standard input.
  void send(std::string_view line) const;

  /// The next line of its standard output; nothing at the end, or when none comes in time.
  std::optional<std::string> readLine(
      std::chrono::steady_clock::duration timeout = std::chrono::seconds(30));

  /// Sends it a signal, by number.
  void signal(int number) const;

  /// Ends it at once, as `kill -9` does, and waits until it is gone.
  void kill();

  /// Waits for its end; its exit status, or -1 when a signal ended it.
  int wait();

 private:
  pid_t process_ = -1;
  int input_ = -1, output_ = -1;
  std::string buffer_;
};

}  // namespace ombrix::testing
