#include "StorageEngine/Cleanup/Planning/CleanupAuthorizationVerifier.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/PathText.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using namespace authorization;
using enum CleanupAuthorizationError;

/// Knows one rule of one tool, which covers whatever is not called "session".
class OneToolRule final : public AIToolRuleVerifier {
  public:
    [[nodiscard]] bool covers(const AIToolRule& rule, const FileURL& item) const override {
        return rule.toolID == "tool" && rule.ruleID == "logs" && item.lastComponent() != "session";
    }
};

struct Bench {
    testing::TemporaryFolder place;
    OneToolRule tools;

    Bench() {
        place.file("home/.npm/_cacache/a/file");
        place.file("home/elsewhere/file");
        place.file("home/.cargo/elsewhere/file");
        place.link("home/.npm/_cacache/out", place / "home/elsewhere");
        place.link("home/.npm/_cacache/around", "a");
        place.link("home/.npm/_cacache/link", "a/file");
        place.file("home/Library/Caches/app/file");
        place.file("opened/sub/file");
        place.link("opened/out", place / "home/elsewhere");
        place.file("opened/project/build/file");
        place.link("opened/project/dist", "../sub");
        place.folder("home/project/build");
        place.file("home/.tool/logs/file");
        place.file("Paint.app/Contents/Info.plist",
                   "<key>CFBundleIdentifier</key><string>org.paint</string>");
    }
    [[nodiscard]] FileURL home() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] FileURL folder(std::string_view name) const {
        return FileURL::folder(place / name);
    }
    [[nodiscard]] CleanupAuthorizationVerifier verifier() const {
        return CleanupAuthorizationVerifier({.home = home(),
                                             .rules = BuiltInCleanupRules::currentUser(home()),
                                             .sessionRoots = {folder("opened")},
                                             .aiToolRules = &tools});
    }
    /// The root below the bench's own folder, or the error's text.
    [[nodiscard]] std::string told(std::optional<CleanupAuthorization> claim, std::string_view item,
                                   FolderResolver* folders = nullptr) const {
        const auto root = verifier().authorizedRoot(claim, FileURL::file(place / item), folders);
        return root ? std::string(path::below(root->path(), place.path()))
                    : std::string(description(root.error()));
    }
};

const std::string notRecognised(description(ruleDoesNotCoverItem));
const std::string notOpen(description(rootNotAuthorizedInThisSession));
const std::string outside(description(itemOutsideAuthorizedRoot));
const std::string rootItself(description(cannotActOnTheRootItself));

TEST(CleanupAuthorizationVerifier, LooksARuleUpAnew) {
    const Bench bench;
    const auto npm = [&](const char* root = "home/.npm/_cacache", const char* id = "npm-cache") {
        return CleanupAuthorization{BuiltInRule{.id = id, .rootURL = bench.folder(root)}};
    };
    FolderResolver resolver;
    for (FolderResolver* folders : {static_cast<FolderResolver*>(nullptr), &resolver}) {
        const auto told = [&](std::optional<CleanupAuthorization> claim, std::string_view item) {
            return bench.told(std::move(claim), item, folders);
        };
        EXPECT_EQ(told(npm(), "home/.npm/_cacache/a/file"), "home/.npm/_cacache");
        EXPECT_EQ(told(std::nullopt, "home/.npm/_cacache/a/file"),
                  description(missingAuthorization));
        EXPECT_EQ(told(npm("home/.npm/_cacache", "no-rule"), "home/.npm/_cacache/a/file"),
                  notRecognised);
        EXPECT_EQ(told(npm("home"), "home/elsewhere/file"), notRecognised) << "a widened root";
        EXPECT_EQ(told(npm("home/.npm/_cacache/a"), "home/.npm/_cacache/a/file"), notRecognised);
        EXPECT_EQ(told(npm(), "home/elsewhere/file"), notRecognised);
        EXPECT_EQ(told(npm(), "home/.npm/_cacache2/file"), notRecognised);
        EXPECT_EQ(told(npm(), "home/.npm/_cacache"), rootItself);
        EXPECT_EQ(told(npm(), "home/.npm/_cacache/out/file"), outside);
        EXPECT_EQ(told(npm(), "home/.npm/_cacache/around/file"), outside) << "a link in the root";
    }
    EXPECT_EQ(bench.told(npm(), "home/.npm/_cacache/link"), outside);

    const auto rules = BuiltInCleanupRules::currentUser(bench.home());
    const CleanupAuthorizationVerifier verifier({.home = bench.home(), .rules = rules});
    std::filesystem::rename(bench.place / "home/.npm/_cacache", bench.place / "home/moved");
    bench.place.link("home/.npm/_cacache", bench.place / "home/moved");
    const FileURL item = FileURL::file(bench.place / "home/.npm/_cacache/a/file");
    EXPECT_EQ(verifier.authorizedRoot(npm(), item).error(), itemOutsideAuthorizedRoot)
        << "the root became a link after the rules were made";
    EXPECT_EQ(bench.told(npm(), "home/.npm/_cacache/a/file"), notRecognised);
}

