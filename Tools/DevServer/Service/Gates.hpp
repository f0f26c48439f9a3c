#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::devserver {

/// Named gates that hold answers until a test opens them; initially shut. Any thread.
class Gates {
 public:
  using Resume = std::function<void()>;

  /// Returns true when the gate is open; otherwise keeps `resume`, which runs without a lock on the
  /// thread that opens the gate.
  bool enter(const std::string& gate, std::uint64_t visitor, Resume resume);
  /// Drops everything that waits for a visitor.
  void leave(std::uint64_t visitor);

  /// Releases what waits, and lets later visitors pass until it is shut.
  void open(const std::string& gate);
  void shut(const std::string& gate);
  /// Drops everything that waits.
  void clear();

 private:
  struct Gate {
    bool isOpen = false;
    std::vector<std::pair<std::uint64_t, Resume>> waiting;
  };

  platform::Mutex mutex_;
  std::map<std::string, Gate> gates_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::devserver
