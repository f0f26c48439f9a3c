#include "Examples/HostApp/Terminal/Terminal.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace ombrix::hostapp {

bool standardOutputTakesStyle() {
  const char* noColor = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) != 0 && (noColor == nullptr || *noColor == '\0');
}

ProgressBar::ProgressBar(std::string_view label)
    : label_(label), enabled_(isatty(STDERR_FILENO) != 0) {}

ProgressBar::~ProgressBar() {
  if (shownPercent_ >= 0) fmt::print(stderr, "\r\x1b[K");
}

void ProgressBar::show(std::size_t done, std::size_t total) {
  if (!enabled_ || total == 0) return;
  const int percent = static_cast<int>(100 * std::min(done, total) / total);
  if (percent == shownPercent_) return;
  shownPercent_ = percent;
  constexpr int kWidth = 30;
  const int filled = percent * kWidth / 100;
  fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3} %", label_, "", filled, "", kWidth - filled,
             percent);
  std::fflush(stderr);
}

}  // namespace ombrix::hostapp
