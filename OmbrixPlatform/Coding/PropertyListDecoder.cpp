#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"

#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"

namespace ombrix::platform {

std::shared_ptr<Decoder> PropertyListDecoder::treeDecoder(PropertyList value) const {
  return detail::makeTreeDecoder<detail::PropertyListTree>(std::move(value), {userInfo}, {});
}

DecodingError PropertyListDecoder::corrupted(const PropertyListError& error) {
  return DecodingError::dataCorrupted(std::string("The data cannot be read: ") + error.what(), {});
}

}  // namespace ombrix::platform