TEST(CleanupAuthorizationVerifier, AsksWhatAPersonChose) {
    const Bench bench;
    const auto root = [&](const char* name) {
        return CleanupAuthorization{UserSelectedRoot{.url = bench.folder(name)}};
    };
    EXPECT_EQ(bench.told(root("opened"), "opened/sub/file"), "opened");
    EXPECT_EQ(bench.told(root("opened"), "opened"), rootItself);
    EXPECT_EQ(bench.told(root("opened"), "opened/out/file"), outside);
    EXPECT_EQ(bench.told(root("opened"), "home/elsewhere/file"), outside);
    EXPECT_EQ(bench.told(root("opened/sub"), "opened/sub/file"), notOpen);

    const auto item = [&](const char* name, std::optional<std::string> placeID = std::nullopt) {
        return CleanupAuthorization{
            DiskItem{.placeID = std::move(placeID), .itemURL = FileURL::file(bench.place / name)}};
    };
    EXPECT_EQ(bench.told(item("opened/sub"), "opened/sub"), "opened/sub") << "is its own root";
    EXPECT_EQ(bench.told(item("opened/sub"), "opened/sub/file"), outside);
    EXPECT_EQ(bench.told(item("opened"), "opened"), notOpen) << "lies in no opened folder";
    EXPECT_EQ(bench.told(item("opened/out/file"), "opened/out/file"), notOpen);
    EXPECT_EQ(bench.told(item("home/elsewhere"), "home/elsewhere"), notOpen);
    const char* cache = "home/Library/Caches/app";
    EXPECT_EQ(bench.told(item(cache, "caches"), cache), cache);
    EXPECT_EQ(bench.told(item(cache, "logs"), cache), notRecognised);
    EXPECT_EQ(bench.told(item("home/elsewhere", "caches"), "home/elsewhere"), notRecognised);

    const auto application = [&](std::optional<std::string> identifier) {
        return CleanupAuthorization{UserSelectedApplication{
            .bundleURL = bench.folder("Paint.app"), .bundleIdentifier = std::move(identifier)}};
    };
    EXPECT_EQ(bench.told(application("org.paint"), "Paint.app"), "Paint.app");
    EXPECT_EQ(bench.told(application("org.other"), "Paint.app"), notRecognised);
    EXPECT_EQ(bench.told(application(std::nullopt), "Paint.app"), notRecognised);
    EXPECT_EQ(bench.told(application("org.paint"), "Paint.app/Contents"), outside);
}

TEST(CleanupAuthorizationVerifier, AsksForProjectFoldersAndAITools) {
    const Bench bench;
    const auto artifact = [&](const char* workspace, const char* project, const char* name) {
        return CleanupAuthorization{ProjectArtifact{.workspaceURL = bench.folder(workspace),
                                                    .projectURL = bench.folder(project),
                                                    .folderName = name}};
    };
    const char* build = "opened/project/build";
    EXPECT_EQ(bench.told(artifact("opened", "opened/project", "build"), build), "opened/project");
    EXPECT_EQ(bench.told(artifact("opened", "opened", "project"), "opened/project"), "opened");
    EXPECT_EQ(bench.told(artifact("opened/project", "opened/project", "build"), build), notOpen);
    EXPECT_EQ(bench.told(artifact("opened", "home/project", "build"), "home/project/build"),
              outside);
    EXPECT_EQ(bench.told(artifact("opened", "opened/project", "dist"), build), outside);
    EXPECT_EQ(bench.told(artifact("opened", "opened", "project/build"), build), outside);
    EXPECT_EQ(
        bench.told(artifact("opened", "opened/project", "build"), "opened/project/build/file"),
        outside);
    EXPECT_EQ(bench.told(artifact("opened", "opened/project/build", ".."), "opened/project"),
              outside);
    EXPECT_EQ(bench.told(artifact("opened", "opened/project", "."), "opened/project"), rootItself);
    EXPECT_EQ(bench.told(artifact("opened", "opened/project", "dist"), "opened/project/dist"),
              outside)
        << "a link";

    const auto tool = [&](const char* ruleID) {
        return CleanupAuthorization{
            AIToolRule{.toolID = "tool", .ruleID = ruleID, .rootURL = bench.folder("home/.tool")}};
    };
    EXPECT_EQ(bench.told(tool("logs"), "home/.tool/logs/file"), "home/.tool");
    EXPECT_EQ(bench.told(tool("logs"), "home/.tool"), rootItself);
    EXPECT_EQ(bench.told(tool("logs"), "home/elsewhere/file"), outside);
    EXPECT_EQ(bench.told(tool("logs"), "home/.tool/session"), notRecognised);
    EXPECT_EQ(bench.told(tool("others"), "home/.tool/logs/file"), notRecognised);
    const CleanupAuthorizationVerifier without({.home = bench.home(), .rules = {}});
    EXPECT_EQ(without.authorizedRoot(tool("logs"), bench.home().appending(".tool/logs/file")),
              std::unexpected(ruleDoesNotCoverItem));
}

} // namespace
} // namespace tidyro
