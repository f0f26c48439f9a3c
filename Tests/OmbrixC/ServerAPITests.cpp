#include "OmbrixC/Networking/OmbrixServerAPI.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>

#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"
#include "OmbrixTesting/ManualPathMonitor.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::c {
namespace {

using ::testing::ElementsAre;
using testing::EventLog;
using testing::FakeURLSession;
using ::testing::IsEmpty;

std::string taken(char* text) {
  if (text == nullptr) return "(null)";
  std::string copy(text);
  ombrix_String_release(text);
  return copy;
}

void completed(bool success, int code, const uint8_t* body, size_t length, const OmbrixError* error,
               void* context) {
  static_cast<EventLog*>(context)->add(
      std::to_string(success) + " " + std::to_string(code) + " " +
      (body ? std::string(reinterpret_cast<const char*>(body), length) : "(null)") + " " +
      (error ? taken(ombrix_ServerAPI_errorMessageForError_(error)) : "(null)"));
}

class ServerAPITests : public ::testing::Test {
 protected:
  ::OmbrixServerAPI* client = nullptr;
  std::optional<FakeURLSession::Answer> answer = FakeURLSession::Answer{};
  EventLog events;
  testing::RecordingLog log;

  void SetUp() override { client = ombrix_ServerAPI_sharedInstance(); }
  std::string request(const char* url, const char* method, OmbrixPayload payload = {}) {
    return taken(ombrix_ServerAPI_requestWithUrl_method_disableCache_payload_completion_context_(
        client, url, method, false, payload, &completed, &events));
  }
  FakeURLSession& session() { return *sessions_->sessions().back(); }

