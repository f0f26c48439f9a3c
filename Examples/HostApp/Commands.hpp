#pragma once

#include <stdexcept>

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Ends a command with one line on standard error and exit status 1.
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Each adds one command with its options and help; the command runs when it is parsed.
void addDayCommand(CLI::App& app);
void addTrackCommand(CLI::App& app);
void addSampleCommand(CLI::App& app);
void addFindCommand(CLI::App& app);
void addFormatCommand(CLI::App& app);
void addSettingsCommand(CLI::App& app);
void addLogCommand(CLI::App& app);

}  // namespace ombrix::hostapp
