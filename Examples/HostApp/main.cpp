#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Help/BuildName.hpp"
#include "Examples/HostApp/Help/HelpText.hpp"
#include "Examples/HostApp/Service/CloudStore.hpp"
#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;

int complain(const std::string& message, int status) {
  std::fprintf(stderr, "ombrix: %s\n", ombrix::hostapp::shownName(message).c_str());
  return status;
}

/// The first argument in a command's place that names no command; empty when all do. CLI11 only
/// says that a command is required, which does not help a user who mistyped one.
std::optional<std::string> mistypedCommand(const CLI::App& app, int argc, char** argv) {
  const CLI::App* level = &app;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto commands = level->get_subcommands(nullptr);
    if (commands.empty() || argument.starts_with('-')) return std::nullopt;
    const auto named = std::ranges::find_if(
        commands, [&](const CLI::App* command) { return command->check_name(argument); });
    if (named == commands.end()) return argument;
    level = *named;
  }
  return std::nullopt;
}

/// Keeps newly opened files from becoming standard input, output or error, which the caller may
/// have closed. A placeholder that cannot be read or written takes their place, so that such a use
/// fails.
void occupyStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) != -1) continue;
    const int mode = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    static_cast<void>(::open("/dev/null", mode));  // takes the lowest number, which is this one
  }
}

/// 0, or the exit status when the output did not arrive.
int statusOfOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return 0;
  return complain("cannot write to standard output", kFailed);
}

/// Ends the objects that this program made, however `main` is left.
struct Closing {
  ~Closing() { ombrix::hostapp::closeCloud(); }
};

}  // namespace

int main(int argc, char** argv) {
  using namespace ombrix::hostapp;
  occupyStandardDescriptors();
  // A write past the limit of a file's size fails like any other.
  std::signal(SIGXFSZ, SIG_IGN);
  const Closing closing;
  CLI::App app{"Reads, measures and shows days of skiing.", "ombrix"};
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", "Print this help and end");
  app.set_version_flag("--version", versionAndBuild(), "Print version and build, and end");
  app.require_subcommand(1);
  addDayCommand(app);
  addDaysCommand(app);
  addCompareCommand(app);
  addDemoCommand(app);
  addConvertCommand(app);
  addTrackCommand(app);
  addSampleCommand(app);
  addFindCommand(app);
  addFormatCommand(app);
  addGeoJSONCommand(app);
  addStoreCommand(app);
  addSettingsCommand(app);
  addLogCommand(app);
  addServeCommand(app);
  addRequestCommand(app);
  addUploadCommand(app);
  addCompletionCommand(app);
  addHelpCommand(app);

  if (const auto mistyped = mistypedCommand(app, argc, argv)) {
    return complain("there is no command '" + *mistyped + "'; see ombrix --help", kWrongArguments);
  }
  try {
    ombrix::OmbrixSettings::shared().registerCoreSettings();
    app.parse(argc, argv);
    return statusOfOutput();
  } catch (const CLI::Success& help) {
    app.exit(help);
    return statusOfOutput();
  } catch (const CLI::RequiredError& error) {
    const auto unknown = app.remaining(true);  // may have been meant for it: "-inf"
    const std::string why = unknown.empty() ? "" : ", and there is no option " + unknown.front();
    return complain(error.what() + why + "; see ombrix --help", kWrongArguments);
  } catch (const CLI::ParseError& error) {
    return complain(std::string(error.what()) + "; see ombrix --help", kWrongArguments);
  } catch (const std::bad_alloc&) {
    return complain("there is not memory enough", kFailed);
  } catch (const std::exception& error) {
    return complain(error.what(), kFailed);
  }
}
