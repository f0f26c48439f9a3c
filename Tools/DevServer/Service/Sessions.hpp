#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::devserver {

/// The accounts of the service and the tokens of those signed in. Any thread.
class Sessions {
 public:
  /// Starts with one account, so that a client can sign in.
  Sessions(std::string email, std::string password) {
    accounts_.emplace(std::move(email), std::move(password));
  }

  /// Adds an account; false when the address is taken.
  bool addAccount(std::string email, std::string password);
  [[nodiscard]] bool isTaken(const std::string& email) const;

  /// A new token; empty when the account does not exist or the password is wrong.
  std::optional<std::string> login(const std::string& email, std::string_view password);

  /// Whether a header's "Bearer …" holds a valid token. A token stays valid for some rotations,
  /// since overlapping requests still carry older ones.
  [[nodiscard]] bool isValid(std::string_view authorization) const;

  /// Counts an answer to an authorised request; returns a new token when one is due.
  std::optional<std::string> rotate();
  /// @param every The number of these answers per new token; 0 for never.
  void setRotation(std::uint64_t every);

  /// Ends all sessions: all tokens are invalid from now on.
  void revokeAll();

 private:
  std::string issue() OMBRIX_REQUIRES(mutex_);

  mutable platform::Mutex mutex_;
  std::map<std::string, std::string> accounts_ OMBRIX_GUARDED_BY(mutex_);
  std::deque<std::string> tokens_ OMBRIX_GUARDED_BY(mutex_);
  std::uint64_t rotateEvery_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::uint64_t answers_ OMBRIX_GUARDED_BY(mutex_) = 0;
};

}  // namespace ombrix::devserver
