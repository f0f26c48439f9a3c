#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace ombrix::devserver {

/// Named gates that hold answers up until a test opens them; each is shut at first. Any thread.
class Gates {
 public:
  using Resume = std::function<void()>;

  /// Passes (true) when the gate is open; else keeps `resume`, which runs on the thread that opens
  /// the gate, under no lock.
  bool enter(const std::string& gate, std::uint64_t visitor, Resume resume);
  /// Forgets what waits for a visitor.
  void leave(std::uint64_t visitor);

  /// Lets through what waits, and what comes until it is shut.
  void open(const std::string& gate);
  void shut(const std::string& gate);
  /// Drops everything that waits.
  void clear();

 private:
  struct Gate {
    bool isOpen = false;
    std::vector<std::pair<std::uint64_t, Resume>> waiting;
  };

  std::mutex mutex_;
  std::map<std::string, Gate> gates_;
};

}  // namespace ombrix::devserver
