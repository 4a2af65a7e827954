#include "StorageEngine/AITools/AIToolHome.h"

#include <array>
#include <filesystem>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

struct MadeHome {
    TemporaryFolder place;
    AIToolHomeDiscovery discovery{.userHome = FileURL::folder(place / "home")};

    MadeHome() { place.folder("home"); }
    void codex(const std::string& name) const {
        place.file(name + "/config.toml");
        place.folder(name + "/sessions");
    }
    [[nodiscard]] std::string outcome(const std::string& name) const {
        const auto home = discovery.validate(FileURL::folder(place / name), AIToolID::codex,
                                             AIToolHome::Source::custom);
        return std::string(home ? "accepted" : rawValue(home.error().reason));
    }
};

TEST(AIToolHomes, AreTheFoldersThatAToolWrote) {
    const MadeHome made;
    made.codex("home/.codex");
    EXPECT_EQ(made.outcome("home/.codex"), "accepted");
    EXPECT_EQ(made.outcome("home/none"), "missing");
    made.place.file("home/file");
    EXPECT_EQ(made.outcome("home/file"), "notADirectory");
    made.place.link("home/link", made.place / "home/.codex");
    EXPECT_EQ(made.outcome("home/link"), "symbolicLink");
    made.place.file("home/one/config.toml");
    EXPECT_EQ(made.outcome("home/one"), "notRecognized");
    made.place.link("home/one/sessions", "/tmp");
    EXPECT_EQ(made.outcome("home/one"), "notRecognized") << "a link proves nothing";

    made.codex("home");
    made.codex("home/Documents");
    made.codex("home/Documents/mine");
    made.codex("home/.config");
    made.codex("");
    EXPECT_EQ(made.outcome("home"), "unsafeLocation");
    EXPECT_EQ(made.outcome(""), "unsafeLocation") << "it holds the home";
    EXPECT_EQ(made.outcome("home/Documents"), "unsafeLocation");
    EXPECT_EQ(made.outcome("home/.config"), "unsafeLocation");
    EXPECT_EQ(made.outcome("home/Documents/mine"), "accepted");
    const auto isAcceptable = [&](const char* path) {
        return made.discovery.isAcceptableLocation(FileURL::folder(path));
    };
    EXPECT_FALSE(isAcceptable("/") || isAcceptable("/usr/share/x") ||
                 isAcceptable("/opt/homebrew"));
    EXPECT_TRUE(isAcceptable("/usrx") && isAcceptable("/data/codex"));

    made.codex("home/project/deep/.codex");
    made.place.file("home/project/.git"); // as in a linked checkout
    EXPECT_EQ(made.outcome("home/project/deep/.codex"), "insideProject");
    made.place.folder("home/.git"); // of a person's settings; the home itself is not asked
    EXPECT_EQ(made.outcome("home/.codex"), "accepted");
}

TEST(AIToolHomes, AreThePersonsOwn) {
    const std::string outcome = testing::asOrdinaryUser([] {
        AIToolHomeDiscovery discovery{.userHome = FileURL::folder("/nowhere")};
        const auto home = discovery.validate(FileURL::folder("/etc"), AIToolID::codex,
                                             AIToolHome::Source::custom);
        return std::string(rawValue(home.error().reason));
    });
    EXPECT_EQ(outcome, "notOwnedByYou");
}

TEST(AIToolHomes, AreLookedForInTheirOrder) {
    MadeHome made;
    made.codex("home/.codex");
    made.codex("elsewhere");
    made.codex("custom");
    const FileURL custom = FileURL::folder(made.place / "custom");
    made.discovery.customHomes[AIToolID::codex] = {custom, custom};
    const auto found = [&] {
        std::string all;
        for (const auto& each : made.discovery.discover(std::array{AIToolID::codex})) {
            all += std::string(rawValue(each.source)) + ":" +
                   std::string(each.url.lastComponent()) + (each.result ? " " : "! ");
        }
        return all;
    };
    EXPECT_EQ(found(), "conventional:.codex custom:custom ");
    made.discovery.environment["CODEX_HOME"] = "";
    EXPECT_EQ(found(), "conventional:.codex custom:custom ");
    made.discovery.environment["CODEX_HOME"] = made.place / "elsewhere";
    EXPECT_EQ(found(), "environment:elsewhere custom:custom ");
    made.place.link("link", made.place / "elsewhere");
    made.discovery.environment["CODEX_HOME"] = made.place / "link";
    EXPECT_EQ(found(), "environment:link! custom:custom ");
}

