#pragma once

#include <functional>
#include <utility>

namespace ombrix::platform::detail {

/// Takes the first answer to a question; dropped without one, it gives the default.
template <class Answer>
class AnswerOnce {
 public:
  AnswerOnce(std::move_only_function<void(Answer)> take, Answer byDefault)
      : take_(std::move(take)), default_(std::move(byDefault)) {}
  AnswerOnce(AnswerOnce&& other) noexcept
      : take_(std::exchange(other.take_, nullptr)), default_(std::move(other.default_)) {}
  AnswerOnce& operator=(AnswerOnce&&) = delete;
  ~AnswerOnce() {
    if (take_) take_(std::move(default_));
  }

  void operator()(Answer answer) {
    if (auto take = std::exchange(take_, nullptr)) take(std::move(answer));
  }

 private:
  std::move_only_function<void(Answer)> take_;
  Answer default_;
};

}  // namespace ombrix::platform::detail
