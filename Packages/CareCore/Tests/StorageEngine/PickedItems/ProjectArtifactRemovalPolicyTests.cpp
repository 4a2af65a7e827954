#include "StorageEngine/PickedItems/ProjectArtifactRemovalPolicy.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/Testing/FakeRunningApplications.h"
#include "StorageEngine/PickedItems/ApplicationRemovalPolicy.h"
#include "StorageEngine/PickedItems/PickedItemsBench.h"
#include "StorageEngine/PickedItems/RepositoryIndex.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;

struct IndexOptions {
    unsigned version = 2;
    std::size_t hashLength = 20;
    std::string extensions = {};
    std::uint32_t mode = 0100644;
};

std::string bigEndian(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFFU);
    return bytes;
}

std::string extension(const char* name, std::string_view contents) {
    return name + bigEndian(static_cast<std::uint32_t>(contents.size())) + std::string(contents);
}

/// An index with these paths, which are in order.
std::string index(const std::vector<std::string>& paths, const IndexOptions& options = {}) {
    std::string bytes =
        "DIRC" + bigEndian(options.version) + bigEndian(static_cast<std::uint32_t>(paths.size()));
    std::string before;
    for (const std::string& path : paths) {
        const bool isExtended = options.version > 2;
        std::string entry(24, '\1');
        entry += bigEndian(options.mode) + std::string(12 + options.hashLength, '\1');
        const auto flags = static_cast<unsigned>(std::min<std::size_t>(path.size(), 0xFFF)) |
                           (isExtended ? 0x4000U : 0U);
        entry += {static_cast<char>(flags >> 8U), static_cast<char>(flags & 0xFFU)};
        if (isExtended) entry += std::string(2, '\0');
        if (options.version == 4) {
            std::size_t common = 0;
            while (common < std::min(path.size(), before.size()) &&
                   path[common] == before[common]) {
                ++common;
            }
            const std::size_t stripped = before.size() - common;
            if (stripped >= 128)
                entry += static_cast<char>(0x80U | (((stripped >> 7U) - 1) & 0x7FU));
            entry += static_cast<char>(stripped & 0x7FU);
            entry += path.substr(common) + '\0';
        } else {
            entry += path;
            entry += std::string(8 - entry.size() % 8, '\0');
        }
        bytes += entry;
        before = path;
    }
    return bytes + options.extensions + std::string(options.hashLength, '\2');
}

TEST(RepositoryIndex, TellsWhatIsListedInEachForm) {
    const std::vector<std::string> paths{"a/long/" + std::string(300, 'n'), "b", "build/x",
                                         "c/Build/y", "sub"};
    for (const unsigned version : {2U, 3U, 4U}) {
        for (const std::size_t hashLength : {20U, 32U}) {
            const std::string bytes =
                index(paths, {.version = version,
                              .hashLength = hashLength,
                              .extensions = extension("TREE", "cached") + extension("sdir", "")});
            const auto isListed = [&](std::string_view folder) {
                return RepositoryIndex::isListed(bytes, folder);
            };
            EXPECT_EQ(isListed("build"), true) << version << " " << hashLength;
            EXPECT_EQ(isListed("c/build"), true) << "of another case";
            EXPECT_EQ(isListed("sub"), true) << "a repository of its own";
            EXPECT_EQ(isListed("buil"), false);
            EXPECT_EQ(isListed("build/x/y"), false);
            EXPECT_EQ(isListed("other"), false);
            for (std::size_t length = 0; length < bytes.size(); ++length) {
                ASSERT_NE(RepositoryIndex::isListed(bytes.substr(0, length), "build"), false)
                    << "cut off at " << length;
            }
        }
    }
    const std::string sparse = index({"apps/one/"}, {.version = 3, .mode = 0040000});
    EXPECT_EQ(RepositoryIndex::isListed(sparse, "apps/one/build"), true) << "in a sparse folder";
    EXPECT_EQ(RepositoryIndex::isListed(sparse, "apps/two"), false);
    EXPECT_EQ(RepositoryIndex::isListed(index({}), "build"), false);
    for (const std::string& strange :
         {index({}, {.extensions = extension("link", std::string(20, '\3'))}),
          index({}, {.version = 5}), index({}) + "x", std::string("DIRX") + index({}).substr(4)}) {
        EXPECT_EQ(RepositoryIndex::isListed(strange, "build"), std::nullopt);
    }
}

