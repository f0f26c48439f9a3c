#include "Examples/HostApp/Help/HelpText.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

constexpr std::size_t kMostColumns = 100, kLeastColumns = 24;
constexpr std::size_t kMostNames = 26;  // Longer names get a line of their own.

/// How many bytes the text's first characters take that fit into this many columns, at least one
/// character.
std::size_t fittingBytes(std::string_view text, std::size_t columns) {
  std::size_t fits = 0;
  for (std::size_t end = 0; end < text.size();) {
    do {
      ++end;
    } while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U);
    if (fits > 0 && columnsOf(text.substr(0, end)) > columns) break;
    fits = end;
  }
  return fits;
}

std::string namesOf(const OptionHelp& option) {
  std::string names = fmt::format("{}", fmt::join(option.names, ", "));
  if (option.names.front().starts_with('-')) {
    const bool isShort = option.words.size() > 1 && option.words.size() <= 2;
    if (isShort) return fmt::format("{} {}", names, fmt::join(option.words, "|"));
    if (!option.value.empty()) names += " " + option.value;
  }
  return option.isRepeated && !option.names.front().starts_with('-') ? names + "…" : names;
}

std::string descriptionOf(const OptionHelp& option) {
  std::string description = option.description;
  if (option.words.size() > 2) {
    description += fmt::format(" ({})", fmt::join(option.words, ", "));
  }
  if (!option.initial.empty() && option.initial != "\"\"") {
    description += fmt::format(" [{}]", option.initial);
  }
  if (!option.environment.empty()) description += fmt::format(" ({})", "$" + option.environment);
  return description;
}

/// Lines with names on the left and their meaning on the right.
class Entries {
 public:
  void add(std::string names, std::string meaning) {
    entries_.emplace_back(std::move(names), std::move(meaning));
  }
  [[nodiscard]] std::string lines(std::string_view heading, std::size_t columns) const {
    if (entries_.empty()) return {};
    std::size_t width = 0;
    for (const auto& [names, meaning] : entries_) {
      const std::size_t own = columnsOf(names);
      if (own <= kMostNames) width = std::max(width, own);
    }
    width = std::min(width, columns / 2);
    const std::size_t indent = width + 4;
    std::string lines = fmt::format("\n{}:\n", heading);
    for (const auto& [names, meaning] : entries_) {
      const std::size_t own = columnsOf(names);
      const std::string gap =
          own <= width ? std::string(indent - 2 - own, ' ') : "\n" + std::string(indent, ' ');
      lines +=
          fmt::format("  {}{}{}\n", names, gap,
                      wrapped(std::string(indent, ' ') + meaning, columns, indent).substr(indent));
    }
    return lines;
  }

 private:
  std::vector<std::pair<std::string, std::string>> entries_;
};

std::string usage(const CommandHelp& command) {
  std::string usage = fmt::format("{}: {}", text("Usage"), command.path);
  if (!command.options.empty()) usage += fmt::format(" [{}]", text("OPTIONS"));
  for (const OptionHelp& argument : command.arguments) {
    usage += fmt::format(fmt::runtime(argument.isRequired ? " {}" : " [{}]"), namesOf(argument));
  }
  if (!command.commands.empty()) usage += " " + text("COMMAND");
  return usage;
}

}  // namespace

std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent) {
  std::string lines;
  std::size_t used = 0;  // Columns of the line that is written.
  // Indentation at the beginning stays.
  const std::size_t lead = std::min(text.find_first_not_of(' '), text.size());
  lines.append(lead, ' ');
  used = lead;
  text.remove_prefix(lead);
  bool isFirst = true;
  const auto breakLine = [&] {
    lines += "\n" + std::string(indent, ' ');
    used = indent;
  };
  while (!text.empty()) {
    std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    const std::size_t gap = isFirst ? 0 : 1;
    if (used + gap + columnsOf(word) <= columns) {
      lines.append(gap, ' ').append(word);
      used += gap + columnsOf(word);
    } else {
      if (!isFirst) breakLine();
      while (used + columnsOf(word) > columns) {
        const std::size_t bytes = fittingBytes(word, columns > used ? columns - used : 1);
        if (bytes == word.size()) break;
        lines.append(word.substr(0, bytes));
        word.remove_prefix(bytes);
        breakLine();
      }
      lines.append(word);
      used += columnsOf(word);
    }
    isFirst = false;
  }
  return lines;
}

std::string helpText(const CommandHelp& command, std::size_t columns) {
  columns = std::clamp(columns, kLeastColumns, kMostColumns);
  Entries commands, arguments, options;
  for (const CommandHelp& each : command.commands) commands.add(each.name, each.description);
  for (const OptionHelp& each : command.arguments) {
    arguments.add(namesOf(each), descriptionOf(each));
  }
  for (const OptionHelp& each : command.options) options.add(namesOf(each), descriptionOf(each));
  std::string help =
      wrapped(command.description, columns) + "\n\n" + wrapped(usage(command), columns, 2) + "\n" +
      arguments.lines(text("Arguments"), columns) + commands.lines(text("Commands"), columns) +
      options.lines(text("Options"), columns);
  // Examples stay as they are, since users copy them.
  if (!command.footer.empty()) help += "\n" + command.footer + "\n";
  return help;
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const {
  const CLI::App* root = app;
  std::vector<std::string> names;
  for (; root->get_parent() != nullptr; root = root->get_parent())
    names.push_back(root->get_name());
  const CommandHelp tree = commandTree(*root);
  const CommandHelp* command = &tree;
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    command = &*std::ranges::find(command->commands, *name, &CommandHelp::name);
  }
  return helpText(*command, columnsOfStandardOutput());
}

}  // namespace ombrix::hostapp
