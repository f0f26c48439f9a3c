#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdMessages.hpp"
#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace ombrix::platform::detail {

/// Talks to an etcd server about the keys below one prefix; signs in if the server asks for that.
///
/// All calls must come, and all handlers are called, on the one serial queue that it is made with;
/// handlers are called later, never inside the call. After `close` no handler is called.
class EtcdClient final : public std::enable_shared_from_this<EtcdClient> {
  struct Passkey {};

 public:
  template <class T>
  using Handler = std::move_only_function<void(std::expected<T, EtcdError>)>;
  using WatchHandler = std::function<void(EtcdWatchMessage)>;
  /// Empty: the server has been silent for long, which is not a fault.
  using WatchEnd = std::function<void(std::optional<EtcdError>)>;

  static std::shared_ptr<EtcdClient> make(const EtcdConfiguration& configuration,
                                          std::shared_ptr<DispatchQueue> queue);
  EtcdClient(Passkey, const EtcdConfiguration& configuration, std::shared_ptr<DispatchQueue> queue);

  /// Makes a change once, see `EtcdMessages::change`.
  void change(const CloudMirror::Pending& change, std::string_view device,
              std::int64_t markRevision, Handler<EtcdChangeResult> handler);

  /// Reads every key.
  void range(Handler<EtcdSnapshot> handler);

  /// Follows all changes from a revision on until `end` is called; replaces the previous watch,
  /// whose handlers are not called any more.
  void watch(std::int64_t revision, WatchHandler handler, WatchEnd end);

  /// Ends all requests; no handler is called any more. On the client's queue.
  void close();

  /// Waits until the threads of a closed client are gone; not to be called on its queue.
  void awaitEnd();

 private:
  class WatchDelegate;
  using Authenticated = std::function<void(const std::optional<EtcdError>&)>;
  /// Whether a call for which the server asks for a login may sign in and be sent again.
  enum class Login : std::uint8_t { ask, failed };

  [[nodiscard]] URLRequest request(std::string_view path, const JSON& body) const;
  void call(std::string path, JSON body, Handler<Data> handler, Login login = Login::ask);
  void send(const std::string& path, const JSON& body, Handler<Data> handler);
  void authenticate(Authenticated handler);
  void authenticated(const std::expected<Data, EtcdError>& answer);

  const EtcdConfiguration configuration_;
  const EtcdMessages messages_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<WatchDelegate> watchDelegate_;
  const std::shared_ptr<URLSession> calls_;
  const std::shared_ptr<URLSession> watches_;
  std::shared_ptr<URLSessionDataTask> watchTask_;
  std::optional<std::string> token_;
  std::vector<Authenticated> waiting_;  // for the login in flight
  bool isClosed_ = false;
};

}  // namespace ombrix::platform::detail
