#pragma once

#include <source_location>
#include <string_view>
#include <utility>

namespace ombrix::platform {

/// Stops the program with the text of the current exception; for catch clauses.
///
/// @param source What threw although it must not, with its article: "a job".
[[noreturn]] void fatalException(
    std::string_view source,
    std::source_location location = std::source_location::current()) noexcept;

/// Calls a closure that must not throw and returns its result; an exception that leaves it stops
/// the program with its text, after the log was flushed.
///
/// @param source What the closure is, with its article: "a job".
template <class Closure>
decltype(auto) callOut(std::string_view source, Closure&& closure) noexcept {
  try {
    return std::forward<Closure>(closure)();
  } catch (...) {
    fatalException(source);
  }
}

}  // namespace ombrix::platform
