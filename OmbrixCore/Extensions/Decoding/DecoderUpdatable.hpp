#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "OmbrixCore/Extensions/Decoding/NestedDecoder.hpp"

namespace ombrix {

/// A type whose values update themselves from a decoder instead of being replaced.
template <class T>
concept DecoderUpdatable =
    requires(T& value, platform::Decoder& decoder) { value.update(decoder); };

/// Lets a value update itself from the entry under a key; its decoder carries the user info.
///
/// Exceptions of the value and of the container pass through unchanged, such as key not found.
// Kept: a failure half-way leaves the fields read before it at their new values; putting the old
// ones back would need a copy of every value.
template <platform::CodingKeyType Key, DecoderUpdatable T>
void update(const platform::KeyedDecodingContainer<Key>& container, T& value,
            const std::type_identity_t<Key>& key, platform::CodingUserInfo userInfo = {}) {
  value.update(*std::make_shared<NestedDecoder<Key>>(container, key, std::move(userInfo)));
}

}  // namespace ombrix
