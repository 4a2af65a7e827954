#include "StorageEngine/Safety/ActiveApplications.h"

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

namespace tidyro {
namespace {

using platform::RunningApplication;

bool covers(const std::vector<std::string>& folders, std::string_view place) {
    return std::ranges::any_of(folders, [&](const std::string& folder) {
        return path::isInsideOrEqual(place, path::standardized(folder));
    });
}

TEST(ActiveApplications, OwnTheirFoldersWhileTheyRun) {
    struct Case {
        RunningApplication running;
        std::string_view place;
        bool isOwned;
    };
    const auto executable = [](std::string path) {
        return RunningApplication{
            .bundleIdentifier = {}, .executable = std::move(path), .name = {}};
    };
    const auto named = [](std::string name) {
        return RunningApplication{
            .bundleIdentifier = {}, .executable = {}, .name = std::move(name)};
    };
    const auto bundle = [](std::string identifier) {
        return RunningApplication{
            .bundleIdentifier = std::move(identifier), .executable = "/x", .name = {}};
    };
    for (const Case& one : std::vector<Case>{
             {executable("/usr/lib/firefox-esr/firefox-esr"), ".cache/mozilla/firefox/p", true},
             {executable("/opt/google/chrome/chrome (deleted)"), ".cache/google-chrome", true},
             {executable("/A/Google Chrome.app/Contents/MacOS/Google Chrome"),
              "Library/Caches/Google/Chrome/Default", true},
             {bundle("com.google.Chrome.helper"), "Library/Caches/Google/Chrome", true},
             {bundle("com.google.ChromeRemote"), "Library/Caches/Google/Chrome", false},
             {bundle("com.example.New"), "Library/Caches/com.example.New/a", true},
             {bundle("com.example.New"), "Library/Caches/com.example.Newer", false},
             {named("npm install"), ".npm/_cacache", true},
             {executable("/usr/bin/node"), ".npm/_cacache/index", true},
             {executable("/usr/bin/python3.11"), ".cache/pip/http", true},
             {executable("/usr/bin/pythonista"), ".cache/pip/http", false},
             {named("gradle"), ".gradle/caches", true},
             {executable("/usr/lib/jvm/bin/java"), ".gradle/daemon", true},
             {named("dockerd"), ".docker/buildx/cache", true},
             {executable("/home/a/.cargo/bin/cargo-clippy"), ".cargo/registry/cache", true},
             {executable("/opt/unknown/bin/painter"), ".cache/painter/x", true},
             {executable("/opt/unknown/bin/painter"), ".cache/pip", false},
             {executable("/opt/unknown/bin/painter (deleted)"), ".cache/painter", true},
             {executable("/snap/notes/12/bin/run"), "snap/notes/common", true},
             {executable("/app/bin/org.example.App"), ".var/app/org.example.App/cache", true},
             // A name must not reach beyond one folder.
             {named(".."), ".cache", false},
             {named("."), ".cache", false},
             {named("a/../../x"), "x", false}}) {
        const std::vector<RunningApplication> running{one.running};
        EXPECT_EQ(covers(ActiveApplications::dataFolders(running), one.place), one.isOwned)
            << one.running.executable << one.running.name << one.running.bundleIdentifier << " "
            << one.place;
    }
    EXPECT_TRUE(ActiveApplications::dataFolders({}).empty());
}

/// Places that all programs share: who else but the files in use should say that one is?
const std::set<std::string_view> sharedPlaces{"user-caches",        "user-logs",
                                              "diagnostic-reports", "dot-cache",
                                              "temporary-items",    "saved-application-state"};

TEST(ActiveApplications, KnowTheOwnerOfEveryPlaceThatIsCleaned) {
    std::vector<std::string> owned;
    for (const ActiveApplications::Known& application : ActiveApplications::table()) {
        std::string_view rest = application.folders;
        while (!rest.empty()) {
            const std::size_t end = std::min(rest.find('|'), rest.size());
            owned.emplace_back(rest.substr(0, end));
            EXPECT_TRUE(!owned.back().empty() && !owned.back().starts_with('/') &&
                        path::standardized(owned.back()) == owned.back())
                << application.folders;
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        EXPECT_TRUE(std::ranges::none_of(application.names, [](char byte) {
            return byte >= 'A' && byte <= 'Z';
        })) << application.names;
    }
    for (const CleanupRuleSpec& rule : BuiltInRuleRegistry::allSpecs()) {
        EXPECT_NE(covers(owned, rule.relativePath), sharedPlaces.contains(rule.id)) << rule.id;
    }
}

TEST(ProtectedFolders, LeaveCachesAlone) {
    const FileURL home = FileURL::folder("/home/ada");
    for (const CleanupRuleSpec& rule : BuiltInRuleRegistry::allSpecs()) {
        const std::string place = home.appendingFolder(rule.relativePath).path();
        for (const FileURL& folder : HomeFolders::protectedFolders(home)) {
            EXPECT_FALSE(path::isInsideOrEqual(place, folder.path())) << rule.id;
        }
    }
}

} // namespace
} // namespace tidyro
