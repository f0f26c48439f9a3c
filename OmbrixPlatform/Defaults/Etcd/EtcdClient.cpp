#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdClient.hpp"

#include <chrono>
#include <new>
#include <utility>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CertificateAuthorities.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::seconds kCallTimeout{10};
// A silent watch is replaced by a new one: that shows a server that has vanished without notice.
constexpr std::chrono::minutes kWatchTimeout{1};
constexpr std::chrono::hours kWatchLifetime{24 * 365};
// A store holds 1 MiB and base64 adds a third. A parsed answer takes many times the memory of its
// text.
constexpr std::size_t kMaxAnswerBytes = std::size_t{4} << 20;

URLSessionConfiguration callConfiguration() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = kCallTimeout;
  configuration.timeoutIntervalForResource = kCallTimeout;
  configuration.maximumBodyBytes = kMaxAnswerBytes;
  return configuration;
}

URLSessionConfiguration watchConfiguration() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = kWatchTimeout;
  configuration.timeoutIntervalForResource = kWatchLifetime;
  return configuration;
}

/// Null where the system's trust is wanted.
std::shared_ptr<URLSessionDelegate> trustIn(const EtcdConfiguration& configuration) {
  if (configuration.certificateAuthorities.empty()) return nullptr;
  return std::make_shared<AuthoritiesDelegate>(configuration.certificateAuthorities);
}

/// A handler that passes the answer's bytes through `read`, which may throw `JSONError`, and hands
/// the result on.
template <class T, class Read>
EtcdClient::Handler<Data> reading(EtcdClient::Handler<T> handler, Read read) {
  return [handler = std::move(handler),
          read = std::move(read)](const std::expected<Data, EtcdError>& answer) mutable {
    std::expected<T, EtcdError> result;
    if (answer.has_value()) {
      try {
        result = read(DataView(answer.value()));
      } catch (const JSONError& error) {
        result = std::unexpected(EtcdError{error.what()});
      } catch (const std::bad_alloc&) {
        result = std::unexpected(EtcdError{"there is no memory for the server's answer"});
      }
    } else {
      result = std::unexpected(answer.error());
    }
    handler(std::move(result));
  };
}

int statusOf(const std::shared_ptr<const URLResponse>& response) {
  const auto http = std::dynamic_pointer_cast<const HTTPURLResponse>(response);
  return http ? http->statusCode() : 0;
}

}  // namespace

/// Cuts the stream of a watch into lines. Called on the client's queue only.
class EtcdClient::WatchDelegate final : public URLSessionDelegate {
 public:
  explicit WatchDelegate(std::shared_ptr<URLSessionDelegate> trust) : trust_(std::move(trust)) {}

  [[nodiscard]] bool judgesServers(const std::string& host) const override {
    return trust_ && trust_->judgesServers(host);
  }
  void didReceiveChallenge(URLSession& session, const URLAuthenticationChallenge& challenge,
                           ChallengeHandler completionHandler) override {
    auto& decider = trust_ ? *trust_ : system_;
    decider.didReceiveChallenge(session, challenge, std::move(completionHandler));
  }

  void begin(const EtcdMessages& messages, URLSessionTask* task, WatchHandler handler,
             WatchEnd end) {
    messages_ = &messages;
    task_ = task;
    handler_ = std::move(handler);
    end_ = std::move(end);
    line_.clear();
    hasSpoken_ = false;
  }

  void stop() {
    task_ = nullptr;
    handler_ = nullptr;
    end_ = nullptr;
  }

  void didReceiveData(URLSession&, URLSessionDataTask& task, DataView data) override {
    if (&task != task_) return;
    line_ += textOf(data);
    std::size_t begin = 0;
    for (auto end = line_.find('\n'); end != std::string::npos && &task == task_;
         begin = end + 1, end = line_.find('\n', begin)) {
      take(std::string_view(line_).substr(begin, end - begin));
    }
    line_.erase(0, begin);
    if (&task == task_ && line_.size() > kMaxAnswerBytes) {
      finish(EtcdError{"the server's answer has no end"});
      task.cancel();
    }
  }

