#pragma once

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Gives a command the options --units and --locale. They count for this process only, and from
/// the moment the command's arguments are read.
void addPreferenceOptions(CLI::App& command);

}  // namespace ombrix::hostapp
