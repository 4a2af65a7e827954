#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Base/FileURL.h"
#include "Base/LoweredPath.h"

namespace tidyro {

/// Why a file is taken for data in use.
enum class LiveDataSignal : std::uint8_t {
    database,
    writeAheadLog,
    activeGrowth, ///< seen by comparing two looks, never told from a name
};

/// One or two sentences for people.
[[nodiscard]] std::string_view explanation(LiveDataSignal signal);

/// Tells live databases by their names: removing one loses what its owner stored in it.
struct LiveDataDetector {
    [[nodiscard]] static std::optional<LiveDataSignal> signal(const FileURL& url);
    /// The same for a standardised path that is lower-cased already.
    [[nodiscard]] static std::optional<LiveDataSignal> signal(const LoweredPath& path);
};

} // namespace tidyro
