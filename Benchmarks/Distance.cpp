// Distance of two fixes: ours in pairs and walking, beside the reference and two textbook formulas.

#include <benchmark/benchmark.h>

#include <GeographicLib/Geodesic.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <random>
#include <vector>

#include "OmbrixPlatform/Location/Geodesic.hpp"

namespace {

using ombrix::platform::GeodesicPoint;

constexpr double kRadiansPerDegree = std::numbers::pi / 180;
constexpr double kEquatorialRadius = 6'378'137.0;
constexpr double kFlattening = 1 / 298.257223563;
constexpr double kPolarRadius = kEquatorialRadius * (1 - kFlattening);

double geographicLib(GeodesicPoint from, GeodesicPoint to) {
  double metres = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(from.latitude, from.longitude, to.latitude, to.longitude,
                                           metres);
  return metres;
}

double haversine(GeodesicPoint from, GeodesicPoint to) {
  const double north = std::sin((to.latitude - from.latitude) * kRadiansPerDegree / 2);
  const double east = std::sin((to.longitude - from.longitude) * kRadiansPerDegree / 2);
  const double share = north * north + std::cos(from.latitude * kRadiansPerDegree) *
                                           std::cos(to.latitude * kRadiansPerDegree) * east * east;
  return 2 * 6'371'008.8 * std::asin(std::sqrt(share));
}

// T. Vincenty, Direct and inverse solutions of geodesics on the ellipsoid, Survey Review 176
// (1975).
double vincenty(GeodesicPoint from, GeodesicPoint to) {
  const double turn = (to.longitude - from.longitude) * kRadiansPerDegree;
  const double u1 = std::atan((1 - kFlattening) * std::tan(from.latitude * kRadiansPerDegree));
  const double u2 = std::atan((1 - kFlattening) * std::tan(to.latitude * kRadiansPerDegree));
  const double s1 = std::sin(u1), c1 = std::cos(u1), s2 = std::sin(u2), c2 = std::cos(u2);
  double lambda = turn;
  for (int round = 0; round < 100; ++round) {
    const double sl = std::sin(lambda), cl = std::cos(lambda);
    const double ss = std::hypot(c2 * sl, c1 * s2 - s1 * c2 * cl);
    if (ss == 0) return 0;
    const double cs = s1 * s2 + c1 * c2 * cl;
    const double sigma = std::atan2(ss, cs);
    const double sa = c1 * c2 * sl / ss;
    const double ca2 = 1 - sa * sa;
    const double cm = ca2 > 0 ? cs - 2 * s1 * s2 / ca2 : 0;
    const double c = kFlattening / 16 * ca2 * (4 + kFlattening * (4 - 3 * ca2));
    const double next =
        turn + (1 - c) * kFlattening * sa * (sigma + c * ss * (cm + c * cs * (2 * cm * cm - 1)));
    const double change = std::fabs(next - lambda);
    lambda = next;
    if (change > 1e-12) continue;
    const double k2 = ca2 * (kEquatorialRadius * kEquatorialRadius - kPolarRadius * kPolarRadius) /
                      (kPolarRadius * kPolarRadius);
    const double a = 1 + k2 / 16384 * (4096 + k2 * (-768 + k2 * (320 - 175 * k2)));
    const double b = k2 / 1024 * (256 + k2 * (-128 + k2 * (74 - 47 * k2)));
    const double ds =
        b * ss *
        (cm +
         b / 4 * (cs * (2 * cm * cm - 1) - b / 6 * cm * (4 * ss * ss - 3) * (4 * cm * cm - 3)));
    return kPolarRadius * a * (sigma - ds);
  }
  return NAN;
}

/// A day on a mountain: steps of up to some 10 m in turning directions.
const std::vector<GeodesicPoint>& track() {
  static const auto points = [] {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> step(-1e-4, 1e-4);
    std::vector<GeodesicPoint> made{{46.5, 9.8}};
    for (int count = 1; count < 4'096; ++count) {
      made.push_back({made.back().latitude + step(random), made.back().longitude + step(random)});
    }
    return made;
  }();
  return points;
}

/// Stops the benchmark when a contender does not give the distances that it is timed for.
void requireAgreement(double (*distance)(GeodesicPoint, GeodesicPoint), double allowed) {
  const auto& points = track();
  for (std::size_t i = 1; i < points.size(); ++i) {
    const double expected = geographicLib(points[i - 1], points[i]);
    const double error = std::fabs(distance(points[i - 1], points[i]) - expected);
    const double sphereError = distance == haversine ? 0.006 * expected : 0.0;
    if (!(error <= allowed + sphereError)) {
      std::fprintf(stderr, "a distance is %g m off\n", error);
      std::abort();
    }
  }
}

void pairs(benchmark::State& state, double (*distance)(GeodesicPoint, GeodesicPoint),
           double allowed) {
  requireAgreement(distance, allowed);
  const auto& points = track();
  for (auto _ : state) {
    double metres = 0.0;
    for (std::size_t i = 1; i < points.size(); ++i) metres += distance(points[i - 1], points[i]);
    benchmark::DoNotOptimize(metres);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size() - 1));
}

void walking(benchmark::State& state) {
  const auto& points = track();
  for (auto _ : state) {
    ombrix::platform::GeodesicWalk walk(points.front());
    double metres = 0.0;
    for (std::size_t i = 1; i < points.size(); ++i) metres += walk.to(points[i]);
    benchmark::DoNotOptimize(metres);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size() - 1));
}

BENCHMARK_CAPTURE(pairs, ours, ombrix::platform::geodesicDistance, 1e-8);
BENCHMARK(walking)->Name("walking/ours");
BENCHMARK_CAPTURE(pairs, GeographicLib, geographicLib, 0.0);
BENCHMARK_CAPTURE(pairs, Vincenty, vincenty, 1e-4);
BENCHMARK_CAPTURE(pairs, haversine, haversine, 1e-6);

}  // namespace
