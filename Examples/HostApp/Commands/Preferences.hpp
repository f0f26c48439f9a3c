#pragma once

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Gives a command the options --units and --locale. They apply to this process only, from the
/// moment when the command's arguments are read.
void addPreferenceOptions(CLI::App& command);

}  // namespace ombrix::hostapp
