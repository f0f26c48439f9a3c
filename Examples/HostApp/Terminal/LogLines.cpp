#include "Examples/HostApp/Terminal/LogLines.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::hostapp {
namespace {

using platform::JSON;

constexpr std::array<std::pair<std::string_view, LogLevel>, 4> kMarks = {{
    {"\U0001F6A8", LogLevel::error},
    {"\u26A0\uFE0F", LogLevel::warning},
    {"\u2139\uFE0F", LogLevel::info},
    {"\U0001F50D", LogLevel::debug},
}};
constexpr std::string_view kBehindMark = "   ";
constexpr std::array kLevelNames = {"error", "warning", "info", "debug"};

/// The beginning of an entry's first line: two words for the time, a space, a mark.
struct Beginning {
  std::size_t timeBytes;
  std::size_t messageBegin;
  LogLevel level;
};

std::optional<Beginning> beginningOf(std::string_view line) {
  const auto date = line.find(' ');
  const auto time = date == line.npos ? date : line.find(' ', date + 1);
  if (time == line.npos) return std::nullopt;
  const std::string_view rest = line.substr(time + 1);
  for (const auto& [mark, level] : kMarks) {
    if (!rest.starts_with(mark) || !rest.substr(mark.size()).starts_with(kBehindMark)) continue;
    return Beginning{time, time + 1 + mark.size() + kBehindMark.size(), level};
  }
  return std::nullopt;
}

/// Parses the text: "... message | [file function]:line".
void readParts(LogEntry& entry) {
  const auto beginning = beginningOf(entry.text);
  if (!beginning) return;
  entry.level = beginning->level;
  entry.time = entry.text.substr(0, beginning->timeBytes);
  entry.message = entry.text.substr(beginning->messageBegin);
  const auto where = entry.message.rfind(" | [");
  const auto end = entry.message.rfind("]:");
  if (where == std::string::npos || end == std::string::npos || end < where) return;
  const std::string place = entry.message.substr(where + 4, end - where - 4);
  const auto blank = place.find(' ');
  entry.file = place.substr(0, blank);
  if (blank != std::string::npos) entry.function = place.substr(blank + 1);
  const char* number = entry.message.data() + end + 2;
  std::from_chars(number, entry.message.data() + entry.message.size(), entry.line);
  entry.message.resize(where);
}

}  // namespace

std::vector<LogEntry> logEntries(std::string_view lines) {
  std::vector<LogEntry> entries;
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    lines.remove_prefix(std::min(line.size() + 1, lines.size()));
    if (entries.empty() || beginningOf(line)) {
      entries.push_back({.text = std::string(line)});
    } else {
      entries.back().text.append("\n").append(line);
    }
  }
  for (LogEntry& entry : entries) readParts(entry);
  return entries;
}

JSON jsonOf(const LogEntry& entry) {
  static const platform::DateFormatter clock("MM/dd/yyyy HH:mm:ss:SSS");
  const auto time = clock.dateFrom(entry.time);
  const auto text = [](const std::string& part) { return part.empty() ? JSON() : JSON(part); };
  return JSON::Dictionary{
      {"time", time ? JSON(platform::timeIntervalSince1970(*time)) : JSON()},
      {"level", entry.level ? JSON(kLevelNames[static_cast<std::size_t>(*entry.level)]) : JSON()},
      {"message", entry.level ? entry.message : entry.text},
      {"file", text(entry.file)},
      {"function", text(entry.function)},
      {"line", entry.line > 0 ? JSON(entry.line) : JSON()}};
}

}  // namespace ombrix::hostapp
