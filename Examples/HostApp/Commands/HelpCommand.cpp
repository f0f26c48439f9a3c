#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Help/BuildName.hpp"
#include "Examples/HostApp/Help/Completion.hpp"
#include "Examples/HostApp/Help/HelpText.hpp"
#include "Examples/HostApp/Help/ManPage.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"

namespace ombrix::hostapp {
namespace {

void printHelp(const CLI::App& app, const std::vector<std::string>& names) {
  const CommandHelp tree = commandTree(app);
  const CommandHelp* command = &tree;
  for (const std::string& name : names) {
    const auto found = std::ranges::find(command->commands, name, &CommandHelp::name);
    if (found == command->commands.end()) {
      throw CLI::ValidationError(
          fmt::format("there is no command '{}' in {}", name, command->path));
    }
    command = &*found;
  }
  fmt::print("{}", helpText(*command, columnsOfStandardOutput()));
}

}  // namespace

void addHelpCommand(CLI::App& app) {
  struct Options {
    std::vector<std::string> names;
    bool man = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("help", "Explains a command");
  command->add_option("COMMAND", options->names, "The command, and the one below it");
  command->add_flag("--man", options->man, "Print the whole manual page for man");
  command->callback([&app, options] {
    if (!options->man) return printHelp(app, options->names);
    fmt::print("{}", manPage(commandTree(app), versionAndBuild()));
  });
}

void addCompletionCommand(CLI::App& app) {
  static const std::map<std::string, std::string (*)(const CommandHelp&)> kShells = {
      {"bash", bashCompletion}, {"fish", fishCompletion}, {"zsh", zshCompletion}};
  const auto shell = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("completion", "Prints a script by which a shell completes commands");
  command->add_option("SHELL", *shell, "The shell")
      ->required()
      ->check(CLI::IsMember({"bash", "fish", "zsh"}));
  command->footer(
      "Try it; DIR is a folder of $fpath:\n"
      "  source <(ombrix completion bash)\n"
      "  ombrix completion fish >~/.config/fish/completions/ombrix.fish\n"
      "  ombrix completion zsh >DIR/_ombrix");
  command->callback([&app, shell] { fmt::print("{}", kShells.at(*shell)(commandTree(app))); });
}

}  // namespace ombrix::hostapp
