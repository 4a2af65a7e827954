#include "Platform/Linux/Files/FileExtents.h"

#include <array>
#include <cstddef>
#include <limits>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tidyro::platform {

namespace {

/// Room for the question and one extent of the answer.
struct FirstExtent {
    alignas(fiemap) std::array<std::byte, sizeof(fiemap) + sizeof(fiemap_extent)> bytes{};

    fiemap& request() { return *reinterpret_cast<fiemap*>(bytes.data()); }
};

std::uint64_t mixed(std::uint64_t value) {
    value ^= value >> 32;
    value *= 0x9E3779B97F4A7C15U;
    return value ^ value >> 29;
}

} // namespace

std::uint64_t sharedExtentFamily(int folder, const char* name, std::uint64_t size) {
    const int file =
        ::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (file < 0) return 0;
    FirstExtent answer;
    fiemap& request = answer.request();
    request.fm_length = std::numeric_limits<std::uint64_t>::max();
    request.fm_extent_count = 1;
    const bool answered = ::ioctl(file, FS_IOC_FIEMAP, &request) == 0;
    ::close(file);
    if (!answered || request.fm_mapped_extents < 1) return 0;
    const fiemap_extent& extent = request.fm_extents[0];
    constexpr std::uint32_t unsettled =
        FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC | FIEMAP_EXTENT_DATA_INLINE;
    if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) == 0 || (extent.fe_flags & unsettled) != 0) {
        return 0;
    }
    const std::uint64_t family = mixed(extent.fe_physical) ^ mixed(mixed(size) + 1);
    return family == 0 ? 1 : family;
}

} // namespace tidyro::platform
