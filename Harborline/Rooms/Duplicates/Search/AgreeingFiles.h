#pragma once

#include <cstdint>
#include <vector>

namespace tidyro {

/// A file of the listing and a number that its copies share.
struct SampledFile {
    std::uint64_t hash;
    std::uint32_t file;
};

/// The files whose number another one has as well, ascending by their places in the listing.
[[nodiscard]] std::vector<std::uint32_t> agreeingFiles(std::vector<SampledFile> files);

} // namespace tidyro
