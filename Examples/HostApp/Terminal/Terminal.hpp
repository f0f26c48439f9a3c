#pragma once

#include <cstddef>
#include <string_view>

namespace ombrix::hostapp {

/// Whether styled text makes sense on standard output: a terminal, and `NO_COLOR` is not set.
bool standardOutputTakesStyle();

/// A bar on standard error for long work; draws only when standard error is a terminal, and
/// removes itself at the end of its scope.
class ProgressBar {
 public:
  explicit ProgressBar(std::string_view label);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Shows `done` of `total`; cheap to call often, redraws only when the picture changes.
  void show(std::size_t done, std::size_t total);

 private:
  std::string_view label_;
  bool enabled_;
  int shownPercent_ = -1;
};

}  // namespace ombrix::hostapp
