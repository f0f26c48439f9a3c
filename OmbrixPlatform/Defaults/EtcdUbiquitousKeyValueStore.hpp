#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// Where an etcd server is, and what a store keeps on this machine.
struct EtcdConfiguration {
  struct Credentials {
    std::string name;
    std::string password;
  };

  /// The server's address, without a path: "https://cloud.example:2379".
  URL endpoint;

  /// Stands before every key on the server; one for each user.
  std::string prefix;

  /// Where the server asks for them.
  std::optional<Credentials> credentials = {};

  /// Folder and name of the file with the copies of all values and the changes not yet sent;
  /// processes of one device name the same.
  std::filesystem::path folder;
  std::string domain;

  /// Told in a readable sentence when the server stops answering or refuses something, on a
  /// thread of the store's.
  std::function<void(const std::string& message)> onError = {};
};

/// A store on an etcd server (3.4 or later) over its JSON gateway, shared by every device that
/// names the same server and prefix.
///
/// Values are copied to a file here, so that they can be read at once and without the server, and
/// are brought up to date from the first use on, then followed by a watch. A change is on the disk
/// when its setter returns and is sent in the background; while the server cannot be reached it is
/// kept, over restarts of the program too, and sent when it can: after 0.5 s, then twice as long
/// each time, up to 30 s. The last writer wins, by the order in which the server took the changes:
/// a change that was kept counts from when it was sent. Several processes of one device may send a
/// kept change twice.
///
/// `synchronize` sends and reads everything now; it blocks up to 10 s for each request and gives
/// false when the server cannot be reached. Change handlers run on a queue of the store's own.
///
/// Throws `Error` when the domain is no file name or the endpoint no http or https URL.
std::shared_ptr<NSUbiquitousKeyValueStore> makeEtcdUbiquitousKeyValueStore(
    EtcdConfiguration configuration);

}  // namespace ombrix::platform
