#pragma once

#include <cstdint>
#include <exception>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "OmbrixCore/Concurrency/Publisher+Async.hpp"
#include "OmbrixCore/Networking/CompletionSubscriptions.hpp"
#include "OmbrixCore/Networking/Policies/RequestPolicies.hpp"
#include "OmbrixCore/Networking/Requests/HTTPLines.hpp"
#include "OmbrixCore/Networking/Requests/HTTPRequestOperationPublisher.hpp"
#include "OmbrixCore/Networking/Requests/OmbrixAPIHttpRequestOperation.hpp"
#include "OmbrixCore/Networking/Requests/RequestOptions.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"

namespace ombrix {

class RequestFlows;

/// The ways to make a request to the product's web service: publishers, closures, coroutines. Base
/// of `OmbrixServerAPI`. Any thread.
///
/// `url` is an absolute URL or a path below the base URL; text that is neither fails with
/// `badRequestError`. A request is only repeated by policies that were set.
class ServerRequests {
 public:
  using HTTPMethod = HttpRequestOperation::HTTPMethod;
  using Payload = std::optional<HTTPPayload>;
  template <class Output>
  using APIPublisher = platform::AnyPublisher<Output, HTTPError>;
  template <class Output>
  using Result = std::expected<Output, HTTPError>;

  /// @name Policies
  /// @{

  /// The policies of all requests made from now on, in any form; at first none. Requests between
  /// two attempts are on no queue: they do not count in `hasOperations`, and are not found by their
  /// ID.
  void setPolicies(RequestPolicies policies);

  /// @}
  /// @name Publishers
  ///
  /// A request as a publisher: it is sent when it is subscribed to, which may be done once, and
  /// delivers on `OmbrixServerAPI::dispatchQueue`. Subscribing again stops the program.
  /// @{

  /// The answer. `disableCache` does nothing: `RequestOptions::cachePolicy` does.
  [[nodiscard]] APIPublisher<HTTPAnswer> publisher(std::string_view url,
                                                   HTTPMethod method = HTTPMethod::GET,
                                                   bool disableCache = false,
                                                   Payload payload = std::nullopt);

  /// The same with options.
  [[nodiscard]] APIPublisher<HTTPAnswer> publisher(std::string_view url, HTTPMethod method,
                                                   RequestOptions options,
                                                   Payload payload = std::nullopt);

  /// The body.
  [[nodiscard]] APIPublisher<platform::SharedData> dataPublisher(
      std::string_view url, HTTPMethod method = HTTPMethod::GET, bool disableCache = false,
      Payload payload = std::nullopt);

  /// The body as text; empty when it is not valid UTF-8.
  [[nodiscard]] APIPublisher<std::optional<std::string>> stringPublisher(
      std::string_view url, HTTPMethod method = HTTPMethod::GET, bool disableCache = false,
      Payload payload = std::nullopt);

  /// The body decoded from JSON; fails with `invalidBody`, which is logged, when it cannot be.
  template <class Value>
  [[nodiscard]] APIPublisher<Value> publisher(std::string_view url,
                                              HTTPMethod method = HTTPMethod::GET,
                                              bool disableCache = false,
                                              Payload payload = std::nullopt) {
    return decoded<Value>(publisher(url, method, disableCache, std::move(payload)));
  }
  template <class Value>
  [[nodiscard]] APIPublisher<Value> publisher(std::string_view url, HTTPMethod method,
                                              RequestOptions options,
                                              Payload payload = std::nullopt) {
    return decoded<Value>(publisher(url, method, std::move(options), std::move(payload)));
  }

  /// @}
  /// @name Closures
  /// @{

  /// Subscribes and calls the completion once, with the first value or the failure (`missingBody`
  /// for an end without either). Returns the ID for cancelling, after which no call starts except
  /// one that is on its way on another thread. For publishers of this client it is called on
  /// `OmbrixServerAPI::dispatchQueue`, never on the calling thread.
  template <class Output>
  platform::UUID completionWrapper(
      const APIPublisher<Output>& publisher,
      std::type_identity_t<std::function<void(Result<Output>)>> completion) {
    return subscriptions_->subscribe(publisher, std::move(completion));
  }

  /// The same with success, value and error apart.
  template <class Output>
  platform::UUID objcWrapper(
      const APIPublisher<Output>& publisher,
      std::type_identity_t<
          std::function<void(bool, std::optional<Output>, std::optional<HTTPError>)>>
          completion) {
    return completionWrapper(publisher,
                             [completion = std::move(completion)](Result<Output> result) {
                               if (result) {
                                 completion(true, std::move(*result), std::nullopt);
                               } else {
                                 completion(false, std::nullopt, std::move(result.error()));
                               }
                             });
  }

  /// Keeps a subscription alive as long as the client.
  void keep(platform::AnyCancellable cancellable) { subscriptions_->keep(std::move(cancellable)); }

