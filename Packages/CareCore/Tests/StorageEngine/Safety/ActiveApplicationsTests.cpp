#include "StorageEngine/Safety/ActiveApplications.h"

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Base/StableHash.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"

namespace tidyro {
namespace {

using platform::RunningApplication;

std::vector<std::string> foldersOf(const std::vector<RunningApplication>& running) {
    std::vector<std::string> folders;
    for (const auto& [folder, program] : ActiveApplications::owners(running)) {
        folders.push_back(folder);
    }
    return folders;
}

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
        EXPECT_EQ(covers(foldersOf(running), one.place), one.isOwned)
            << one.running.executable << one.running.name << one.running.bundleIdentifier << " "
            << one.place;
    }
    EXPECT_TRUE(ActiveApplications::owners({}).empty());
    // Every folder in which programs make one of their own name.
    for (const std::string folder :
         {".cache", ".config", ".local/share", ".local/state", "Library/Caches",
          "Library/Application Support", "Library/Containers", "Library/HTTPStorages",
          "Library/Logs", "Library/WebKit"}) {
        EXPECT_TRUE(covers(foldersOf({named("Painter")}), folder + "/Painter/x")) << folder;
    }
}

TEST(ActiveApplications, AreTheScriptsOfTheSystemAndNotWhatRunsThem) {
    struct Case {
        std::string_view script;
        std::string_view name; ///< of the process
        std::string_view place;
        bool isOwned;
    };
    constexpr std::string_view pips = ".cache/pip/http/x";
    for (const Case& one : std::vector<Case>{
             {"/usr/bin/blueman-applet", "blueman-applet", pips, false},
             {"/usr/bin/blueman-applet", "python3", pips, false},
             {"/usr/bin/blueman-applet", "python3.11", ".cache/blueman-applet/x", true},
             {"/usr/share/panel/clock/main.py", "python3", ".cache/clock/x", true},
             {"/usr/share/panel/clock/main.py", "python3", pips, false},
             {"/usr/bin/blueman-applet", "python3", ".cache/huggingface/hub", true},
             {"/usr/bin/blueman-applet", "python3", ".cache/matplotlib/x", true},
             {"/usr/bin/pip3.11", "pip3.11", pips, true},
             {"/usr/bin/jupyter-lab", "python3", pips, true},
             {"/usr/bin/renamed", "pip", pips, true},
             // Whatever a person installs or writes may be any tool.
             {"/usr/local/bin/applet", "python3", pips, true},
             {"/opt/applet/applet", "python3", pips, true},
             {"/home/ada/applet.py", "applet.py", pips, true},
             {"/usr/lib/python3/dist-packages/x/__main__.py", "python3", pips, true},
             {"/usr/binary/applet", "python3", pips, true},
             {"", "python3", pips, true}}) {
        for (const char* executable : {"/usr/bin/python3.11", "/usr/bin/python3.11 (deleted)"}) {
            const RunningApplication running{.bundleIdentifier = {},
                                             .executable = executable,
                                             .name = std::string(one.name),
                                             .script = std::string(one.script)};
            EXPECT_EQ(covers(foldersOf({running}), one.place), one.isOwned)
                << one.script << " " << one.name << " " << one.place;
        }
    }
    // The executable of another person's process is not told.
    EXPECT_FALSE(covers(foldersOf({{.bundleIdentifier = {},
                                    .executable = {},
                                    .name = "python3",
                                    .script = "/usr/bin/networkd-dispatcher"}}),
                        pips));
    const auto owners = ActiveApplications::owners(std::vector<RunningApplication>{
        {.bundleIdentifier = {}, .executable = "/usr/bin/uv", .name = "uv"},
        {.bundleIdentifier = {},
         .executable = "/usr/bin/python3",
         .name = "python3",
         .script = "/home/ada/train\n.py"},
        {.bundleIdentifier = {}, .executable = {}, .name = "cargo"}});
    EXPECT_EQ(owners.at(".cache/pip").substr(0, 5), "train");
    EXPECT_EQ(owners.at(".cache/pip").find('\n'), std::string::npos);
    EXPECT_EQ(owners.at(".cache/uv"), owners.at(".cache/pip")) << "the first in the alphabet";
    EXPECT_EQ(owners.at(".cargo"), "cargo");
}

/// Places that all programs share: who else but the files in use should say that one is?
const std::set<std::string_view> sharedPlaces{
    "user-caches", "user-logs", "diagnostic-reports", "dot-cache", "temporary-items",
    "saved-application-state", "linux-thumbnails", "linux-fontconfig", "linux-gstreamer",
    "linux-mesa-shaders", "linux-mesa-shaders-db", "linux-nvidia-compute", "linux-nvidia-shaders",
    "linux-xorg-logs",
    // Their applications run from paths that name them.
    "flatpak-caches", "snap-caches"};

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

TEST(ActiveApplications, LoseNoNameUnnoticed) {
    // A name or a folder that goes, or is misspelt, makes what a running program owns safe. Who
    // changes the table on purpose takes the new value from the failure.
    StableHashState state;
    for (const ActiveApplications::Known& application : ActiveApplications::table()) {
        state.addText(application.names);
        state.addText(application.bundleIdentifiers);
        state.addText(application.folders);
    }
    EXPECT_EQ(state.value(), 0x9f95f5fa241d9887U);
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
