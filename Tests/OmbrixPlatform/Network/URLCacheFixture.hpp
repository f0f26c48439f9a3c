#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CachingSamples.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {

/// A cache's caller at a clock that stands still.
class URLCacheFixture : public ::testing::Test {
 protected:
  using Kind = URLCache::Decision::Kind;

  /// What a session does with an answer of the server.
  CachedURLResponse load(URLCache& cache, const URLRequest& request,
                         const CachedURLResponse& answer,
                         const CachedURLResponse* validated = nullptr) const {
    const Date now = clock->now();
    return cache.received(request, now, now, answer, validated);
  }

  /// What the cache says of a request, as text: "serve <body>", "validate <conditions>", …
  static std::string decision(URLCache& cache, const URLRequest& request) {
    const auto decided = cache.decide(request);
    switch (decided.kind) {
      case Kind::serve:
        return "serve " + std::string(textOf(*decided.answer->data));
      case Kind::validate:
        return "validate " + samples::fieldsText(decided.conditions);
      case Kind::load:
        return "load";
      case Kind::unavailable:
        break;
    }
    return "unavailable";
  }

  std::shared_ptr<testing::ManualClock> clock =
      std::make_shared<testing::ManualClock>(dateSince1970(samples::kNow));
  testing::ScopedService<Clock> scoped{services().clock, clock};
};

}  // namespace ombrix::platform
