#include "OmbrixPlatform/Health/HKQuantity.hpp"

#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {

double HKQuantity::doubleValue(HKUnit unit) const {
  if (unit == unit_) return value_;
  if (!isCompatible(unit)) {
    fatalError("A quantity in " + unit_.unitString() + " cannot be given in " + unit.unitString());
  }
  return value_ * unit_.factor() / unit.factor();
}

}  // namespace ombrix::platform
