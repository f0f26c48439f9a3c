#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Networking/Policies/RequestFlows.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix {
namespace {

constexpr LogTag kPublisherTag{"OmbrixCore/Networking/OmbrixServerAPI",
                               "publisher(url:method:disableCache:payload:)"};

HTTPError invalidBody(platform::DecodingError error) {
  logError(kPublisherTag, std::string("Web: Could not decode HTTP body: ") + error.what());
  return HTTPError::invalidBody(std::move(error));
}

}  // namespace

std::shared_ptr<OmbrixAPIHttpRequestOperation> OmbrixServerAPI::operationFor(std::string_view url,
                                                                             HTTPMethod method,
                                                                             Duration duration) {
  const auto [environment, base] = environmentAndBase();
  auto target = platform::URL::parse(url, base);
  if (!target) return nullptr;
  const bool isLong = duration == Duration::unlimited;
  auto operation = std::make_shared<OmbrixAPIHttpRequestOperation>(
      *std::move(target), method, platform::HTTPHeaders(), nullptr,
      isLong ? backgroundSession() : session());
  operation->setEnvironment(environment);
  operation->setLongTransfer(isLong);
  return operation;
}

ServerRequests::ServerRequests() : flows_(std::make_shared<RequestFlows>()) {}
ServerRequests::~ServerRequests() = default;

void ServerRequests::setPolicies(RequestPolicies policies) {
  flows_->setPolicies(std::move(policies));
}

ServerRequests::APIPublisher<HTTPAnswer> ServerRequests::publisher(std::string_view url,
                                                                   HTTPMethod method,
                                                                   bool disableCache,
                                                                   Payload payload) {
  const auto operation = operationFor(url, method, Duration::request);
  // Kept: asking for no cache lowers the flag, which is down already. Raising it would send every
  // such request of the application to the server, and none would be answered offline.
  if (operation && disableCache) operation->setDisableCashe(false);
  return publisherOf(operation, std::move(payload));
}

ServerRequests::APIPublisher<HTTPAnswer> ServerRequests::publisher(std::string_view url,
                                                                   HTTPMethod method,
                                                                   RequestOptions options,
                                                                   Payload payload) {
  const auto operation = operationFor(url, method, Duration::request);
  if (operation) operation->setOptions(std::move(options));
  return publisherOf(operation, std::move(payload));
}

/// Publishes an operation's outcome; null stands for a text that is not a URL.
ServerRequests::APIPublisher<HTTPAnswer> ServerRequests::publisherOf(
    const std::shared_ptr<OmbrixAPIHttpRequestOperation>& operation, Payload payload) {
  const auto& queue = OmbrixServerAPI::dispatchQueue();
  // This failure is delivered there, too: otherwise a completion would run before its caller has
  // the ID.
  if (!operation) {
    return APIPublisher<HTTPAnswer>::fail(HTTPError::badRequestError()).receiveOn(queue);
  }
  if (payload) operation->setPayload(std::move(payload));
  if (const auto governed = flows_->publisherOf(operation)) return governed->receiveOn(queue);
  return HTTPRequestOperationPublisher(operation, queue).eraseToAnyPublisher();
}

ServerRequests::APIPublisher<platform::SharedData> ServerRequests::dataPublisher(
    std::string_view url, HTTPMethod method, bool disableCache, Payload payload) {
  return publisher(url, method, disableCache, std::move(payload)).map([](const HTTPAnswer& answer) {
    return answer.data;
  });
}

ServerRequests::APIPublisher<std::optional<std::string>> ServerRequests::stringPublisher(
    std::string_view url, HTTPMethod method, bool disableCache, Payload payload) {
  return publisher(url, method, disableCache, std::move(payload)).map([](const HTTPAnswer& answer) {
    return platform::stringFromUTF8(answer.data);
  });
}

HTTPError ServerRequests::bodyError(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const HTTPError& known) {
    return known;
  } catch (const platform::DecodingError& known) {
    return invalidBody(known);
  } catch (const std::exception& other) {
    return invalidBody(platform::DecodingError::dataCorrupted(other.what(), {}));
  }
}

namespace {

struct SharedFormatter {
  platform::Mutex mutex;
  std::shared_ptr<const platform::DateFormatter> formatter OMBRIX_GUARDED_BY(mutex);

  static SharedFormatter& instance() {
    static auto& shared = *new SharedFormatter;
    return shared;
  }
};

}  // namespace

std::shared_ptr<const platform::DateFormatter> OmbrixServerAPI::localTimezoneFormatter() {
  auto& shared = SharedFormatter::instance();
  const platform::LockGuard lock(shared.mutex);
  if (!shared.formatter) {
    shared.formatter = std::make_shared<const platform::DateFormatter>("yyyy-MM-dd'T'HH:mm:ss",
                                                                       platform::Locale("en_US"));
  }
  return shared.formatter;
}

void OmbrixServerAPI::setLocalTimezoneFormatter(
    std::shared_ptr<const platform::DateFormatter> formatter) {
  auto& shared = SharedFormatter::instance();
  const platform::LockGuard lock(shared.mutex);
  shared.formatter.swap(formatter);
}

}  // namespace ombrix
