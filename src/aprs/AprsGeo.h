#pragma once

namespace zl::aprs {

// Great-circle distance in km and initial bearing in degrees (0 = north, clockwise) from the
// first point to the second, on a sphere of the Earth's mean radius.
double distanceKm(double fromLat, double fromLon, double toLat, double toLon);
double bearingDeg(double fromLat, double fromLon, double toLat, double toLon);

} // namespace zl::aprs
