#pragma once

#include <cstdint>

#include "OmbrixPlatform/Coding/PropertyList.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// Bytes that are not a property list, or a value that cannot be written as one; `what()` says why.
class PropertyListError : public Error {
 public:
  using Error::Error;
};

/// A list whose value would take far more memory than its bytes account for, for instance by many
/// references to one object; it need not be damaged.
class PropertyListSizeError : public PropertyListError {
 public:
  using PropertyListError::PropertyListError;
};

/// The deepest nesting of containers, in files read and in values written.
inline constexpr int kMaxPropertyListDepth = 512;

enum class PropertyListFormat { binary, xml };

/// Reads and writes whole property lists. Stateless; any thread.
class PropertyListSerialization {
 public:
  /// Reads a property list in the binary or the XML form, as its first bytes show.
  ///
  /// Of equal keys in one dictionary the last value stays. Throws `PropertyListError`, or
  /// `PropertyListSizeError`, which is one; no bytes,
  /// however damaged, make it read out of bounds, recurse without bound or use memory out of
  /// proportion to their number.
  static PropertyList read(DataView bytes);

  /// Writes a property list. Throws `PropertyListError` for a value nested too deep, for text that
  /// is not UTF-8, and in XML for values that the form cannot express (a date that is not finite, a
  /// control character).
  static Data write(const PropertyList& value,
                    PropertyListFormat format = PropertyListFormat::binary);
};

}  // namespace ombrix::platform
