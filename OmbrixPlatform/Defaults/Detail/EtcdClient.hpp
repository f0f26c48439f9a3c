#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Defaults/Detail/EtcdMessages.hpp"
#include "OmbrixPlatform/Defaults/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace ombrix::platform::detail {

/// Why the server did not do what it was asked.
struct EtcdError {
  std::string message;
  /// The request itself is at fault: sending it again would not help.
  bool isRefused = false;
};

/// Talks to an etcd server about the keys below one prefix.
///
/// Every call and every handler belongs on the one serial queue it is made with; handlers come
/// later, never inside the call. After `close` no handler is called.
class EtcdClient final : public std::enable_shared_from_this<EtcdClient> {
  struct Passkey {};

 public:
  template <class T>
  using Handler = std::move_only_function<void(std::expected<T, EtcdError>)>;
  using WatchHandler = std::function<void(EtcdWatchMessage)>;
  using WatchEnd = std::function<void(EtcdError)>;

  static std::shared_ptr<EtcdClient> make(const EtcdConfiguration& configuration,
                                          std::shared_ptr<DispatchQueue> queue);
  EtcdClient(Passkey, const EtcdConfiguration& configuration, std::shared_ptr<DispatchQueue> queue);

  /// Stores a value, or removes the key; gives the server's revision after it.
  void put(std::string_view key, const std::optional<PropertyList>& value,
           Handler<std::int64_t> handler);

  /// Reads every key.
  void range(Handler<EtcdSnapshot> handler);

  /// Follows all changes from a revision on until `end` is called; replaces the watch before, whose
  /// handlers are called no more.
  void watch(std::int64_t revision, WatchHandler handler, WatchEnd end);

  void close();

 private:
  class WatchDelegate;
  using Authenticated = std::move_only_function<void(std::optional<EtcdError>)>;

  [[nodiscard]] URLRequest request(std::string_view path, const JSON& body) const;
  void call(std::string path, JSON body, Handler<Data> handler);
  void send(const std::string& path, const JSON& body, Handler<Data> handler);
  void authenticate(Authenticated handler);

  const EtcdConfiguration configuration_;
  const EtcdMessages messages_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<WatchDelegate> watchDelegate_;
  const std::shared_ptr<URLSession> calls_;
  const std::shared_ptr<URLSession> watches_;
  std::shared_ptr<URLSessionDataTask> watchTask_;
  std::optional<std::string> token_;
  bool isClosed_ = false;
};

}  // namespace ombrix::platform::detail
