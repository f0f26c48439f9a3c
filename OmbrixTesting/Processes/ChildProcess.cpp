#include "OmbrixTesting/Processes/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

namespace ombrix::testing {

ChildProcess::ChildProcess(std::vector<std::string> command) {
  std::array<int, 2> in{}, out{};
  if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  std::vector<char*> arguments;
  for (auto& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const int error =
      ::posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  input_ = in[1];
  output_ = out[0];
  if (error != 0) throw std::runtime_error("cannot start " + command[0]);
}

ChildProcess::~ChildProcess() {
  kill();
  ::close(input_);
  ::close(output_);
}

void ChildProcess::send(std::string_view line) const {
  const std::string text = std::string(line) + "\n";
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error("the program has closed its input");
  }
}

std::optional<std::string> ChildProcess::readLine(std::chrono::steady_clock::duration timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    if (const auto end = buffer_.find('\n'); end != std::string::npos) {
      auto line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return line;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd ready{.fd = output_, .events = POLLIN, .revents = 0};
    if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0) {
      return std::nullopt;
    }
    std::array<char, 4096> bytes;
    const auto count = ::read(output_, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    buffer_.append(bytes.data(), static_cast<std::size_t>(count));
  }
}

void ChildProcess::signal(int number) const {
  if (process_ >= 0) ::kill(process_, number);
}

void ChildProcess::kill() {
  if (process_ < 0) return;
  ::kill(process_, SIGKILL);
  wait();
}

int ChildProcess::wait() {
  if (process_ < 0) return -1;
  int status = 0;
  while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace ombrix::testing
