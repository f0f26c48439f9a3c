#include "OmbrixCore/Extensions/Search/Math.hpp"

namespace ombrix {

double Math::caloriesBurnedForUserWithWeight(double weight, double overTime) {
  constexpr double kKilogramsPerPound = 0.45359237;
  const double pounds = weight / kKilogramsPerPound;
  // Kept: a light enough weight gives a negative estimate. A floor would bend the line that sums of
  // estimates rely on.
  return (pounds * 3.411 - 41.178) * (overTime / 60 / 60);
}

}  // namespace ombrix
