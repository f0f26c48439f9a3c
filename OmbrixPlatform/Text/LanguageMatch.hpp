#pragma once

#include <optional>
#include <span>
#include <string>

namespace ombrix::platform {

/// The available language that suits the reader best. Any thread.
///
/// The first preferred language with a match wins. A match has the same tag, otherwise the same
/// language and script: first of the same region, then without a region, then of another one. So
/// "en-GB" matches "en", and "zh-TW" never matches "zh", which uses another script.
/// @param preferred Language tags, the best one first.
/// @param available Tags or identifiers as the caller writes them ("pt-BR", "pt_BR").
/// @return One of `available` as written there; empty when no preferred language has a match.
std::optional<std::string> bestLanguage(std::span<const std::string> preferred,
                                        std::span<const std::string> available);

}  // namespace ombrix::platform
