#pragma once

#include <string>
#include <string_view>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixC/OmbrixObservation.h"
#include "OmbrixPlatform/Observation/KeyValueObserving.hpp"

struct OmbrixObservation {
  ombrix::platform::ObservationToken token;
  ombrix::c::Handle handle = {};
};

namespace ombrix::c {

/// Observes a property of an object for a C caller; NULL for an observer that is NULL.
template <class Object>
OmbrixObservation* observe(Object& object, const char* keyPath, OmbrixObserver observer,
                           void* context) {
  if (observer == nullptr) return nullptr;
  return catching(nullptr, [&] {
    return new OmbrixObservation{object.observe(
        textFrom(keyPath), platform::KeyValueObservingOptions::prior,
        [observer, context, name = std::string(textFrom(keyPath))](const auto& change) {
          observer(name.c_str(), change.isPrior, context);
        })};
  });
}

}  // namespace ombrix::c
