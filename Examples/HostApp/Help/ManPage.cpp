#include "Examples/HostApp/Help/ManPage.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>

#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

/// The text, escaped for roff.
std::string roffText(std::string_view text) {
  std::string roff;
  bool isAtLineStart = true;
  for (const char c : text) {
    // A line that begins with this character would be a request.
    if (isAtLineStart && (c == '.' || c == '\'')) roff += "\\&";
    if (c == '\\') {
      roff += "\\e";
    } else if (c == '-') {
      roff += "\\-";
    } else {
      roff += c;
    }
    isAtLineStart = c == '\n';
  }
  return roff;
}

std::string entry(const std::string& term, const std::string& meaning) {
  return fmt::format(".TP\n{}\n{}\n", term, roffText(meaning));
}

std::string termOf(const OptionHelp& option) {
  const bool isArgument = !option.names.front().starts_with('-');
  if (isArgument) return fmt::format("\\fI{}\\fR", roffText(option.names.front()));
  std::string term =
      fmt::format("\\fB{}\\fR", roffText(fmt::format("{}", fmt::join(option.names, ", "))));
  const std::string value =
      option.words.empty() ? option.value : fmt::format("{}", fmt::join(option.words, "|"));
  return value.empty() ? term : fmt::format("{} \\fI{}\\fR", term, roffText(value));
}

std::string optionEntries(const CommandHelp& command) {
  std::string entries;
  for (const auto* all : {&command.arguments, &command.options}) {
    for (const OptionHelp& option : *all) {
      // Every command has it; it is described once.
      if (std::ranges::find(option.names, "--help") != option.names.end()) continue;
      std::string meaning = option.description;
      if (!option.initial.empty()) meaning += fmt::format(" [{}]", option.initial);
      entries += entry(termOf(option), meaning);
    }
  }
  return entries;
}

std::string commandSections(const CommandHelp& command) {
  std::string sections;
  for (const CommandHelp& each : command.commands) {
    std::string synopsis = each.path.substr(each.path.find(' ') + 1);
    for (const OptionHelp& argument : each.arguments) synopsis += " " + argument.names.front();
    sections += fmt::format(".SS \"{}\"\n{}\n{}", roffText(synopsis), roffText(each.description),
                            optionEntries(each));
    if (!each.footer.empty()) sections += fmt::format(".PP\n.nf\n{}\n.fi\n", roffText(each.footer));
    sections += commandSections(each);
  }
  return sections;
}

void collectEnvironment(const CommandHelp& command, std::map<std::string, std::string>& variables) {
  for (const OptionHelp& option : command.options) {
    if (!option.environment.empty()) variables.emplace(option.environment, option.description);
  }
  for (const CommandHelp& each : command.commands) collectEnvironment(each, variables);
}

}  // namespace

std::string manPage(const CommandHelp& program, const std::string& version) {
  std::map<std::string, std::string> variables;
  collectEnvironment(program, variables);
  variables.emplace("NO_COLOR", text("Not empty: no colours and no bold text"));
  std::string environment;
  for (const auto& [name, meaning] : variables) {
    environment += entry("\\fB" + roffText(name) + "\\fR", meaning);
  }
  const auto section = [](const char* english, const std::string& contents) {
    return fmt::format(".SH {}\n{}", text(english), contents);
  };
  const std::string description = roffText(program.description) + "\n";
  return fmt::format(".TH OMBRIX 1 \"\" \"{}\"\n", roffText(version)) +
         section("NAME", "ombrix \\- " + description) +
         section("SYNOPSIS", fmt::format("\\fBombrix\\fR \\fI{}\\fR [\\fI{}\\fR] ...\n",
                                         text("COMMAND"), text("OPTIONS"))) +
         section("DESCRIPTION", description) +
         section("OPTIONS", entry("\\fB\\-h, \\-\\-help\\fR", text("Print this help and end")) +
                                optionEntries(program)) +
         section("COMMANDS", commandSections(program)) + section("ENVIRONMENT", environment);
}

}  // namespace ombrix::hostapp
