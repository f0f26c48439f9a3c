#ifndef OMBRIXC_OMBRIX_MATH_H
#define OMBRIXC_OMBRIX_MATH_H

#ifdef __cplusplus
extern "C" {
#endif

/// Kilocalories burned by a skier of `weight` kilograms in `time` seconds; not clamped at zero.
double ombrix_Math_caloriesBurnedForUserWithWeight_overTime_(double weight, double time);

#ifdef __cplusplus
}
#endif

#endif
