#pragma once

#include <memory>
#include <optional>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/Networking/OmbrixAPIHttpRequestOperation.h"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"

struct OmbrixAPIHttpRequestOperation {
  std::shared_ptr<ombrix::OmbrixAPIHttpRequestOperation> operation;
  ombrix::c::Handle handle = {};
};

namespace ombrix::c {

/// The method that a C caller names; empty for a text that names none.
inline std::optional<OmbrixServerAPI::HTTPMethod> methodFrom(const char* method) {
  return platform::fromRawValue<OmbrixServerAPI::HTTPMethod>(textFrom(method));
}

inline OmbrixServerAPI::Payload from(OmbrixPayload payload) {
  if (payload.bytes == nullptr) return std::nullopt;
  const auto bytes = std::as_bytes(std::span(payload.bytes, payload.length));
  return HTTPPayload(platform::Data(bytes.begin(), bytes.end()));
}

inline const std::uint8_t* bytesFrom(platform::DataView data) noexcept {
  // An empty body differs from a missing one.
  static constexpr std::uint8_t kNothing = 0;
  return data.empty() ? &kNothing : reinterpret_cast<const std::uint8_t*>(data.data());
}

}  // namespace ombrix::c
