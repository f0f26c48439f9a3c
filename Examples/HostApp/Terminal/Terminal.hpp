#pragma once

#include <cstddef>
#include <string>

namespace ombrix::hostapp {

/// Whether styled text makes sense on standard output: a terminal that `TERM` does not call dumb,
/// and `NO_COLOR` is not set.
bool standardOutputTakesStyle();

/// Whether `COLORTERM` says that the terminal shows every colour; others show 256.
bool terminalTakesAllColours();

/// Whether standard output is a terminal.
bool standardOutputIsTerminal();

/// How many columns standard output has: the terminal's, else those of COLUMNS, else 80.
std::size_t columnsOfStandardOutput();

/// How wide a table may be there: unlimited if no terminal shows it and COLUMNS is unset.
std::size_t columnsForTables();

/// A progress bar on standard error for long work, as wide as the terminal allows; it draws only on
/// a terminal, and removes itself at the end of its scope.
class ProgressBar {
 public:
  explicit ProgressBar(std::string label);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Shows `done` of `total`; cheap to call often, redraws only when the picture changes.
  void show(std::size_t done, std::size_t total);

  /// Hides the bar until it is shown the next time, so that other lines can be printed.
  void hide();

 private:
  std::string label_;
  bool enabled_;
  int shownPercent_ = -1;
};

}  // namespace ombrix::hostapp