  void didComplete(URLSession&, URLSessionTask& task,
                   const std::shared_ptr<const Error>& error) override {
    if (&task != task_) return;
    const auto* known = dynamic_cast<const URLError*>(error.get());
    if (known != nullptr && known->code() == URLError::Code::timedOut && hasSpoken_) {
      return finish(std::nullopt);
    }
    // Bytes that are not a line of a watch are a refusal.
    if (!error && !line_.empty()) {
      auto refusal = EtcdMessages::error(bytesOf(line_));
      if (refusal.message.empty()) refusal.message = "the watch was answered as no etcd does";
      return finish(std::move(refusal));
    }
    finish(EtcdError{error ? error->what() : "the server has ended the watch"});
  }

 private:
  void take(std::string_view line) {
    if (line.empty()) return;
    EtcdWatchMessage message;
    try {
      message = messages_->watchMessage(line);
    } catch (const JSONError& error) {
      return finish(EtcdError{error.what()});
    } catch (const std::bad_alloc&) {
      return finish(EtcdError{"there is no memory for the server's answer"});
    }
    hasSpoken_ = true;
    const auto ended = message.ended;
    // The handler may start another watch, which replaces this one.
    const auto handler = handler_;
    URLSessionTask* const task = task_;
    handler(std::move(message));
    if (ended && task == task_) finish(ended);
  }

  void finish(const std::optional<EtcdError>& error) {
    const auto end = std::move(end_);
    stop();
    if (end) end(error);
  }

  const std::shared_ptr<URLSessionDelegate> trust_;
  URLSessionDelegate system_;
  const EtcdMessages* messages_ = nullptr;
  URLSessionTask* task_ = nullptr;
  WatchHandler handler_;
  WatchEnd end_;
  std::string line_;
  bool hasSpoken_ = false;
};

std::shared_ptr<EtcdClient> EtcdClient::make(const EtcdConfiguration& configuration,
                                             std::shared_ptr<DispatchQueue> queue) {
  return std::make_shared<EtcdClient>(Passkey{}, configuration, std::move(queue));
}

EtcdClient::EtcdClient(Passkey, const EtcdConfiguration& configuration,
                       std::shared_ptr<DispatchQueue> queue)
    : configuration_(configuration),
      messages_(configuration.prefix),
      queue_(std::move(queue)),
      watchDelegate_(std::make_shared<WatchDelegate>(trustIn(configuration))),
      calls_(URLSession::make(callConfiguration(), trustIn(configuration_), queue_)),
      watches_(URLSession::make(watchConfiguration(), watchDelegate_, queue_)) {}

void EtcdClient::close() {
  isClosed_ = true;
  watchDelegate_->stop();
  calls_->invalidateAndCancel();
  watches_->invalidateAndCancel();
}

void EtcdClient::awaitEnd() {
  calls_->close();
  watches_->close();
}

void EtcdClient::change(const CloudMirror::Pending& change, std::string_view device,
                        std::int64_t markRevision, Handler<EtcdChangeResult> handler) {
  call("/v3/kv/txn", messages_.change(change.key, change.value, change.id, device, markRevision),
       reading<EtcdChangeResult>(std::move(handler), [id = change.id](DataView answer) {
         return EtcdMessages::changeResult(answer, id);
       }));
}

void EtcdClient::range(Handler<EtcdSnapshot> handler) {
  call("/v3/kv/txn", messages_.range(),
       reading<EtcdSnapshot>(std::move(handler), [self = shared_from_this()](DataView answer) {
         return self->messages_.snapshot(answer);
       }));
}

