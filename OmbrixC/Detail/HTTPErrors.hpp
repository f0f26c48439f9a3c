#pragma once

#include <optional>

#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Networking/Errors/HTTPError.hpp"

namespace ombrix::c {

/// The failure of a request that a C caller holds; empty for another error, and for NULL.
std::optional<HTTPError> httpErrorOf(const OmbrixError* error) noexcept;

/// Its status or pseudo-code; 0 if no request led to it.
int statusOf(const HTTPError& error) noexcept;

}  // namespace ombrix::c
