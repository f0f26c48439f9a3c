#pragma once

#include <span>
#include <stdexcept>
#include <string>

#include "OmbrixCore/Location/CLLocation.hpp"

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Ends a command with one line on standard error and exit status 1.
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Each function adds one command with its options and help; the command runs when it is parsed.
void addDayCommand(CLI::App& app);
void addDaysCommand(CLI::App& app);
void addCompareCommand(CLI::App& app);
void addDemoCommand(CLI::App& app);
void addConvertCommand(CLI::App& app);
void addTrackCommand(CLI::App& app);
void addSampleCommand(CLI::App& app);
void addFindCommand(CLI::App& app);
void addGeoJSONCommand(CLI::App& app);
void addStoreCommand(CLI::App& app);
void addFormatCommand(CLI::App& app);
void addSettingsCommand(CLI::App& app);
void addLogCommand(CLI::App& app);
void addServeCommand(CLI::App& app);
void addRequestCommand(CLI::App& app);
void addUploadCommand(CLI::App& app);
void addHelpCommand(CLI::App& app);
void addCompletionCommand(CLI::App& app);

/// The same for a command below the settings command.
void addCompanionCommand(CLI::App& settings);

/// Writes a track as a GeoJSON line string, without fixes off the globe; failures end the command.
void writeLineString(const std::string& path, std::span<const CLLocation> fixes);

}  // namespace ombrix::hostapp
