#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "Examples/HostApp/Help/CommandTree.hpp"

namespace ombrix::hostapp {

/// The help of a command for a terminal of so many columns.
std::string helpText(const CommandHelp& command, std::size_t columns);

/// A text in lines of at most so many columns, broken at blanks, and within words that are longer.
/// @param indent How far all lines but the first are set in; they are that much shorter.
std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent = 0);

/// Writes the help of every command this way.
class HelpFormatter final : public CLI::FormatterBase {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

}  // namespace ombrix::hostapp
