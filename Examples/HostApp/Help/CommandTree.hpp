#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// One option or argument as help texts and shell completions describe it, in the user's language.
struct OptionHelp {
  std::vector<std::string> names;      ///< "-h", "--help"; for an argument its one name.
  std::string value;                   ///< The kind of its value, as in "URL"; empty for a flag.
  std::vector<std::string> words;      ///< The only words it accepts; empty if any are.
  std::vector<std::string> suggested;  ///< Words that a shell offers, although others are accepted.
  std::string initial;                 ///< The default; may be empty.
  std::string environment;             ///< Its environment variable; may be empty.
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

/// A command with its options and arguments, in the order of their definition.
struct CommandHelp {
  std::string name;  ///< As in "enable".
  std::string path;  ///< As in "ombrix settings sync enable".
  std::string description, footer;
  std::vector<OptionHelp> arguments, options;
  std::vector<CommandHelp> commands;
};

/// The commands of the program, read from the one place where they are defined: help, man page and
/// completion are written from this.
CommandHelp commandTree(const CLI::App& app);

}  // namespace ombrix::hostapp
