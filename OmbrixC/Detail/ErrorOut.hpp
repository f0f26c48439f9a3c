#pragma once

#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "OmbrixC/Detail/Handle.hpp"
#include "OmbrixC/OmbrixError.h"

struct OmbrixError {
  std::string message;
  std::exception_ptr exception;  // null where there was none
};

namespace ombrix::c {

/// @param message Of the exception that is being handled, if any.
inline void setError(OmbrixError** error, std::string message) {
  if (error == nullptr) return;
  *error = counted(new OmbrixError{std::move(message), std::current_exception()});
}

/// Runs an operation for a C caller: an exception becomes `*error` and the result's empty value
/// (false, 0 or NULL).
template <class Operation>
auto catching(OmbrixError** error, Operation&& operation) noexcept
    -> std::invoke_result_t<Operation> {
  using Result = std::invoke_result_t<Operation>;
  if (error != nullptr) *error = nullptr;
  try {
    return std::forward<Operation>(operation)();
  } catch (const std::exception& exception) {
    setError(error, exception.what());
  } catch (...) {
    setError(error, "An unknown error occurred.");
  }
  return Result();
}

/// Begins work that hands its result to a C caller later. If it cannot begin, the caller gets the
/// result's empty value here.
template <class Result, class Operation>
void completing(void (*completion)(Result, void*), void* context, Operation&& begin) noexcept {
  OmbrixError* error = nullptr;
  catching(&error, std::forward<Operation>(begin));
  if (error == nullptr) return;
  ombrix_Error_release(error);
  completion(Result(), context);
}

}  // namespace ombrix::c
