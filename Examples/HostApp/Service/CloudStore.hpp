#pragma once

#include <string>

namespace CLI {
class App;
}

namespace ombrix::hostapp {

/// Adds `--cloud URL`, which makes the settings use an etcd server as the user's cloud store, and
/// the options for signing in there and for trusted authorities.
void addCloudOptions(CLI::App& settings);

/// Ends the cloud store that the options made, if they did. Call it before the program ends.
void closeCloud();

/// Adds `sync` with its commands.
void addSyncCommand(CLI::App& settings);

/// Sends changes to the cloud; if that must wait, says so and returns false. Quick if no server was
/// named. Call it at the end of a command that changes a synced setting.
bool bringCloudUpToDate();

}  // namespace ombrix::hostapp
