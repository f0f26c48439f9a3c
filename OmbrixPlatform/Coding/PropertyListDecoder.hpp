#pragma once

#include <concepts>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListReader.hpp"

namespace ombrix::platform {

/// Decodes values from property lists, binary or XML. May be used by several threads at once as
/// long as nobody changes its user info.
class PropertyListDecoder {
 public:
  CodingUserInfo userInfo;

  /// A value of any type that can be coded, from a whole file. Throws `DecodingError`.
  template <class T>
  [[nodiscard]] T decode(DataView bytes) const {
    try {
      if (BinaryPropertyListView::matches(bytes)) return decodeBinary<T>(bytes);
      return decodeFrom<T>(*treeDecoder(PropertyListSerialization::read(bytes)));
    } catch (const PropertyListSizeError& error) {
      throw DecodingError::tooLarge(error.what(), {});
    } catch (const PropertyListError& error) {
      throw corrupted(error);
    }
  }

  /// The same from a value that is read already.
  template <class T, std::same_as<PropertyList> Tree>
  [[nodiscard]] T decode(Tree value) const {
    return decodeFrom<T>(*treeDecoder(std::move(value)));
  }

 private:
  template <class T>
  [[nodiscard]] T decodeBinary(DataView bytes) const {
    try {
      BinaryPropertyListReader reader(bytes, &userInfo);
      return detail::decodeNew<T>(reader);
    } catch (const PropertyListSizeError&) {
      throw;  // decoding it once more costs more
    } catch (const DecodingError& error) {
      if (error.kind() == DecodingError::Kind::tooLarge) throw;
    } catch (const Error&) {
      // As in `JSONDecoder`.
    }
    return decodeFrom<T>(*BinaryPropertyListReader(bytes, &userInfo).decoder());
  }

  [[nodiscard]] std::shared_ptr<Decoder> treeDecoder(PropertyList value) const;
  static DecodingError corrupted(const PropertyListError& error);
};

}  // namespace ombrix::platform
