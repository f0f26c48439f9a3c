#include "OmbrixC/OmbrixMath.h"

#include "OmbrixCore/Extensions/Search/Math.hpp"

double ombrix_Math_caloriesBurnedForUserWithWeight_overTime_(double weight, double time) {
  return ombrix::Math::caloriesBurnedForUserWithWeight(weight, time);
}
