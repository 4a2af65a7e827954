#include "Platform/Mounts/Volumes.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <sys/attr.h>
#include <sys/mount.h>
#include <unistd.h>

#include "Base/UUID.h"
#include "Base/UnicodeText.h"

namespace tidyro::platform {

namespace {

/// "/dev/disk3s5" lies on "/dev/disk3", and so does "/dev/disk3s1s1".
std::string_view wholeDisk(std::string_view device) {
    constexpr std::string_view beginning = "/dev/disk";
    if (!device.starts_with(beginning)) return {};
    const std::size_t end = device.find_first_not_of("0123456789", beginning.size());
    return end == beginning.size() ? std::string_view() : device.substr(0, end);
}

std::string uuidOf(const char* mountPath) {
    struct Answer {
        std::uint32_t length;
        std::array<std::uint8_t, 16> uuid;
    };
    attrlist wanted{};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.volattr = ATTR_VOL_INFO | ATTR_VOL_UUID;
    Answer answer{};
    if (::getattrlist(mountPath, &wanted, &answer, sizeof(answer), 0) != 0 ||
        answer.length < sizeof(answer) || UUID(answer.uuid) == UUID()) {
        return {};
    }
    return lowercased(UUID(answer.uuid).text());
}

std::expected<std::vector<struct statfs>, SystemError> mountList() {
    // Something may be mounted between the two calls: a list that came back full is asked for
    // again. MNT_NOWAIT: a server that is gone must not hold up the answer.
    for (std::size_t room = 64;; room *= 2) {
        std::vector<struct statfs> list(room);
        const int got =
            ::getfsstat(list.data(), static_cast<int>(room * sizeof(list[0])), MNT_NOWAIT);
        if (got < 0) return std::unexpected(SystemError{errno});
        if (got == 0) return std::unexpected(SystemError{ENODATA});
        if (static_cast<std::size_t>(got) == room) continue;
        list.resize(static_cast<std::size_t>(got));
        return list;
    }
}

} // namespace

// The flags of a volume tell a removable disk and a server. A disk on USB and a mounted image have
// none of their own, and those who know them want the frameworks; so internal is what lies on the
// disk that the system runs from, which leaves out a second disk inside the machine.
std::expected<std::vector<Volume>, SystemError> LiveVolumes::mounted() const {
    const auto list = mountList();
    if (!list) return std::unexpected(list.error());
    std::string_view systemDisk;
    for (const struct statfs& mount : *list) {
        if (std::string_view(mount.f_mntonname) == "/") systemDisk = wholeDisk(mount.f_mntfromname);
    }
    std::vector<Volume> volumes;
    for (const struct statfs& mount : *list) {
        const std::uint32_t device = static_cast<std::uint32_t>(mount.f_fsid.val[0]);
        const std::string_view disk = wholeDisk(mount.f_mntfromname);
        const bool isInternal = (mount.f_flags & MNT_LOCAL) != 0 &&
                                (mount.f_flags & MNT_REMOVABLE) == 0 && !disk.empty() &&
                                disk == systemDisk;
        std::string identifier = isInternal ? uuidOf(mount.f_mntonname) : std::string();
        if (identifier.empty()) identifier = std::to_string(device) + ":" + mount.f_fstypename;
        // The volumes of an APFS container are pieces of one disk that the system makes up.
        const bool isAPFS = std::string_view(mount.f_fstypename) == "apfs";
        std::string space(isAPFS ? disk : std::string_view(mount.f_mntfromname));
        if ((mount.f_flags & MNT_LOCAL) == 0 || disk.empty()) space.clear();
        volumes.push_back({.mountPath = mount.f_mntonname,
                           .mount = device,
                           .device = device,
                           .identifier = std::move(identifier),
                           .fileSystem = mount.f_fstypename,
                           .isInternalLocal = isInternal,
                           .spaceIdentifier = std::move(space)});
    }
    tellApart(volumes);
    return volumes;
}

} // namespace tidyro::platform
