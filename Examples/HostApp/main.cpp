#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Extensions/Version.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;

int complain(const std::string& message, int status) {
  std::fprintf(stderr, "ombrix: %s\n", message.c_str());
  return status;
}

/// A mistyped command deserves its name in the answer; CLI11 only says that one is required.
bool namesNoCommand(const CLI::App& app, const std::string& argument) {
  if (argument.starts_with('-')) return false;
  const auto commands = app.get_subcommands(nullptr);
  return std::ranges::none_of(
      commands, [&](const CLI::App* command) { return command->check_name(argument); });
}

}  // namespace

int main(int argc, char** argv) {
  using namespace ombrix::hostapp;
  CLI::App app{"Reads, measures and shows days of skiing.", "ombrix"};
  app.set_version_flag("--version", std::string(ombrix::libraryVersion()));
  app.require_subcommand(1);
  addDayCommand(app);
  addTrackCommand(app);
  addSampleCommand(app);
  addSettingsCommand(app);
  addLogCommand(app);

  if (argc > 1 && namesNoCommand(app, argv[1])) {
    return complain("there is no command '" + std::string(argv[1]) + "'; see ombrix --help",
                    kWrongArguments);
  }
  try {
    ombrix::OmbrixSettings::shared().registerCoreSettings();
    app.parse(argc, argv);
    return 0;
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return complain(std::string(error.what()) + "; see ombrix --help", kWrongArguments);
  } catch (const std::exception& error) {
    return complain(error.what(), kFailed);
  }
}
