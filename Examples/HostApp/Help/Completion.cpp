#include "Examples/HostApp/Help/Completion.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <functional>

namespace ombrix::hostapp {
namespace {

using Takes = OptionHelp::Takes;

std::string replacedAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

/// The text in single quotes of a POSIX shell.
std::string quoted(const std::string& text) { return "'" + replacedAll(text, "'", "'\\''") + "'"; }

void forEach(const CommandHelp& command, const std::function<void(const CommandHelp&)>& visit) {
  visit(command);
  for (const CommandHelp& each : command.commands) forEach(each, visit);
}

std::vector<std::string> optionNames(const CommandHelp& command) {
  std::vector<std::string> names;
  for (const OptionHelp& option : command.options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return names;
}

std::vector<std::string> commandNames(const CommandHelp& command) {
  std::vector<std::string> names;
  for (const CommandHelp& each : command.commands) names.push_back(each.name);
  return names;
}

/// The arguments of bash's compgen for a value.
std::string compgenFor(const OptionHelp& option) {
  if (!option.offered().empty()) {
    return fmt::format("-W {}", quoted(fmt::format("{}", fmt::join(option.offered(), " "))));
  }
  switch (option.takes()) {
    case Takes::file:
      return "-f";
    case Takes::folder:
      return "-d";
    case Takes::text:
      break;
  }
  return {};
}

/// The description of an option's value for zsh.
std::string zshValue(const OptionHelp& option, const std::string& name) {
  const std::string message = replacedAll(name, ":", "\\:");
  if (!option.offered().empty()) {
    return fmt::format(":{}:({})", message, fmt::join(option.offered(), " "));
  }
  switch (option.takes()) {
    case Takes::file:
      return fmt::format(":{}:_files", message);
    case Takes::folder:
      return fmt::format(":{}:_files -/", message);
    case Takes::text:
      break;
  }
  return fmt::format(":{}: ", message);
}

std::string zshDescription(std::string text) {
  for (const char* special : {"\\", "[", "]", ":"}) {
    text = replacedAll(text, special, std::string("\\") + special);
  }
  return text;
}

std::string functionName(const CommandHelp& command) {
  return "_" + replacedAll(replacedAll(command.path, " ", "_"), "-", "_");
}

std::string zshFunction(const CommandHelp& command) {
  std::string arguments;
  for (const OptionHelp& option : command.options) {
    for (const std::string& name : option.names) {
      arguments += fmt::format(
          " \\\n    {}",
          quoted(fmt::format("{}[{}]{}", name, zshDescription(option.description),
                             option.value.empty() ? "" : zshValue(option, option.value))));
    }
  }
  for (const OptionHelp& argument : command.arguments) {
    arguments += fmt::format(" \\\n    {}", quoted((argument.isRepeated   ? "*"
                                                    : argument.isRequired ? ""
                                                                          : ":") +
                                                   zshValue(argument, argument.names.front())));
  }
  if (command.commands.empty()) {
    return fmt::format("{}() {{\n  _arguments{}\n}}\n\n", functionName(command), arguments);
  }
  std::string commands, cases;
  for (const CommandHelp& each : command.commands) {
    commands +=
        fmt::format("        {}\n", quoted(each.name + ":" + zshDescription(each.description)));
    cases += fmt::format("        {}) {} ;;\n", each.name, functionName(each));
  }
  return fmt::format(
      "{0}() {{\n"
      "  local line state\n"
      "  _arguments -C{1} \\\n    '1: :->command' \\\n    '*:: :->rest'\n"
      "  case $state in\n"
      "    command)\n      local -a commands\n      commands=(\n{2}      )\n"
      "      _describe -t commands command commands ;;\n"
      "    rest)\n      case $line[1] in\n{3}      esac ;;\n"
      "  esac\n}}\n\n",
      functionName(command), arguments, commands, cases);
}

/// The condition for fish that the command line has reached this command and none below it.
std::string fishCondition(const CommandHelp& command) {
  std::vector<std::string> names;
  for (std::size_t at = command.path.find(' '); at != std::string::npos;) {
    const std::size_t next = command.path.find(' ', at + 1);
    names.push_back(command.path.substr(at + 1, next - at - 1));
    at = next;
  }
  std::string condition;
  for (const std::string& name : names) {
    condition +=
        fmt::format("{}__fish_seen_subcommand_from {}", condition.empty() ? "" : "; and ", name);
  }
  if (command.commands.empty()) return condition;
  return fmt::format("{}{}not __fish_seen_subcommand_from {}", condition,
                     condition.empty() ? "" : "; and ", fmt::join(commandNames(command), " "));
}

}  // namespace

std::string bashCompletion(const CommandHelp& program) {
  std::string levels, values, choices;
  forEach(program, [&](const CommandHelp& command) {
    const auto commands = commandNames(command);
    if (!commands.empty()) {
      levels += fmt::format("      {})\n        case $word in {}) path+=\" $word\" ;; esac ;;\n",
                            quoted(command.path), fmt::join(commands, "|"));
    }
    for (const OptionHelp& option : command.options) {
      if (option.value.empty()) continue;
      for (const std::string& name : option.names) {
        values += fmt::format("    {}) COMPREPLY=($(compgen {} -- \"$current\")); return ;;\n",
                              quoted(command.path + " " + name), compgenFor(option));
      }
    }
    const auto file = std::ranges::find_if(
        command.arguments, [](const auto& argument) { return argument.takes() != Takes::text; });
    const bool hasFiles = file != command.arguments.end();
    std::vector<std::string> all = commands;
    for (const OptionHelp& argument : command.arguments) {
      all.insert(all.end(), argument.offered().begin(), argument.offered().end());
    }
    choices += fmt::format("    {0}) options={1} words={2} files={3} ;;\n", quoted(command.path),
                           quoted(fmt::format("{}", fmt::join(optionNames(command), " "))),
                           quoted(fmt::format("{}", fmt::join(all, " "))),
                           hasFiles ? compgenFor(*file) : "");
  });
  return fmt::format(
      "# Completion of ombrix for bash.\n"
      "_ombrix() {{\n"
      "  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}}\n"
      "  local path=ombrix word options= words= files=\n"
      "  for word in \"${{COMP_WORDS[@]:1:COMP_CWORD-1}}\"; do\n"
      "    case $path in\n{}    esac\n  done\n"
      "  case \"$path $previous\" in\n{}  esac\n"
      "  case $path in\n{}  esac\n"
      "  case $current in -*) words=$options files= ;; esac\n"
      "  COMPREPLY=($(compgen -W \"$words\" $files -- \"$current\"))\n"
      "}}\n"
      "complete -o filenames -F _ombrix ombrix\n",
      levels, values, choices);
}

std::string zshCompletion(const CommandHelp& program) {
  std::string functions;
  forEach(program, [&](const CommandHelp& command) { functions += zshFunction(command); });
  return "#compdef ombrix\n# Completion of ombrix for zsh.\n\n" + functions +
         "if [ \"$funcstack[1]\" = _ombrix ]; then _ombrix \"$@\"; else compdef _ombrix ombrix; "
         "fi\n";
}

std::string fishCompletion(const CommandHelp& program) {
  std::string lines = "# Completion of ombrix for fish.\ncomplete -c ombrix -f\n";
  forEach(program, [&](const CommandHelp& command) {
    const std::string condition = quoted(fishCondition(command));
    for (const CommandHelp& each : command.commands) {
      lines += fmt::format("complete -c ombrix -n {} -a {} -d {}\n", condition, each.name,
                           quoted(each.description));
    }
    for (const OptionHelp& argument : command.arguments) {
      if (argument.takes() != Takes::text) {
        lines += fmt::format("complete -c ombrix -n {} -F\n", condition);
      } else if (!argument.offered().empty()) {
        lines += fmt::format("complete -c ombrix -n {} -a {}\n", condition,
                             quoted(fmt::format("{}", fmt::join(argument.offered(), " "))));
      }
    }
    for (const OptionHelp& option : command.options) {
      lines += fmt::format("complete -c ombrix -n {}", condition);
      for (const std::string& name : option.names) {
        lines += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
      }
      if (!option.offered().empty()) {
        lines +=
            fmt::format(" -x -a {}", quoted(fmt::format("{}", fmt::join(option.offered(), " "))));
      } else if (!option.value.empty()) {
        lines += option.takes() == Takes::text ? " -x" : " -r -F";
      }
      lines += fmt::format(" -d {}\n", quoted(option.description));
    }
  });
  return lines;
}

}  // namespace ombrix::hostapp
