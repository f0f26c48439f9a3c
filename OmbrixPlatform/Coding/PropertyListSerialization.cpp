#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

#include "OmbrixPlatform/Coding/Detail/XMLPropertyList.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListReader.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform {
PropertyList PropertyListSerialization::read(DataView bytes) {
  if (BinaryPropertyListView::matches(bytes)) {
    return BinaryPropertyListReader(bytes).readPropertyList();
  }
  return detail::readXMLPropertyList(bytes);
}

Data PropertyListSerialization::write(const PropertyList& value, PropertyListFormat format) {
  if (format == PropertyListFormat::xml) return detail::writeXMLPropertyList(value);
  try {
    return BinaryPropertyListWriter::fileBy(
        nullptr, [&value](BinaryPropertyListWriter& writer) { writer.propertyList(value); });
  } catch (const EncodingError& error) {
    throw PropertyListError(std::string("cannot write the property list: ") + error.what());
  }
}

}  // namespace ombrix::platform
