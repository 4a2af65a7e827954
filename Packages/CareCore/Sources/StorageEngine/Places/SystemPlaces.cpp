#include "StorageEngine/Places/SystemPlaces.h"

#include <algorithm>
#include <array>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// A cleanup by rules leaves these alone.
constexpr std::array<std::string_view, 4> fromRules{"/System", "/Library", "/Applications",
                                                    "/Users/Shared"};

/// Further places beside those that a cleanup by rules leaves alone. /opt, /srv, /tmp and /var/tmp
/// are missing because people have folders of their own there.
constexpr std::array<std::string_view, 30> further{"/bin",
                                                   "/boot",
                                                   "/cores",
                                                   "/dev",
                                                   "/efi",
                                                   "/etc",
                                                   "/lib",
                                                   "/lib32",
                                                   "/lib64",
                                                   "/libx32",
                                                   "/lost+found",
                                                   "/nix",
                                                   "/proc",
                                                   "/root",
                                                   "/run",
                                                   "/sbin",
                                                   "/snap",
                                                   "/sys",
                                                   "/usr",
                                                   "/var/cache",
                                                   "/var/db",
                                                   "/var/lib",
                                                   "/var/log",
                                                   "/var/mail",
                                                   "/var/root",
                                                   "/var/spool",
                                                   "/private/etc",
                                                   "/private/var/db",
                                                   "/private/var/log",
                                                   "/private/var/root"};

/// Only systems put anything directly into these; people's items lie further down ("/var/tmp/ada").
constexpr std::array<std::string_view, 4> tops{"/", "/var", "/private", "/private/var"};

/// Where disks of people appear, in the midst of a place of the system.
constexpr std::string_view disksOfPeople = "/run/media/";

bool isInsideOrEqualToAny(std::string_view path, std::span<const std::string> paths) {
    return std::ranges::any_of(
        paths, [&](const std::string& one) { return path::isInsideOrEqual(path, one); });
}

} // namespace

std::span<const std::string_view> SystemPlaces::protectedFromRules() { return fromRules; }

std::vector<std::string> SystemPlaces::paths() {
    std::vector<std::string> all(fromRules.begin(), fromRules.end());
    all.insert(all.end(), further.begin(), further.end());
    return all;
}

SystemPlaces::SystemPlaces(std::span<const std::string> homes)
    : homes_(homes.begin(), homes.end()) {
    for (const std::string& place : paths()) places_.push_back(folded(place));
    std::vector<std::string> apart;
    std::vector<std::string> around;
    for (const std::string& place : places_) {
        (path::isOrHoldsAny(place, homes_) ? around : apart).push_back(place);
    }
    index_ = RootPathIndex(apart);
    aroundHomes_ = RootPathIndex(around);
}

bool SystemPlaces::isTouchedBy(std::string_view path) const {
    if (path.starts_with(disksOfPeople)) return false;
    if (index_.contains(path) || path::isOrHoldsAny(path, places_)) return true;
    if (isInsideOrEqualToAny(path, homes_)) return false;
    return aroundHomes_.contains(path) || std::ranges::find(tops, path::parent(path)) != tops.end();
}

} // namespace tidyro
