#ifdef __linux__

#include "Platform/Linux/Mounts/PathAliases.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tidyro::platform {
namespace {

using Paths = std::vector<std::string>;

PathAliases aliases(const char* theirs, const char* ours) {
    const auto their = parsedMountTable(theirs);
    const auto our = parsedMountTable(ours);
    EXPECT_TRUE(their && our);
    return {*their, *our};
}

Paths others(const PathAliases& aliases, const char* path) {
    Paths paths;
    aliases.appendOthers(path, paths);
    std::ranges::sort(paths);
    return paths;
}

TEST(PathAliases, TurnAContainersPathsIntoOurs) {
    const char* ours = "1 0 8:1 / / rw - ext4 a rw\n"
                       "2 1 8:2 / /home rw - ext4 b rw\n"
                       "3 1 0:9 / /tmp rw - tmpfs c rw\n"
                       "4 1 8:2 /me/films /srv/films rw - ext4 b rw\n";
    const PathAliases container = aliases("10 0 0:40 / / rw - overlay o rw\n"
                                          "11 10 8:2 /me/data /data rw - ext4 b rw\n"
                                          "12 10 8:2 /me/notes\\040.txt /n rw - ext4 b rw\n"
                                          "13 10 8:2 / /host rw - ext4 b rw\n"
                                          "14 10 0:50 / /tmp rw - tmpfs c rw\n",
                                          ours);
    const struct {
        const char* path;
        Paths here;
    } cases[] = {
        {"/data/x/y", {"/home/me/data/x/y"}},
        {"/data", {"/home/me/data"}},
        {"/database", {}},
        {"/n", {"/home/me/notes .txt"}},
        {"/host/me/films/a", {"/home/me/films/a", "/srv/films/a"}},
        {"/host", {"/home"}},
        {"/tmp/of-its-own", {}},
        {"/etc/passwd", {}},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(others(container, one.path), one.here) << one.path;
    }
    // With the same mounts, paths have no other names but those that they have here as well.
    EXPECT_EQ(others(aliases(ours, ours), "/srv/films/a"), Paths{"/home/me/films/a"});
    EXPECT_EQ(others(aliases(ours, ours), "/home/me/films/a"), Paths{"/srv/films/a"});
    EXPECT_EQ(others(aliases(ours, ours), "/tmp/a"), Paths{});
}

TEST(PathAliases, FollowSubvolumesAndHiddenMounts) {
    const char* ours = "1 0 0:30 /@ / rw - btrfs a rw\n"
                       "2 1 0:30 /@home /home rw - btrfs a rw\n"
                       "3 1 0:30 / /pool rw - btrfs a rw\n";
    const PathAliases same = aliases(ours, ours);
    // By way of "/" as well: "/home" may have been mounted over a file that is still held.
    EXPECT_EQ(others(same, "/home/me/a"), (Paths{"/pool/@/home/me/a", "/pool/@home/me/a"}));
    EXPECT_EQ(others(same, "/pool/@home/me/a"), (Paths{"/home/me/a", "/pool/@/pool/@home/me/a"}));

    // The later mount hides the folder that the earlier one is in; either may be meant.
    const PathAliases stacked = aliases("1 0 8:1 / / rw - ext4 a rw\n"
                                        "2 1 8:2 /one /a/b rw - ext4 b rw\n"
                                        "3 1 8:2 /two /a rw - ext4 b rw\n",
                                        "1 0 8:2 / / rw - ext4 b rw\n");
    EXPECT_EQ(others(stacked, "/a/b/x"), (Paths{"/one/x", "/two/b/x"}));
}

} // namespace
} // namespace tidyro::platform

#endif
