#include "OmbrixCore/Location/CLLocationCodableWrapper.hpp"

#include "OmbrixPlatform/Coding/Decoder.hpp"
#include "OmbrixPlatform/Coding/Encoder.hpp"

namespace ombrix {

void CLLocationCodableWrapper::encode(platform::Encoder& encoder) const {
  auto container = encoder.container<CodingKeys>();
  container.encode(location_.coordinate, CodingKeys::cordinate);
  container.encode(location_.altitude, CodingKeys::altitude);
  container.encode(location_.horizontalAccuracy, CodingKeys::horizontalAccuracy);
  container.encode(location_.verticalAccuracy, CodingKeys::verticalAccuracy);
  container.encode(location_.speed, CodingKeys::speed);
  container.encode(location_.course, CodingKeys::course);
  container.encode(location_.timestamp, CodingKeys::timestamp);
}

CLLocationCodableWrapper CLLocationCodableWrapper::decode(platform::Decoder& decoder) {
  const auto container = decoder.container<CodingKeys>();
  CLLocation location;
  location.coordinate = container.decode<CLLocationCoordinate2D>(CodingKeys::cordinate);
  location.altitude = container.decode<double>(CodingKeys::altitude);
  location.horizontalAccuracy = container.decode<double>(CodingKeys::horizontalAccuracy);
  location.verticalAccuracy = container.decode<double>(CodingKeys::verticalAccuracy);
  location.speed = container.decode<double>(CodingKeys::speed);
  location.course = container.decode<double>(CodingKeys::course);
  location.timestamp = container.decode<platform::Date>(CodingKeys::timestamp);
  return CLLocationCodableWrapper(location);
}

}  // namespace ombrix