TEST(AIToolHomes, AreTheVeryFoldersThatWereValidated) {
    const MadeHome made;
    made.codex("home/.codex");
    const auto home = made.discovery.validate(FileURL::folder(made.place / "home/.codex"),
                                              AIToolID::codex, AIToolHome::Source::conventional);
    ASSERT_TRUE(home);
    EXPECT_TRUE(home->stillIdentified());
    fs::rename(made.place / "home/.codex", made.place / "home/old");
    EXPECT_FALSE(home->stillIdentified());
    made.codex("home/.codex");
    EXPECT_FALSE(home->stillIdentified());

    const auto where = [&](const char* name) -> std::string {
        const auto at = home->locate(FileURL::file(made.place / name));
        if (!at) return "outside";
        std::string text = at->place.storeIndex ? "store:" : "home:";
        for (const std::string& component : at->components) text += "/" + component;
        return text;
    };
    EXPECT_EQ(where("home/.codex/a/b"), "home:/a/b");
    EXPECT_EQ(where("home/.codex"), "home:");
    EXPECT_EQ(where("home/.codex2/a"), "outside");
    EXPECT_EQ(where("home/.cache/codex-runtimes/x"), "store:/x");
    EXPECT_TRUE(home->validExternalStores().empty());
    made.place.folder("elsewhere");
    made.place.folder("home/.cache");
    made.place.link("home/.cache/codex-runtimes", made.place / "elsewhere");
    EXPECT_TRUE(home->validExternalStores().empty()) << "a link is no store";
}

TEST(AIToolVersions, AreComparedAsNumbers) {
    const auto isOlder = [](std::string_view a, std::string_view b) {
        return AIToolVersionState::compareVersions(a, b) < 0 &&
               AIToolVersionState::compareVersions(b, a) > 0;
    };
    EXPECT_TRUE(isOlder("1.9", "1.10") && isOlder("1.9-beta", "1.9") && isOlder("1.9", "2"));
    EXPECT_TRUE(isOlder("9", "99999999999999999999999999") && isOlder("1.8.9", "1.9-beta"));
    EXPECT_TRUE(isOlder("current", "0.1") && isOlder("1.x", "1.0"));
    EXPECT_EQ(AIToolVersionState::compareVersions("1.09", "1.9.0"), std::strong_ordering::equal);
}

TEST(AIToolVersions, OfAStoreStayUnlessAnotherIsStarted) {
    const TemporaryFolder place;
    for (const char* version : {"1.9", "1.10", "1.2", "1.11-beta"}) {
        place.file(std::string("versions/") + version);
    }
    const auto current = [&](const ToolActivitySnapshot& activity = {}) {
        std::string all;
        const auto state = AIToolVersionState::compute(FileURL::folder(place / "versions"),
                                                       FileURL::file(place / "launcher"), activity);
        for (const std::string& name : state.current) all += name + " ";
        return all;
    };
    const std::string all = "1.10 1.11-beta 1.2 1.9 ";
    EXPECT_EQ(current(), all) << "no launcher";
    place.link("launcher", "versions/1.9");
    EXPECT_EQ(current(), "1.11-beta 1.9 ") << "the newest stays as well";
    EXPECT_EQ(current({.executablePaths = {place / "versions/1.2"}}), "1.11-beta 1.2 1.9 ");
    EXPECT_EQ(current({.isIncomplete = true}), all);
    const auto relaunch = [&](const char* target) {
        fs::remove(place / "launcher");
        place.link("launcher", target);
    };
    for (const char* elsewhere : {"launcher", "versions/2.0", "versions", "other", "/"}) {
        relaunch(elsewhere);
        EXPECT_EQ(current(), all) << elsewhere;
    }
    place.link("other", "versions/1.10");
    relaunch("other");
    EXPECT_EQ(current(), "1.10 1.11-beta ") << "by two links";
    place.folder("versions/staging");
    EXPECT_EQ(current(), "1.10 1.11-beta staging ");
}

