#include "OmbrixCore/Networking/Requests/HTTPLines.hpp"

#include <string_view>
#include <utility>

#include "OmbrixCore/Networking/Requests/Detail/HTTPLinesState.hpp"

namespace ombrix {
namespace {

using platform::Async;
using platform::URLError;

constexpr std::size_t kLongestLineBytes = std::size_t{1} << 20;
constexpr std::size_t kMostBytesKept = std::size_t{256} << 10;

std::size_t costOf(const std::string& line) { return line.size() + sizeof(std::string); }

}  // namespace

std::expected<HTTPBodySink::Flow, URLError> HTTPLines::State::take(
    const platform::HTTPURLResponse& /*response*/, platform::DataView piece) {
  hasBegun_ = true;
  std::string_view text = platform::textOf(piece);
  for (;;) {
    const auto end = text.find('\n');
    partial_.append(text.substr(0, end));
    if (partial_.size() > kLongestLineBytes) {
      return std::unexpected(
          URLError(URLError::Code::dataLengthExceedsMaximum, "a line of the answer is too long"));
    }
    if (end == std::string_view::npos) break;
    if (partial_.ends_with('\r')) partial_.pop_back();
    add(std::exchange(partial_, {}));
    text.remove_prefix(end + 1);
  }
  wake();
  const platform::LockGuard lock(lock_);
  isHeld_ = bytes_ > kMostBytesKept;
  return isHeld_ ? Flow::hold : Flow::goOn;
}

std::expected<void, URLError> HTTPLines::State::end(const platform::HTTPURLResponse& /*response*/) {
  if (!partial_.empty()) add(std::exchange(partial_, {}));
  wake();
  return {};
}

bool HTTPLines::State::beginAgain(const std::shared_ptr<HttpRequestOperation>& operation,
                                  platform::HTTPHeaders& /*headers*/) {
  if (hasBegun_) return false;
  const platform::LockGuard lock(lock_);
  operation_ = operation;
  return true;
}

void HTTPLines::State::add(std::string line) {
  const platform::LockGuard lock(lock_);
  bytes_ += costOf(line);
  lines_.push_back(std::move(line));
}

void HTTPLines::State::finish(std::exception_ptr error) {
  {
    const platform::LockGuard lock(lock_);
    if (std::exchange(isOver_, true)) return;
    error_ = std::move(error);
  }
  wake();
}

void HTTPLines::State::wake() {
  std::optional<platform::Continuation<void>> waiter;
  {
    const platform::LockGuard lock(lock_);
    waiter.swap(waiting_);
  }
  if (waiter) waiter->resume();
}

HTTPLines::State::Found HTTPLines::State::takeLine() {
  Found found;
  std::shared_ptr<HttpRequestOperation> asked;
  {
    const platform::LockGuard lock(lock_);
    if (!lines_.empty()) {
      found.line = std::move(lines_.front());
      lines_.pop_front();
      bytes_ -= costOf(*found.line);
      if (isHeld_ && bytes_ <= kMostBytesKept / 2) {
        isHeld_ = false;
        asked = operation_.lock();
      }
    } else if (!isOver_) {
      found.mustWait = true;
    } else if (error_) {
      std::rethrow_exception(std::exchange(error_, nullptr));
    }
  }
  if (asked) asked->receiveMore();
  return found;
}

void HTTPLines::State::await(platform::Continuation<void> continuation) {
  {
    const platform::LockGuard lock(lock_);
    if (lines_.empty() && !isOver_) {
      waiting_ = std::move(continuation);
      return;
    }
  }
  continuation.resume();
}

HTTPLines::HTTPLines(std::shared_ptr<State> state, platform::Task<void> request)
    : state_(std::move(state)), request_(std::move(request)) {}

HTTPLines& HTTPLines::operator=(HTTPLines&& other) noexcept {
  std::swap(state_, other.state_);
  std::swap(request_, other.request_);
  return *this;
}

HTTPLines::~HTTPLines() {
  if (state_) request_.cancel();
}

Async<std::optional<std::string>> HTTPLines::next() {
  const auto state = state_;
  const auto request = request_;
  for (;;) {
    auto found = state->takeLine();
    if (!found.mustWait) co_return std::move(found.line);
    std::function<void(platform::Continuation<void>)> body =
        [&](platform::Continuation<void> continuation) { state->await(std::move(continuation)); };
    std::function<void()> onCancel = [&] { request.cancel(); };
    co_await platform::withContinuation<void>(body, onCancel);
  }
}

}  // namespace ombrix
