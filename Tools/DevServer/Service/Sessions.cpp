#include "Tools/DevServer/Service/Sessions.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix::devserver {
namespace {

constexpr std::size_t kMostTokens = 64;
constexpr std::string_view kScheme = "Bearer ";

}  // namespace

bool Sessions::addAccount(std::string email, std::string password) {
  const platform::LockGuard lock(mutex_);
  return accounts_.emplace(std::move(email), std::move(password)).second;
}

bool Sessions::isTaken(const std::string& email) const {
  const platform::LockGuard lock(mutex_);
  return accounts_.contains(email);
}

std::optional<std::string> Sessions::login(const std::string& email, std::string_view password) {
  const platform::LockGuard lock(mutex_);
  const auto account = accounts_.find(email);
  if (account == accounts_.end() || account->second != password) return std::nullopt;
  return issue();
}

bool Sessions::isValid(std::string_view authorization) const {
  if (!authorization.starts_with(kScheme)) return false;
  authorization.remove_prefix(kScheme.size());
  const platform::LockGuard lock(mutex_);
  return std::ranges::find(tokens_, authorization) != tokens_.end();
}

std::optional<std::string> Sessions::rotate() {
  const platform::LockGuard lock(mutex_);
  if (rotateEvery_ == 0 || ++answers_ % rotateEvery_ != 0) return std::nullopt;
  return issue();
}

void Sessions::setRotation(std::uint64_t every) {
  const platform::LockGuard lock(mutex_);
  rotateEvery_ = every;
  answers_ = 0;
}

void Sessions::revokeAll() {
  const platform::LockGuard lock(mutex_);
  tokens_.clear();
}

std::string Sessions::issue() {
  tokens_.push_front(platform::UUID::random().uuidString());
  if (tokens_.size() > kMostTokens) tokens_.pop_back();
  return tokens_.front();
}

}  // namespace ombrix::devserver