TEST(AIToolVersions, OfBuildsStayUnlessTheApplicationNamesOne) {
    const TemporaryFolder place;
    for (const char* build : {"aaa", "bbb", "ccc"}) {
        place.file(std::string("builds/") + build + "/x");
    }
    place.times("builds/aaa", 1, 1'000);
    place.times("builds/bbb", 1, 3'000);
    place.times("builds/ccc", 1, 2'000);
    const auto current = [&](const std::vector<std::string>& files) {
        std::string all;
        const auto state =
            AIToolVersionState::computeBuilds(FileURL::folder(place / "builds"), files, {});
        for (const std::string& name : state.current) all += name + " ";
        EXPECT_TRUE(state.isCurrent("made since"));
        return all;
    };
    const std::string product = place / "product.json";
    EXPECT_EQ(current({}), "aaa bbb ccc ");
    EXPECT_EQ(current({product}), "aaa bbb ccc ") << "not installed";
    place.file("product.json", R"({"commit": "aaa"})");
    EXPECT_EQ(current({product, place / "none.json"}), "aaa bbb ") << "named, and the newest";
    for (const char* bad : {R"({"commit": "ddd"})", R"({"commit": 1})", "{}", "[", ""}) {
        place.file("bad.json", bad);
        EXPECT_EQ(current({product, place / "bad.json"}), "aaa bbb ccc ") << bad;
    }
    place.hole("huge.json", 100'000'000);
    EXPECT_EQ(current({product, place / "huge.json"}), "aaa bbb ccc ");
    place.link("link.json", product);
    EXPECT_EQ(current({product, place / "link.json"}), "aaa bbb ccc ");
}

TEST(ToolActivity, IsWhatLiesAtOrBelowAPlace) {
    platform::testing::FakeRunningProcesses processes;
    processes.answer->processes = {{.pid = 7,
                                    .executable = "/opt/Cursor/cursor",
                                    .workingFolder = "/home/ada/.codex/cache",
                                    .files = {"/home/ada/.codex-2/log", "/home/ada/.codex/a"}}};
    processes.answer->processes.push_back({.pid = platform::currentProcessID(),
                                           .executable = "/opt/tidyro",
                                           .files = {"/home/ada/.code"}});
    LiveToolActivityProvider live(processes);
    const ToolActivitySnapshot seen = live.snapshot(); // without this program
    EXPECT_TRUE(seen.isActive("/home/ada/.codex") && seen.isActive("/home/ada/.codex/cache") &&
                seen.isActive("/home/ada/.codex-2/log") && seen.isActive("/"));
    EXPECT_FALSE(seen.isActive("/home/ada/.codex/cache/x") || seen.isActive("/home/ada/.code"));
    EXPECT_TRUE(seen.isRunning(std::vector<std::string>{"/nothing", "/opt/Cursor/"}));
    const auto inHome = seen.restricted(std::vector<std::string>{"/home/ada/.codex"});
    EXPECT_FALSE(inHome.isActive("/home/ada/.codex-2"));
    EXPECT_TRUE(inHome.executablePaths.empty());

    double clock = 100;
    CachedToolActivityProvider cached(live, [&] { return Timestamp::since1970(clock); });
    EXPECT_EQ(cached.snapshot(), seen);
    processes.answer->processes.clear();
    clock = 101.9;
    EXPECT_EQ(cached.snapshot(), seen);
    clock = 102;
    EXPECT_EQ(cached.snapshot(), ToolActivitySnapshot{});
    clock = 50; // set back
    processes.answer->areOthersHidden = true;
    EXPECT_TRUE(cached.snapshot().isIncomplete);
}

} // namespace
} // namespace tidyro
