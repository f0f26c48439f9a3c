#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
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

OmbrixServerAPI::APIPublisher<HTTPAnswer> OmbrixServerAPI::publisher(std::string_view url,
                                                                     HTTPMethod method,
                                                                     bool disableCache,
                                                                     Payload payload) {
  const auto [environment, base] = environmentAndBase();
  const auto target = platform::URL::parse(url, base);
  if (!target) return APIPublisher<HTTPAnswer>::fail(HTTPError::badRequestError());
  auto operation = std::make_shared<OmbrixAPIHttpRequestOperation>(
      *target, method, platform::HTTPHeaders(), nullptr, session());
  operation->setEnvironment(environment);
  if (payload) operation->setPayload(std::move(payload));
  // Kept: asking for no cache lowers the flag, which is down already. Raising it would send every
  // such request of the application to the server, and none would be answered offline.
  if (disableCache) operation->setDisableCashe(false);
  return HTTPRequestOperationPublisher(std::move(operation)).receiveOn(dispatchQueue());
}

OmbrixServerAPI::APIPublisher<platform::Data> OmbrixServerAPI::dataPublisher(std::string_view url,
                                                                             HTTPMethod method,
                                                                             bool disableCache,
                                                                             Payload payload) {
  return publisher(url, method, disableCache, std::move(payload)).map([](const HTTPAnswer& answer) {
    return answer.data;
  });
}

OmbrixServerAPI::APIPublisher<std::optional<std::string>> OmbrixServerAPI::stringPublisher(
    std::string_view url, HTTPMethod method, bool disableCache, Payload payload) {
  return publisher(url, method, disableCache, std::move(payload)).map([](const HTTPAnswer& answer) {
    return platform::stringFromUTF8(answer.data);
  });
}

HTTPError OmbrixServerAPI::bodyError(const std::exception_ptr& error) {
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
  std::mutex mutex;
  std::shared_ptr<const platform::DateFormatter> formatter;

  static SharedFormatter& instance() {
    static auto& shared = *new SharedFormatter;
    return shared;
  }
};

}  // namespace

std::shared_ptr<const platform::DateFormatter> OmbrixServerAPI::localTimezoneFormatter() {
  auto& shared = SharedFormatter::instance();
  const std::lock_guard lock(shared.mutex);
  if (!shared.formatter) {
    shared.formatter = std::make_shared<const platform::DateFormatter>("yyyy-MM-dd'T'HH:mm:ss",
                                                                       platform::Locale("en_US"));
  }
  return shared.formatter;
}

void OmbrixServerAPI::setLocalTimezoneFormatter(
    std::shared_ptr<const platform::DateFormatter> formatter) {
  auto& shared = SharedFormatter::instance();
  const std::lock_guard lock(shared.mutex);
  shared.formatter.swap(formatter);
}

}  // namespace ombrix
