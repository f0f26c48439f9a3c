#include "OmbrixC/OmbrixError.h"

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/HTTPErrors.hpp"

using ombrix::HTTPError;
using ombrix::c::httpErrorOf;

namespace ombrix::c {

std::optional<HTTPError> httpErrorOf(const OmbrixError* error) noexcept {
  if (error == nullptr || error->exception == nullptr) return std::nullopt;
  try {
    std::rethrow_exception(error->exception);
  } catch (const HTTPError& known) {
    return known;
  } catch (...) {
    return std::nullopt;
  }
}

int statusOf(const HTTPError& error) noexcept {
  if (error.cause() != nullptr) return error.cause()->code;
  return error.kind() == HTTPError::Case::badRequestError ? 400 : 0;
}

}  // namespace ombrix::c

const char* ombrix_Error_message(const OmbrixError* error) {
  return error == nullptr ? "" : error->message.c_str();
}

const char* ombrix_Error_httpCase(const OmbrixError* error) {
  const auto known = httpErrorOf(error);
  return known ? ombrix::caseName(known->kind()).data() : nullptr;
}

int ombrix_Error_httpStatus(const OmbrixError* error) {
  const auto known = httpErrorOf(error);
  return known ? ombrix::c::statusOf(*known) : 0;
}

OmbrixData ombrix_Error_httpBody(const OmbrixError* error) {
  return ombrix::c::catching(nullptr, [&] {
    const auto known = httpErrorOf(error);
    const bool hasAnswer = known && known->cause() && known->cause()->response;
    if (!hasAnswer) return OmbrixData{};
    return ombrix::c::copied(std::optional(known->cause()->body.bytes()));
  });
}

void ombrix_Error_release(OmbrixError* error) { delete ombrix::c::uncounted(error); }