 private:
  testing::ScopedDirectories directories_;
  std::shared_ptr<testing::FakeURLSessionFactory> sessions_ =
      std::make_shared<testing::FakeURLSessionFactory>([this](const auto&) { return answer; });
  testing::ScopedService<platform::URLSessionFactory> scopedSessions_{
      platform::services().urlSessionFactory, sessions_};
  testing::ScopedService<platform::NWPathMonitorFactory> scopedPaths_{
      platform::services().pathMonitorFactory,
      std::make_shared<testing::ManualPathMonitorFactory>()};
  testing::ScopedServerAPI api_;
};

// Catches outcomes that lose their code, body or message, and a payload that is not sent.
TEST_F(ServerAPITests, RequestsWithACompletion) {
  answer->body = "body";
  const std::string payload = "payload";
  const OmbrixPayload bytes{reinterpret_cast<const uint8_t*>(payload.data()), payload.size()};
  EXPECT_EQ(request("days/1", "PUT", bytes).size(), 36u);
  EXPECT_THAT(events.takeOnce("1 200 body (null)"), ElementsAre("1 200 body (null)"));
  const auto sent = session().request(0);
  EXPECT_EQ(sent.url.absoluteString(), "https://api.ombrix.example/days/1");
  EXPECT_EQ(sent.httpMethod, "PUT");
  EXPECT_EQ(platform::textOf(*sent.httpBody), payload);
  answer = FakeURLSession::Answer{};
  request("a", "GET");
  EXPECT_THAT(events.takeOnce("1 200  (null)"), ElementsAre("1 200  (null)"));
  answer->status = 404;
  request("a", "GET");
  const std::string notFound = "0 404 (null) Sorry it looks like that link isn't valid.";
  EXPECT_THAT(events.takeOnce(notFound), ElementsAre(notFound));
  request("a", "FETCH");
  const std::string malformed =
      "0 400 (null) The request was malformed. Please contact support for further assistance.";
  EXPECT_THAT(events.takeOnce(malformed), ElementsAre(malformed));
  EXPECT_EQ(taken(ombrix_ServerAPI_errorMessageForError_(nullptr)),
            "An unknown error occurred. Sorry, please try again later.");
  EXPECT_EQ(ombrix_Error_httpCase(nullptr), nullptr);
}

// Catches a cancelled request that calls its completion.
TEST_F(ServerAPITests, CancelledRequestsAreSilent) {
  answer = std::nullopt;
  const auto id = request("a", "GET");
  session().request(0);
  ombrix_ServerAPI_cancelRequestWithID_(client, id.c_str());
  ombrix_ServerAPI_cancelRequestWithID_(client, "no ID");
  ombrix_ServerAPI_waitUntilAllOperationsAreFinished(client);
  EXPECT_THAT(events.take(), IsEmpty());
}

// Catches fields of an operation that are not set, and a callback that is not called.
TEST_F(ServerAPITests, Operations) {
  const char* const headers[] = {"X-A", "1", "X-B", "2"};
  auto* operation = ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_(
      "days", "POST", headers, 4,
      [](bool success, int code, const uint8_t* body, size_t length, void* context) {
        completed(success, code, body, length, nullptr, context);
      },
      &events);
  ASSERT_NE(operation, nullptr);
  EXPECT_TRUE(ombrix_APIHttpRequestOperation_safeForLowData(operation));
  EXPECT_EQ(ombrix_APIHttpRequestOperation_attempt(operation), 1);
  ombrix_APIHttpRequestOperation_setUsesAuth_(operation, true);
  EXPECT_TRUE(ombrix_APIHttpRequestOperation_usesAuth(operation));
  ombrix_APIHttpRequestOperation_setCacheOnly_(operation, true);
  ombrix_APIHttpRequestOperation_setSafeForLowData_(operation, false);
  ombrix_ServerAPI_setJwtToken_(client, "abc");
  ombrix_ServerAPI_addOperation_(client, operation);
  EXPECT_THAT(events.takeOnce("1 200 (null) (null)"), ElementsAre("1 200 (null) (null)"));
  ombrix_ServerAPI_waitUntilAllOperationsAreFinished(client);
  EXPECT_EQ(ombrix_APIHttpRequestOperation_state(operation), OmbrixOperationStateFinished);
  const auto sent = session().request(0);
  EXPECT_EQ(sent.headers.value("X-B"), "2");
  EXPECT_EQ(sent.headers.value("Authorization"), "Bearer abc");
  EXPECT_FALSE(sent.allowsConstrainedNetworkAccess);
  EXPECT_EQ(sent.cachePolicy, platform::URLRequest::CachePolicy::returnCacheDataDontLoad);
  EXPECT_EQ(taken(ombrix_APIHttpRequestOperation_taskID(operation)).size(), 36u);
  ombrix_APIHttpRequestOperation_release(operation);
  EXPECT_EQ(ombrix_APIHttpRequestOperation_initWithUrl_method_headers_callback_(
                "no blanks", "GET", nullptr, 0, nullptr, nullptr),
            nullptr);
}

// Catches conditions, handlers and observers that are not connected.
TEST_F(ServerAPITests, Conditions) {
  ombrix_ServerAPI_setForceLogoutHandler_context_(
      client, [](void* context) { static_cast<EventLog*>(context)->add("logout"); }, &events);
  ombrix_ServerAPI_setMaintenanceHandler_context_(
      client, [](void* context) { static_cast<EventLog*>(context)->add("maintenance"); }, &events);
  auto* observation = ombrix_ServerAPI_addObserver_forKeyPath_context_(
      client,
      [](const char* key, bool isPrior, void* context) {
        static_cast<EventLog*>(context)->add(std::string(key) + (isPrior ? " will" : " did"));
      },
      "loginError", &events);
  ombrix_ServerAPI_triggerLoginError(client);
  ombrix_ServerAPI_triggerLoginError(client);
  EXPECT_TRUE(ombrix_ServerAPI_loginError(client));
  EXPECT_THAT(events.take(), ElementsAre("loginError will", "loginError did", "logout"));
  ombrix_Observation_release(observation);
  ombrix_ServerAPI_clearLoginError(client);
  EXPECT_FALSE(ombrix_ServerAPI_loginError(client));
  ombrix_ServerAPI_triggerMaintenanceMode(client);
  EXPECT_TRUE(ombrix_ServerAPI_serverIsInMaintenanceMode(client));
  ombrix_ServerAPI_clearMaintenanceMode(client);
  ombrix_ServerAPI_setMaintenanceHandler_context_(client, nullptr, nullptr);
  ombrix_ServerAPI_triggerMaintenanceMode(client);
  EXPECT_THAT(events.take(), ElementsAre("maintenance"));
  ombrix_ServerAPI_trackExternalHTTPRequest(client);
  EXPECT_TRUE(ombrix_ServerAPI_hasOperations(client));
  ombrix_ServerAPI_completeExternalHTTPRequest(client);
  EXPECT_FALSE(ombrix_ServerAPI_hasOperations(client));
  EXPECT_TRUE(ombrix_ServerAPI_isReachable(client));
}

// Catches an environment or servers that are not taken over.
TEST_F(ServerAPITests, Environment) {
  ombrix_ServerAPI_changeTo_(OmbrixAPIEndpointStaging);
  EXPECT_EQ(ombrix_ServerAPI_endPoint(client), OmbrixAPIEndpointStaging);
  EXPECT_EQ(taken(ombrix_ServerAPI_baseHost(client)), "dev.ombrix.example");
  EXPECT_FALSE(ombrix_ServerAPI_setProduction_staging_development_(client, "https://a.test/",
                                                                   "no blanks", "https://c.test/"));
  EXPECT_TRUE(ombrix_ServerAPI_setProduction_staging_development_(
      client, "https://a.test/", "https://b.test:8443/", "https://c.test/"));
  EXPECT_EQ(taken(ombrix_ServerAPI_baseURL(client)), "https://b.test:8443/");
  EXPECT_EQ(taken(ombrix_ServerAPI_apiEndpoint(client)), "https://b.test:8443/api/v1/");
  ombrix_ServerAPI_setJwtToken_(client, "abc");
  EXPECT_EQ(taken(ombrix_ServerAPI_jwtToken(client)), "abc");
  auto* const years =
      ombrix_DateFormatter_initWithDateFormat_locale_timeZone_("yyyy", "en_US", "UTC");
  ombrix_ServerAPI_setLocalTimezoneFormatter_(years);
  ombrix_DateFormatter_release(years);
  auto* const shared = ombrix_ServerAPI_localTimezoneFormatter();
  ombrix_ServerAPI_setLocalTimezoneFormatter_(nullptr);
  EXPECT_EQ(taken(ombrix_DateFormatter_stringFromDate_(shared, 1700000000)), "2023");
  double date = 0;
  OmbrixError* error = nullptr;
  EXPECT_TRUE(ombrix_DateFormatter_dateFromString_error_(shared, "1970", &date, &error));
  EXPECT_EQ(date, 0);
  EXPECT_FALSE(ombrix_DateFormatter_dateFromString_error_(shared, "?", &date, &error));
  EXPECT_STREQ(ombrix_Error_message(error), "The text “?” is not a date.");
  EXPECT_EQ(ombrix_Error_httpStatus(error), 0);
  ombrix_Error_release(error);
  ombrix_DateFormatter_release(shared);
  ombrix_ServerAPI_setJwtToken_(client, nullptr);
  EXPECT_EQ(taken(ombrix_ServerAPI_jwtToken(client)), "(null)");
}

}  // namespace
}  // namespace ombrix::c
