#pragma once

#include <optional>
#include <span>
#include <string>

namespace ombrix::platform {

/// The available language that suits the reader best. Any thread.
///
/// The first preferred language that has a match wins. It is matched by the same tag, else by the
/// same language in the same script: of the same region, without a region, of another one, in this
/// order. So "en-GB" takes "en", and "zh-TW" never takes "zh", which is in another script.
/// @param preferred Language tags, the best one first.
/// @param available Tags or identifiers as the caller writes them ("pt-BR", "pt_BR").
/// @return One of `available` as it is written; nothing when no preferred language has a match.
std::optional<std::string> bestLanguage(std::span<const std::string> preferred,
                                        std::span<const std::string> available);

}  // namespace ombrix::platform
