#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// One option or argument as people and shells are told of it, in the user's language.
struct OptionHelp {
  std::vector<std::string> names;      ///< "-h", "--help"; for an argument its one name.
  std::string value;                   ///< What it takes, as in "URL"; empty for a flag.
  std::vector<std::string> words;      ///< The only words it takes; empty where others are taken.
  std::vector<std::string> suggested;  ///< Words that a shell offers, though others are taken.
  std::string initial;                 ///< What counts when it is not given; may be empty.
  std::string environment;             ///< The variable that stands for it; may be empty.
  std::string description;
  bool isRequired = false;
  bool isRepeated = false;

  enum class Takes { text, file, folder };
  [[nodiscard]] Takes takes() const;

  /// What a shell offers.
  [[nodiscard]] const std::vector<std::string>& offered() const {
    return words.empty() ? suggested : words;
  }
};

/// A command with what it takes, in the order of its definition.
struct CommandHelp {
  std::string name;  ///< As in "enable".
  std::string path;  ///< As in "ombrix settings sync enable".
  std::string description, footer;
  std::vector<OptionHelp> arguments, options;
  std::vector<CommandHelp> commands;
};

/// What a command line takes, from the one place where it is defined: help, man page and
/// completion are written from it.
CommandHelp commandTree(const CLI::App& app);

}  // namespace ombrix::hostapp