  /// @}
  /// @name Coroutines
  ///
  /// Requests to await; each is sent when it is awaited, started or got. They throw `HTTPError`;
  /// cancelling the task that awaits cancels the request and throws `CancellationError`.
  ///
  ///     const auto resorts = co_await api.get<std::vector<Resort>>("resorts");
  ///
  /// `Value` is what the JSON of the body is decoded into, or `HTTPAnswer` for all there is.
  /// @{

  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> get(std::string_view url) {
    return send<Value>(url, HTTPMethod::GET, RequestOptions());
  }
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> get(std::string_view url, RequestOptions options) {
    return send<Value>(url, HTTPMethod::GET, std::move(options));
  }

  /// @param payload Bytes as they are, or a value that becomes JSON.
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> post(std::string_view url, const HTTPPayload& payload) {
    return send<Value>(url, HTTPMethod::POST, RequestOptions(), payload);
  }
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> post(std::string_view url, const HTTPPayload& payload,
                                            RequestOptions options) {
    return send<Value>(url, HTTPMethod::POST, std::move(options), payload);
  }

  /// The same with a form or several parts.
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> post(std::string_view url, HTTPContent content) {
    return post<Value>(url, std::move(content), RequestOptions());
  }
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> post(std::string_view url, HTTPContent content,
                                            RequestOptions options) {
    options.content = std::move(content);
    return send<Value>(url, HTTPMethod::POST, std::move(options));
  }

  /// Any method.
  template <class Value = HTTPAnswer>
  [[nodiscard]] platform::Async<Value> send(std::string_view url, HTTPMethod method,
                                            RequestOptions options,
                                            Payload payload = std::nullopt) {
    if constexpr (std::is_same_v<Value, HTTPAnswer>) {
      return asAsync(publisher(url, method, std::move(options), std::move(payload)));
    } else {
      return asAsync(publisher<Value>(url, method, std::move(options), std::move(payload)));
    }
  }

  /// @}
  /// @name Files and streams
  ///
  /// They run on `OmbrixServerAPI::backgroundSession`: a minute without any progress ends them, no
  /// time in all. They throw as the other coroutines do.
  /// @{

  /// Sends a regular file, read in pieces; nothing else is waited for or read.
  /// `RequestOptions::progress` tells how far it is.
  [[nodiscard]] platform::Async<HTTPAnswer> upload(std::string_view url,
                                                   const std::filesystem::path& file,
                                                   HTTPMethod method = HTTPMethod::PUT) {
    return upload(url, file, method, RequestOptions());
  }
  [[nodiscard]] platform::Async<HTTPAnswer> upload(std::string_view url,
                                                   const std::filesystem::path& file,
                                                   HTTPMethod method, RequestOptions options);

  /// Writes the body of the answer into a file, which is there when it is whole, and not before.
  /// What a broken download has left ("NAME.part") is gone on with by the next one, where the
  /// server says by "ETag" or "Last-Modified" that it is a part of the same. The answer has no
  /// body; code 416 means that all of it had been there, and codes other than 200, 203 and 206 that
  /// nothing came and all is as it was. A server that sends less than the rest is an error, after
  /// which the next download goes on; so is another download of the same file under way.
  [[nodiscard]] platform::Async<HTTPAnswer> download(std::string_view url,
                                                     std::filesystem::path file) {
    return download(url, std::move(file), RequestOptions());
  }
  [[nodiscard]] platform::Async<HTTPAnswer> download(std::string_view url,
                                                     std::filesystem::path file,
                                                     RequestOptions options);

  /// The lines of the answer as they come; sent at once.
  [[nodiscard]] HTTPLines lines(std::string_view url) { return lines(url, RequestOptions()); }
  [[nodiscard]] HTTPLines lines(std::string_view url, RequestOptions options);

  /// @}

 protected:
  enum class Duration : std::uint8_t { request, unlimited };

  ServerRequests();
  ~ServerRequests();
  ServerRequests(const ServerRequests&) = delete;
  ServerRequests& operator=(const ServerRequests&) = delete;

  const std::shared_ptr<CompletionSubscriptions> subscriptions_ =
      std::make_shared<CompletionSubscriptions>();
  const std::shared_ptr<RequestFlows> flows_;

 private:
  /// An operation of the current environment, on the session for its duration; null where the text
  /// is no URL.
  virtual std::shared_ptr<OmbrixAPIHttpRequestOperation> operationFor(std::string_view url,
                                                                      HTTPMethod method,
                                                                      Duration duration) = 0;

  APIPublisher<HTTPAnswer> publisherOf(
      const std::shared_ptr<OmbrixAPIHttpRequestOperation>& operation, Payload payload);

  template <class Value>
  static APIPublisher<Value> decoded(const APIPublisher<HTTPAnswer>& answers) {
    return answers
        .tryMap([](const HTTPAnswer& answer) {
          return platform::JSONDecoder().decode<Value>(answer.data);
        })
        .mapError(&ServerRequests::bodyError);
  }
  static HTTPError bodyError(const std::exception_ptr& error);
};

}  // namespace ombrix