struct ProjectBench : PickedItemsBench {
    ProjectBench() {
        place.file("opened/project/package.json");
        place.file("opened/project/node_modules/lib/x.js", "x");
        place.file("opened/project/dist/x.js", "x");
    }
    [[nodiscard]] std::string told(const char* name = "node_modules",
                                   double secondsLater = 3 * secondsOfDay,
                                   const char* project = "opened/project") const {
        ProjectArtifactRemovalPolicy policy({.home = home(),
                                             .openedFolders = {FileURL::folder(place / "opened")},
                                             .context = context(),
                                             .volumes = volumes});
        const auto entry =
            policy.planEntry({.artifact = {.workspaceURL = FileURL::folder(place / "opened"),
                                           .projectURL = FileURL::folder(place / project),
                                           .folderName = name},
                              .measuredBytes = 1,
                              .at = Timestamp::now().adding(secondsLater)});
        return entry ? "" : std::string(explanation(entry.error()));
    }
};

const std::string isTracked = "Some of this folder belongs to the project's history, so it was not "
                              "only generated.";
const std::string isUnknown = "This folder could not be checked before moving it.";

TEST(ProjectArtifactRemovalPolicy, TakesOnlyWhatAProjectGenerates) {
    const ProjectBench bench;
    EXPECT_EQ(bench.told(), "");
    EXPECT_EQ(bench.told("node_modules", 3'500), explanation(DiskItemRefusal::inUseLately));
    EXPECT_EQ(bench.told("node_modules", 3'700), "");
    const std::string notGenerated = bench.told("dist");
    EXPECT_EQ(notGenerated.substr(0, 15), "No project file");
    for (const char* name : {"", ".", "..", "../project/node_modules", "node_modules/lib"}) {
        EXPECT_EQ(bench.told(name).substr(0, 29), "This folder does not lie dire") << name;
    }
    EXPECT_EQ(bench.told("node_modules", 1e6, "home").substr(0, 20), "This folder does not");
    bench.place.file("opened/project/build", "a file of that name");
    EXPECT_EQ(bench.told("build"), notGenerated);
    bench.place.pipe("opened/project/node_modules/pipe");
    EXPECT_EQ(bench.told(), explanation(DiskItemRefusal::specialFileInside));
    fs::remove(bench.place / "opened/project/package.json");
    EXPECT_EQ(bench.told(), notGenerated);
}

TEST(ProjectArtifactRemovalPolicy, AsksEveryRepositoryAbove) {
    const ProjectBench bench;
    bench.place.file("opened/project/.git/HEAD", "ref: refs/heads/main");
    EXPECT_EQ(bench.told(), "") << "nothing was added yet";
    bench.place.file("opened/project/.git/index", index({"node_modules/lib/x.js"}));
    EXPECT_EQ(bench.told(), isTracked);
    bench.place.file("opened/project/.git/index", index({"package.json"}));
    EXPECT_EQ(bench.told(), "");
    bench.place.file("opened/project/.git/index", "DIRC");
    EXPECT_EQ(bench.told(), isUnknown);
    fs::remove_all(bench.place / "opened/project/.git");
    bench.place.file("opened/.git/index", index({"project/NODE_modules/x"}));
    EXPECT_EQ(bench.told(), isTracked) << "by the outer one";
    fs::remove_all(bench.place / "opened/.git");
    bench.place.file("opened/store/index", index({"node_modules/x"}));
    bench.place.file("opened/project/.git", "gitdir: ../store\n");
    EXPECT_EQ(bench.told(), isTracked) << "whose store lies elsewhere";
    bench.place.file("opened/project/.git", "gitdir: ../gone\n");
    EXPECT_EQ(bench.told(), isUnknown);
    fs::remove(bench.place / "opened/project/.git");
    bench.place.folder("opened/.hg");
    EXPECT_EQ(bench.told(), isUnknown);
}

/// What git itself writes, where it is installed.
TEST(ProjectArtifactRemovalPolicy, ReadsWhatGitWrites) {
    const ProjectBench bench;
    const std::string git = "git -C '" + (bench.place / "opened/project") + "' ";
    if (!testing::runQuietly("git --version")) GTEST_SKIP() << "needs git";
    for (const char* format : {"sha1", "sha256"}) {
        fs::remove_all(bench.place / "opened/project/.git");
        if (!testing::runQuietly(git + "init --object-format=" + format)) continue;
        ASSERT_TRUE(testing::runQuietly(git + "add package.json dist"));
        EXPECT_EQ(bench.told(), "") << format;
        for (const char* version : {"2", "4"}) {
            ASSERT_TRUE(testing::runQuietly(git + "update-index --index-version " + version));
            EXPECT_EQ(bench.told(), "") << version;
            ASSERT_TRUE(testing::runQuietly(git + "add -f node_modules/lib/x.js"));
            EXPECT_EQ(bench.told(), isTracked) << version;
            ASSERT_TRUE(testing::runQuietly(git + "rm --cached -q node_modules/lib/x.js"));
        }
        ASSERT_TRUE(testing::runQuietly(git + "update-index --split-index"));
        EXPECT_EQ(bench.told(), isUnknown) << "half of it lies in another file";
    }
}

TEST(ApplicationRemovalPolicy, TakesThePersonsOwnThatDoNotRun) {
    const PickedItemsBench bench;
    platform::testing::FakeRunningApplications applications;
    bench.place.file("home/Applications/Paint.app/Contents/Info.plist",
                     "<key>CFBundleIdentifier</key><string>org.paint</string>");
    bench.place.file("home/Applications/Empty.app/Contents/x");
    bench.place.file("home/Paint.app/Contents/Info.plist",
                     "<key>CFBundleIdentifier</key><string>org.paint</string>");
    bench.place.link("home/Applications/Link.app", "Paint.app");
    const auto told = [&](const char* name, std::optional<std::string> identifier = "org.paint",
                          OperatingSystem system = OperatingSystem::macOS) -> std::string {
        ApplicationRemovalPolicy policy({.home = bench.home(),
                                         .context = bench.context(),
                                         .volumes = bench.volumes,
                                         .applications = applications,
                                         .system = system});
        const auto entry = policy.planEntry({.bundle = FileURL::folder(bench.place / name),
                                             .bundleIdentifier = std::move(identifier),
                                             .measuredBytes = 1,
                                             .at = Timestamp::now()});
        if (!entry) return std::string(explanation(entry.error()));
        return entry->approvalRequirement == ApprovalRequirement::itemLevel &&
                       entry->authorization->isApplicationBundle()
                   ? ""
                   : "of another kind";
    };
    const auto runs = [&](const std::string& identifier, const std::string& executable) {
        applications.answer = std::vector<platform::RunningApplication>{
            {.bundleIdentifier = identifier, .executable = executable, .name = {}}};
    };
    const char* paint = "home/Applications/Paint.app";
    EXPECT_EQ(told(paint), "");
    EXPECT_EQ(told(paint, std::nullopt), "");
    const std::string otherwise = told(paint, "org.paint", OperatingSystem::linux_);
    EXPECT_EQ(otherwise, platform::systemText(SystemText::appIsInstalledOtherwise));
    EXPECT_EQ(told("home/Paint.app"), otherwise);
    EXPECT_EQ(told(paint, "org.other"),
              "The plan named a different application from the one it points at.");
    const std::string notChecked = "This application could not be checked before removal.";
    EXPECT_EQ(told("home/Applications/Empty.app", std::nullopt), notChecked);
    EXPECT_EQ(told("home/Applications/Paint", std::nullopt), notChecked);
    EXPECT_EQ(told("home/Applications/Link.app"), explanation(DiskItemRefusal::link));
    bench.place.permissions(paint, 0555);
    EXPECT_EQ(told(paint), explanation(DiskItemRefusal::closedFolder));
    bench.place.permissions(paint, 0755);
    const std::string running = "This application is running. Quit it and try again.";
    runs("org.paint.helper", "");
    EXPECT_EQ(told(paint), running);
    runs("", bench.place / paint + "/Contents/x");
    EXPECT_EQ(told(paint), running);
    runs("org.painter", "/elsewhere");
    EXPECT_EQ(told(paint), "");
    applications.answer = std::unexpected(SystemError{1});
    EXPECT_EQ(told(paint), notChecked);
}

} // namespace
} // namespace tidyro
