#include "Examples/HostApp/Terminal/Terminal.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "Examples/HostApp/Terminal/TextTable.hpp"

namespace ombrix::hostapp {
namespace {

std::size_t columnsOfTerminal(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  std::size_t columns = 0;
  if (const char* text = std::getenv("COLUMNS"); text != nullptr) {
    std::from_chars(text, text + std::strlen(text), columns);
  }
  constexpr std::size_t kUsual = 80, kMost = 1000;
  return columns > 0 ? std::min(columns, kMost) : kUsual;
}

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

}  // namespace

bool standardOutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }

std::size_t columnsOfStandardOutput() { return columnsOfTerminal(STDOUT_FILENO); }

std::size_t columnsForTables() {
  const bool isKnown = standardOutputIsTerminal() || !variable("COLUMNS").empty();
  return isKnown ? columnsOfStandardOutput() : std::string::npos;
}

bool standardOutputTakesStyle() {
  const std::string_view terminal = variable("TERM");
  return standardOutputIsTerminal() && variable("NO_COLOR").empty() && !terminal.empty() &&
         terminal != "dumb";
}

bool terminalTakesAllColours() {
  const std::string_view colours = variable("COLORTERM");
  return colours == "truecolor" || colours == "24bit";
}

ProgressBar::ProgressBar(std::string label)
    : label_(std::move(label)), enabled_(isatty(STDERR_FILENO) != 0) {}

ProgressBar::~ProgressBar() { hide(); }

void ProgressBar::hide() {
  if (shownPercent_ < 0) return;
  fmt::print(stderr, "\r\x1b[K");
  std::fflush(stderr);
  shownPercent_ = -1;
}

void ProgressBar::show(std::size_t done, std::size_t total) {
  if (!enabled_ || total == 0) return;
  const int percent = static_cast<int>(100 * std::min(done, total) / total);
  if (percent == shownPercent_) return;
  shownPercent_ = percent;
  // Beside the label there are spaces, brackets, the percentage and one free column.
  constexpr std::size_t kBeside = 10, kMost = 30;
  const std::size_t taken = columnsOf(label_) + kBeside, all = columnsOfTerminal(STDERR_FILENO);
  const std::size_t width = std::min(all > taken ? all - taken : 0, kMost);
  const std::size_t filled = static_cast<std::size_t>(percent) * width / 100;
  if (width > 0) {
    fmt::print(stderr, "\r{} [{:#<{}}{:.<{}}] {:3} %", label_, "", filled, "", width - filled,
               percent);
  } else {
    fmt::print(stderr, "\r{:3} %", percent);
  }
  std::fflush(stderr);
}

}  // namespace ombrix::hostapp
