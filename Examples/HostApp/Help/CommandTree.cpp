#include "Examples/HostApp/Help/CommandTree.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>

#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

/// The words of a choice, which follow the type in braces: "TEXT:{csv,gpx}".
std::vector<std::string> wordsOf(const std::string& type) {
  const auto begin = type.find('{'), end = type.rfind('}');
  if (begin == std::string::npos || end == std::string::npos) return {};
  std::vector<std::string> words;
  std::istringstream list(type.substr(begin + 1, end - begin - 1));
  for (std::string word; std::getline(list, word, ',');) words.push_back(word);
  return words;
}

OptionHelp optionHelp(const CLI::Option& option) {
  OptionHelp help;
  for (const std::string& name : option.get_snames()) help.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) help.names.push_back("--" + name);
  if (option.get_positional()) help.names = {option.get_name(true)};
  if (option.get_type_size() != 0) {
    const std::string type = option.get_type_name();
    help.words = wordsOf(type);
    help.value = option.get_option_text().empty() ? type.substr(0, type.find(':'))
                                                  : option.get_option_text();
    if (help.value == "TEXT") help.value = "WORD";
    if (help.value == "INT" || help.value == "UINT" || help.value == "FLOAT") help.value = "NUMBER";
    help.initial = option.get_default_str();
  }
  help.environment = option.get_envname();
  help.description = text(option.get_description());
  help.isRequired = option.get_required();
  help.isRepeated = option.get_expected_max() >= CLI::detail::expected_max_vector_size;
  return help;
}

/// The lines of a footer; indented ones are examples, to be copied as they are.
std::string footerText(const std::string& english) {
  std::istringstream lines(english);
  std::string footer;
  for (std::string line; std::getline(lines, line);) {
    if (!footer.empty()) footer += '\n';
    footer += line.starts_with(' ') ? line : text(line);
  }
  return footer;
}

CommandHelp commandHelp(const CLI::App& app, const std::string& above) {
  CommandHelp help;
  help.name = app.get_name();
  help.path = above.empty() ? help.name : above + " " + help.name;
  help.description = text(app.get_description());
  help.footer = footerText(app.get_footer());
  for (const CLI::Option* option : app.get_options()) {
    auto& options = option->get_positional() ? help.arguments : help.options;
    options.push_back(optionHelp(*option));
  }
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    help.commands.push_back(commandHelp(*command, help.path));
  }
  return help;
}

}  // namespace

OptionHelp::Takes OptionHelp::takes() const {
  constexpr std::array<std::string_view, 6> kFiles = {"FILE", "TRACK", "IN", "OUT", "A", "B"};
  const std::string_view what = names.front().starts_with('-') ? value : names.front();
  if (what == "DIR") return Takes::folder;
  return std::ranges::find(kFiles, what) != kFiles.end() ? Takes::file : Takes::text;
}

CommandHelp commandTree(const CLI::App& app) {
  CommandHelp tree = commandHelp(app, "");
  const auto help = std::ranges::find(tree.commands, "help", &CommandHelp::name);
  if (help == tree.commands.end() || help->arguments.empty()) return tree;
  auto& suggested = help->arguments.front().suggested;
  for (const CommandHelp& command : tree.commands) suggested.push_back(command.name);
  return tree;
}

}  // namespace ombrix::hostapp
