#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"

#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"

namespace ombrix::platform {

std::shared_ptr<Decoder> PropertyListDecoder::treeDecoder(PropertyList value) const {
  using Tree = detail::PropertyListTree;
  const auto document =
      std::make_shared<const Tree::Document>(Tree::Document{std::move(value), userInfo});
  return detail::makeTreeDecoder<Tree>(document, &document->root, {});
}

DecodingError PropertyListDecoder::corrupted(const PropertyListError& error) {
  return DecodingError::dataCorrupted(std::string("The data cannot be read: ") + error.what(), {});
}

}  // namespace ombrix::platform
