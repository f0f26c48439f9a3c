#include "Tools/DevServer/Service/Gates.hpp"

#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::devserver {

bool Gates::enter(const std::string& gate, std::uint64_t visitor, Resume resume) {
  const platform::LockGuard lock(mutex_);
  Gate& entered = gates_[gate];
  if (!entered.isOpen) entered.waiting.emplace_back(visitor, std::move(resume));
  return entered.isOpen;
}

void Gates::leave(std::uint64_t visitor) {
  std::vector<Resume> dropped;  // destroyed outside the lock: captures may end a connection
  const platform::LockGuard lock(mutex_);
  for (auto& [name, gate] : gates_) {
    std::erase_if(gate.waiting, [&](auto& waiting) {
      if (waiting.first != visitor) return false;
      dropped.push_back(std::move(waiting.second));
      return true;
    });
  }
}

void Gates::open(const std::string& gate) {
  std::vector<std::pair<std::uint64_t, Resume>> passing;
  {
    const platform::LockGuard lock(mutex_);
    gates_[gate].isOpen = true;
    passing.swap(gates_[gate].waiting);
  }
  for (auto& [visitor, resume] : passing) resume();
}

void Gates::shut(const std::string& gate) {
  const platform::LockGuard lock(mutex_);
  gates_[gate].isOpen = false;
}

void Gates::clear() {
  std::map<std::string, Gate> dropped;
  const platform::LockGuard lock(mutex_);
  dropped.swap(gates_);
}

}  // namespace ombrix::devserver
