#pragma once

#include <string>

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Adds `--cloud URL`, by which the settings use an etcd server as the user's cloud store, and how
/// to sign in there and whom to trust.
void addCloudOptions(CLI::App& settings);

/// Ends the cloud store that the options made, if they did. Call it before the program ends.
void closeCloud();

/// Adds `sync` with its commands.
void addSyncCommand(CLI::App& settings);

/// Sends what was changed to the cloud; says so and gives false when that must wait. Quick where no
/// server was named. Call it at the end of a command that changes a synced setting.
bool bringCloudUpToDate();

}  // namespace ombrix::hostapp
