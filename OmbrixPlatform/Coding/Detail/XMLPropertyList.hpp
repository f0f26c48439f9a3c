#pragma once

#include "OmbrixPlatform/Coding/PropertyList.hpp"

namespace ombrix::platform::detail {

/// Both throw `PropertyListError`; see `PropertyListSerialization`.
PropertyList readXMLPropertyList(DataView bytes);
Data writeXMLPropertyList(const PropertyList& value);

}  // namespace ombrix::platform::detail