void EtcdClient::watch(std::int64_t revision, WatchHandler handler, WatchEnd end) {
  watchDelegate_->stop();
  if (watchTask_) watchTask_->cancel();
  auto ended = [self = weak_from_this(), end = std::move(end)](std::optional<EtcdError> error) {
    const auto client = self.lock();
    // The next call asks for a new token when this one has lapsed.
    if (client && error && error->kind == EtcdError::Kind::wantsLogin) client->token_.reset();
    end(std::move(error));
  };
  watchTask_ = watches_->dataTask(request("/v3/watch", messages_.watch(revision)), nullptr);
  watchDelegate_->begin(messages_, watchTask_.get(), std::move(handler), std::move(ended));
  watchTask_->resume();
}

URLRequest EtcdClient::request(std::string_view path, const JSON& body) const {
  auto url = URL::parse(path, configuration_.endpoint);
  URLRequest request(url ? *std::move(url) : configuration_.endpoint);
  request.timeoutInterval = kWatchTimeout;
  request.httpMethod = "POST";
  request.headers.set("Content-Type", "application/json");
  if (token_) request.headers.set("Authorization", *token_);
  request.httpBody = body.rawData();
  return request;
}

/// Sends a request; when the server wants a login, signs in and sends it again.
void EtcdClient::call(std::string path, JSON body, Handler<Data> handler, Login login) {
  auto answered = [self = shared_from_this(), path, body, handler = std::move(handler),
                   login](std::expected<Data, EtcdError> answer) mutable {
    const bool wantsLogin = !answer && answer.error().kind == EtcdError::Kind::wantsLogin;
    if (wantsLogin) self->token_.reset();
    if (wantsLogin && !self->configuration_.credentials) {
      answer.error().message = "the server asks for a login (" + answer.error().message + ")";
    }
    if (!wantsLogin || login == Login::failed || !self->configuration_.credentials) {
      return handler(std::move(answer));
    }
    self->authenticate(Authenticated(
        [self, path = std::move(path), body = std::move(body),
         handler = std::make_shared<Handler<Data>>(std::move(handler))](const auto& error) {
          if (error) return (*handler)(std::unexpected(*error));
          self->call(path, body, std::move(*handler), Login::failed);
        }));
  };
  send(path, body, std::move(answered));
}

void EtcdClient::send(const std::string& path, const JSON& body, Handler<Data> handler) {
  constexpr int kOk = 200;
  const auto task = calls_->dataTask(
      request(path, body),
      [self = shared_from_this(), handler = std::move(handler)](
          std::optional<Data> data, const std::shared_ptr<const URLResponse>& response,
          const std::shared_ptr<const Error>& error) mutable {
        if (self->isClosed_) return;
        const Data answer = std::move(data).value_or(Data());
        const int status = statusOf(response);
        if (error) return handler(std::unexpected(EtcdError{error->what()}));
        if (status == kOk) return handler(answer);
        auto refusal = EtcdMessages::error(answer);
        if (refusal.message.empty()) {
          refusal.message = "the server answered " + std::to_string(status);
        }
        handler(std::unexpected(std::move(refusal)));
      });
  task->resume();
}

/// Asks for a token; calls that come meanwhile share it.
void EtcdClient::authenticate(Authenticated handler) {
  waiting_.push_back(std::move(handler));
  if (waiting_.size() > 1) return;
  const JSON body = JSON::Dictionary{{"name", configuration_.credentials->name},
                                     {"password", configuration_.credentials->password}};
  send("/v3/auth/authenticate", body,
       [self = shared_from_this()](const std::expected<Data, EtcdError>& answer) {
         self->authenticated(answer);
       });
}

void EtcdClient::authenticated(const std::expected<Data, EtcdError>& answer) {
  std::optional<EtcdError> error;
  if (answer) {
    try {
      token_ = JSON::parse(*answer)["token"].stringValue();
    } catch (const JSONError& malformed) {
      error = EtcdError{malformed.what()};
    }
  } else if (answer.error().kind != EtcdError::Kind::authenticationIsOff) {
    error = answer.error();
  }
  for (auto& handler : std::exchange(waiting_, {})) handler(error);
}

}  // namespace ombrix::platform::detail
