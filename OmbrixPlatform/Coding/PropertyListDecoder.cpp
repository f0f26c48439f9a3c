#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"

#include "OmbrixPlatform/Coding/Detail/PropertyListTree.hpp"

namespace ombrix::platform {

namespace {

/// How many bytes a list takes in a file, at least.
std::uint64_t sizeOf(const PropertyList& value) {
  std::uint64_t size = 2;
  if (const auto* text = value.text()) return size + text->size();
  if (const auto* data = value.data()) return size + data->size();
  if (const auto* items = value.array()) {
    for (const PropertyList& item : *items) size += sizeOf(item);
  } else if (const auto* entries = value.dictionary()) {
    for (const auto& [name, item] : *entries) size += name.size() + sizeOf(item);
  }
  return size;
}

}  // namespace

std::shared_ptr<Decoder> PropertyListDecoder::treeDecoder(PropertyList value) const {
  using Tree = detail::PropertyListTree;
  const BinaryPropertyListView::Allowance allowance(sizeOf(value), 0);
  const auto document =
      std::make_shared<const Tree::Document>(Tree::Document{std::move(value), userInfo, allowance});
  return detail::makeTreeDecoder<Tree>(document, &document->root, {});
}

DecodingError PropertyListDecoder::corrupted(const PropertyListError& error) {
  return DecodingError::dataCorrupted(std::string("The data cannot be read: ") + error.what(), {});
}

}  // namespace ombrix::platform
