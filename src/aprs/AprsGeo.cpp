#include "aprs/AprsGeo.h"

#include <cmath>
#include <numbers>

namespace zl::aprs {

namespace {

constexpr double kEarthRadiusKm = 6371.0088;

double radians(double degrees)
{
    return degrees * std::numbers::pi / 180.0;
}

} // namespace

double distanceKm(double fromLat, double fromLon, double toLat, double toLon)
{
    const double dLat = radians(toLat - fromLat);
    const double dLon = radians(toLon - fromLon);
    const double a = std::pow(std::sin(dLat / 2), 2) +
                     std::cos(radians(fromLat)) * std::cos(radians(toLat)) * std::pow(std::sin(dLon / 2), 2);
    return 2.0 * kEarthRadiusKm * std::asin(std::min(1.0, std::sqrt(a)));
}

double bearingDeg(double fromLat, double fromLon, double toLat, double toLon)
{
    const double phi1 = radians(fromLat);
    const double phi2 = radians(toLat);
    const double dLon = radians(toLon - fromLon);
    const double y = std::sin(dLon) * std::cos(phi2);
    const double x = std::cos(phi1) * std::sin(phi2) - std::sin(phi1) * std::cos(phi2) * std::cos(dLon);
    const double degrees = std::atan2(y, x) * 180.0 / std::numbers::pi;
    return std::fmod(degrees + 360.0, 360.0);
}

} // namespace zl::aprs
