#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::hostapp {

struct Outcome {
  int status;
  std::string output;  ///< Standard output and standard error together.
};

/// Runs the program through the shell, in the folder given, where `before` was run.
inline Outcome run(const testing::ScopedDir& folder, const std::string& arguments,
                   const std::string& before = "") {
  const std::string line = "cd '" + folder.path().string() + "' && " + before +
                           "'" OMBRIX_PROGRAM "' " + arguments + " 2>&1";
  std::FILE* pipe = popen(line.c_str(), "r");
  Outcome outcome{-1, ""};
  std::array<char, 4096> block{};
  for (std::size_t n = 0; (n = std::fread(block.data(), 1, block.size(), pipe)) > 0;) {
    outcome.output.append(block.data(), n);
  }
  outcome.status = WEXITSTATUS(pclose(pipe));
  return outcome;
}

/// A program that runs beside the test; its output is read line by line as it comes.
/// It is ended after half a minute, so that a line that never comes fails the test.
class Running {
 public:
  explicit Running(const std::string& arguments)
      : pipe_(popen(("timeout 30 '" OMBRIX_PROGRAM "' " + arguments + " 2>&1").c_str(), "r")) {}
  ~Running() { wait(); }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  std::string nextLine() {
    std::array<char, 512> line{};
    return std::fgets(line.data(), static_cast<int>(line.size()), pipe_) != nullptr ? line.data()
                                                                                    : "";
  }

  int wait() {
    const int status = pipe_ != nullptr ? WEXITSTATUS(pclose(pipe_)) : -1;
    pipe_ = nullptr;
    return status;
  }

 private:
  std::FILE* pipe_;
};

}  // namespace ombrix::hostapp
