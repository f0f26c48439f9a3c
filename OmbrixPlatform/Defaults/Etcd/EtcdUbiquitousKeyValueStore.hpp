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

  /// A file of certificates in PEM form, whose issuers alone are trusted to vouch for the server;
  /// empty: the system's.
  std::filesystem::path certificateAuthorities = {};

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
/// are brought up to date from the first use on, then followed by a watch. A change is shown when
/// its setter returns, which waits for nobody; it is brought to the disk a moment later, for which
/// `synchronize`, `close`, the end of the store and the normal end of the process wait, and is sent
/// in the background, in the order of the setters, by one process of the device at a time and
/// exactly once, whatever answers get lost; of changes of one key that wait the last one is sent.
/// What the disk does not take is sent all the same. While the server does not take it, it is kept,
/// over restarts of the program too, and tried again: after 0.5 s, then twice as long each time, up
/// to 30 s. Reading goes on meanwhile. The last writer wins, by the order in which the server took
/// the changes: a change that was kept counts from when it was sent.
///
/// Only a change that the server calls too large is dropped: the key then has the server's value
/// again, and observers are told of a `quotaViolation`. Keys do not begin with NUL (`Error`):
/// beside the values each device keeps a mark of its own on the server.
///
/// `synchronize` sends and reads everything now; it blocks up to 10 s for each request, and for
/// another program of the device that is sending or has the copy, and gives false when something
/// failed. Change handlers run on a queue of the store's own.
///
/// Throws `Error` when the domain is not a file name, the endpoint not an http or https URL, or
/// when no certificate authorities can be read; always in a build without OMBRIX_WITH_ETCD.
std::shared_ptr<NSUbiquitousKeyValueStore> makeEtcdUbiquitousKeyValueStore(
    EtcdConfiguration configuration);

}  // namespace ombrix::platform
