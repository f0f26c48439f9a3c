#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// The address of an etcd server, and where a store keeps its copy on this machine.
struct EtcdConfiguration {
  struct Credentials {
    std::string name;
    std::string password;
  };

  /// The server's address, without a path: "https://cloud.example:2379".
  URL endpoint;

  /// Precedes every key on the server; each user has their own.
  std::string prefix;

  /// For servers that ask for them.
  std::optional<Credentials> credentials = {};

  /// A file of certificates in PEM form, whose issuers alone are trusted to vouch for the server;
  /// empty: the system's.
  std::filesystem::path certificateAuthorities = {};

  /// Folder and name of the file with the copies of all values and the changes not yet sent;
  /// processes of one device name the same.
  std::filesystem::path folder;
  std::string domain;

  /// Called with a readable sentence when the server stops answering or refuses something, on one
  /// of the store's threads.
  std::function<void(const std::string& message)> onError = {};
};

/// A store on an etcd server (3.4 or later) over its JSON gateway, shared by every device that
/// names the same server and prefix.
///
/// Values are copied to a file here, so that they can be read at once and without the server. The
/// first use brings the copy up to date, and a watch follows the server from then on. A setter
/// shows its change and returns without waiting. The change is saved a moment later; `synchronize`,
/// `close`, the end of the store and the normal end of the process wait for that. It is sent in the
/// background, in the order of the setters, by one process of the device at a time, unless that one
/// makes no progress for 10 s. Each is made exactly once, even if answers get lost; of several
/// waiting changes of one key only the last is sent. A change that the disk does not take is sent
/// all the same, but never over a later one that another process of the device has made. A change
/// that the server does not take is kept, also over restarts of the program, and tried again: after
/// 0.5 s, then twice as long each time, up to 30 s. Reading goes on meanwhile. The last writer
/// wins, by the order in which the server took the changes: a kept change counts from when it was
/// sent.
///
/// Only a change that the server calls too large is dropped: the key then has the server's value
/// again, and observers are told of a `quotaViolation`. Keys do not begin with NUL (`Error`):
/// beside each value every device that changes it keeps a mark of its own on the server.
///
/// `synchronize` sends and reads everything now; it blocks up to 10 s for each request, and for
/// another program of the device that is sending or has the copy, and gives false when something
/// failed. Change handlers run on the store's own queue.
///
/// Throws `Error` when the domain is not a file name, when the endpoint is not an http or https
/// URL, or when no certificate authorities can be read; always in a build without OMBRIX_WITH_ETCD.
std::shared_ptr<NSUbiquitousKeyValueStore> makeEtcdUbiquitousKeyValueStore(
    EtcdConfiguration configuration);

}  // namespace ombrix::platform
