#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <string_view>

#include "Examples/HostApp/Help/CommandTree.hpp"

namespace ombrix::hostapp {

/// The help of a command for a terminal of this many columns.
std::string helpText(const CommandHelp& command, std::size_t columns);

/// A text in lines of at most this many columns, broken at spaces, or within words that are longer.
/// @param indent The indentation of all lines but the first, which they have less room by.
std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent = 0);

/// Makes every command's help look like this.
class HelpFormatter final : public CLI::FormatterBase {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

}  // namespace ombrix::hostapp
