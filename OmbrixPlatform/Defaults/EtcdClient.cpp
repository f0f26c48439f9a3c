#include "OmbrixPlatform/Defaults/Detail/EtcdClient.hpp"

#include <chrono>
#include <utility>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::chrono::seconds kCallTimeout{10};
// The server gives a sign of life every 10 minutes.
constexpr std::chrono::minutes kWatchTimeout{15};
constexpr std::chrono::hours kWatchLifetime{24 * 365};
// A line holds one change set; etcd's own limit for a request is 1.5 MB, base64 adds a third.
constexpr std::size_t kMaxLineBytes = 16 * 1024 * 1024;

URLSessionConfiguration callConfiguration() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = kCallTimeout;
  configuration.timeoutIntervalForResource = kCallTimeout;
  return configuration;
}

URLSessionConfiguration watchConfiguration() {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.timeoutIntervalForRequest = kWatchTimeout;
  configuration.timeoutIntervalForResource = kWatchLifetime;
  return configuration;
}

/// A handler of the answer's bytes that hands on what `read` makes of them; it may throw
/// `JSONError`.
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
  void begin(const EtcdMessages& messages, URLSessionTask* task, WatchHandler handler,
             WatchEnd end) {
    messages_ = &messages;
    task_ = task;
    handler_ = std::move(handler);
    end_ = std::move(end);
    line_.clear();
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
    if (line_.size() > kMaxLineBytes) finish("the server's answer has no end");
  }

  void didComplete(URLSession&, URLSessionTask& task,
                   const std::shared_ptr<const Error>& error) override {
    if (&task == task_) finish(error ? error->what() : "the server has ended the watch");
  }

 private:
  void take(std::string_view line) {
    if (line.empty()) return;
    EtcdWatchMessage message;
    try {
      message = messages_->watchMessage(line);
    } catch (const JSONError& error) {
      return finish(error.what());
    }
    const auto ended = message.ended;
    // The handler may start another watch, which replaces this one.
    const auto handler = handler_;
    URLSessionTask* const task = task_;
    handler(std::move(message));
    if (ended && task == task_) finish(*ended);
  }

  void finish(const std::string& message) {
    const auto end = std::move(end_);
    stop();
    if (end) end({message});
  }

  const EtcdMessages* messages_ = nullptr;
  URLSessionTask* task_ = nullptr;
  WatchHandler handler_;
  WatchEnd end_;
  std::string line_;
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
      watchDelegate_(std::make_shared<WatchDelegate>()),
      calls_(URLSession::make(callConfiguration(), nullptr, queue_)),
      watches_(URLSession::make(watchConfiguration(), watchDelegate_, queue_)) {}

void EtcdClient::close() {
  isClosed_ = true;
  watchDelegate_->stop();
  calls_->invalidateAndCancel();
  watches_->invalidateAndCancel();
}

void EtcdClient::put(std::string_view key, const std::optional<PropertyList>& value,
                     Handler<std::int64_t> handler) {
  call(value ? "/v3/kv/put" : "/v3/kv/deleterange",
       value ? messages_.put(key, *value) : messages_.remove(key),
       reading<std::int64_t>(std::move(handler), &EtcdMessages::revision));
}

void EtcdClient::range(Handler<EtcdSnapshot> handler) {
  call("/v3/kv/range", messages_.range(),
       reading<EtcdSnapshot>(std::move(handler), [self = shared_from_this()](DataView answer) {
         return self->messages_.snapshot(answer);
       }));
}

void EtcdClient::watch(std::int64_t revision, WatchHandler handler, WatchEnd end) {
  watchDelegate_->stop();
  if (watchTask_) watchTask_->cancel();
  watchTask_ = watches_->dataTask(request("/v3/watch", messages_.watch(revision)), nullptr);
  watchDelegate_->begin(messages_, watchTask_.get(), std::move(handler), std::move(end));
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

/// Sends a request with a token, where the server wants one.
void EtcdClient::call(std::string path, JSON body, Handler<Data> handler) {
  if (token_ || !configuration_.credentials) return send(path, body, std::move(handler));
  authenticate([self = shared_from_this(), path = std::move(path), body = std::move(body),
                handler = std::move(handler)](std::optional<EtcdError> error) mutable {
    if (error) return handler(std::unexpected(std::move(*error)));
    self->send(path, body, std::move(handler));
  });
}

void EtcdClient::send(const std::string& path, const JSON& body, Handler<Data> handler) {
  constexpr int kOk = 200, kBadRequest = 400, kUnauthorized = 401, kTooLarge = 413;
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
        // A token that has lapsed is asked for anew by the next call.
        if (status == kUnauthorized) self->token_.reset();
        std::string message = EtcdMessages::errorMessage(answer);
        if (message.empty()) message = "the server answered " + std::to_string(status);
        handler(std::unexpected(
            EtcdError{std::move(message), status == kBadRequest || status == kTooLarge}));
      });
  task->resume();
}

void EtcdClient::authenticate(Authenticated handler) {
  const JSON body = JSON::Dictionary{{"name", configuration_.credentials->name},
                                     {"password", configuration_.credentials->password}};
  send("/v3/auth/authenticate", body,
       [self = shared_from_this(),
        handler = std::move(handler)](std::expected<Data, EtcdError> answer) mutable {
         // A wrong password is no fault of the change that was to be sent.
         if (!answer) return handler(EtcdError{std::move(answer.error().message)});
         try {
           self->token_ = JSON::parse(*answer)["token"].stringValue();
           handler(std::nullopt);
         } catch (const JSONError& error) {
           handler(EtcdError{error.what()});
         }
       });
}

}  // namespace ombrix::platform::detail
