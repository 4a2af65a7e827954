#include "StorageEngine/Rules/CleanupAgeFloor.h"

#include <algorithm>
#include <array>

namespace tidyro {

namespace {

struct Facts {
    double interval; ///< seconds
    std::string_view title;
    std::string_view detail;
};

/// In the order of the cases.
constexpr std::array<Facts, 5> facts{
    {{0, "Everything",
      "No age requirement. Offers a cache, log or temporary file however recently it was written, "
      "including one a running build is still using. Everything still goes to the Trash."},
     {0, "Recommended",
      "Each location's own age. Gradle caches at 30 days, wrapper downloads at 60, JDKs at 90, "
      "build logs at 14."},
     {7'776'000, "90 days",
      "Nothing touched in the last 90 days. Skips recent build caches that a shipped rule would "
      "have offered."},
     {15'724'800, "6 months",
      "Nothing touched in the last 6 months. Roughly a semester of work stays untouched."},
     {31'536'000, "1 year",
      "Nothing touched in the last year. The most cautious setting, and the one that finds "
      "least."}}};

const Facts& factsOf(CleanupAgeFloor floor) { return facts[static_cast<std::size_t>(floor)]; }

} // namespace

double interval(CleanupAgeFloor floor) { return factsOf(floor).interval; }

double applied(CleanupAgeFloor floor, double minimumAge) {
    switch (floor) {
    case CleanupAgeFloor::everything: return 0;
    case CleanupAgeFloor::recommended: return std::max(minimumAge, 0.0);
    default: return std::max(minimumAge, interval(floor));
    }
}

std::string_view title(CleanupAgeFloor floor) { return factsOf(floor).title; }

std::string_view detailText(CleanupAgeFloor floor) { return factsOf(floor).detail; }

} // namespace tidyro
