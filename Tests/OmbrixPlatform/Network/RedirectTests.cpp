#include "OmbrixPlatform/Network/Curl/Detail/Redirect.hpp"

#include <gtest/gtest.h>

#include "CachingSamples.hpp"
#include "OmbrixPlatform/Network/URLOrigin.hpp"

namespace ombrix::platform {
namespace {

using namespace samples;

// Catches what leaves one origin for another, a log-in under a name that a server chose, and a body
// that is sent again in the clear.
TEST(RedirectTests, KeepsSecretsWithTheirOrigin) {
  constexpr auto kFields = "Authorization: Bearer t|Cookie: c|Accept: a";
  const struct {
    std::string_view from, location;
    std::string_view to;  // "" for one that may not be followed
    bool hasBody = false;
    bool hasToken = true;
  } rows[]{
      {"https://a.test/x", "/y", "https://a.test/y"},
      {"https://a.test/x", "HTTPS://A.TEST:443/y", "HTTPS://A.TEST:443/y"},
      {"https://a.test/x", "https://a.test:444/", "https://a.test:444/", false, false},
      {"https://a.test/x", "https://b.test/", "https://b.test/", true, false},
      {"https://a.test/x", "http://a.test/", "http://a.test/", false, false},
      {"https://a.test/x", "http://a.test/", "", true},
      {"http://a.test/x", "https://a.test/", "https://a.test/", true, false},
      {"http://a.test/x", "http://b.test/", "http://b.test/", true, false},
      {"https://a.test/x", "https://me:pw@a.test/y", "https://a.test/y"},
      {"https://a.test/x", "https://@a.test/y", "https://a.test/y"},
      {"https://a.test/x", "//me@b.test/y?u=a@b", "https://b.test/y?u=a@b", false, false},
      {"https://me:pw@a.test/x", "/y", "https://me:pw@a.test/y"},
      {"https://me:pw@a.test/x", "https://me:no@a.test/y", "https://a.test/y"},
      {"https://me:pw@a.test/x", "https://me:pw@b.test/y", "https://b.test/y", false, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.from) + " " + std::string(row.location));
    auto request = requestFor(row.from, kFields, "PUT");
    if (row.hasBody) request.httpBody = dataFrom("body");
    const auto answer = answerOf(307, "Location: " + std::string(row.location), "", row.from);
    const auto next = detail::redirected(request, *answer.response);
    ASSERT_TRUE(next);
    ASSERT_EQ(detail::mayFollow(request, *next), !row.to.empty());
    if (row.to.empty()) continue;
    EXPECT_EQ(next->url.absoluteString(), row.to);
    EXPECT_EQ(fieldsText(next->headers), row.hasToken ? kFields : "Accept: a");

    const auto told = answerOf(200, "Authorization: Bearer new|X: 1", "", row.to);
    EXPECT_EQ(fieldsText(detail::handedOver(told.response, request.url)->headers()),
              row.hasToken ? "Authorization: Bearer new|X: 1" : "X: 1");
  }
}

}  // namespace
}  // namespace ombrix::platform
