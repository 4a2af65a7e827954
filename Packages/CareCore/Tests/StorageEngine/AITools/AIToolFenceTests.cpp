#include "StorageEngine/AITools/AIToolFence.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "Base/LoweredPath.h"
#include "Base/PathText.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;
using enum ToolStateFence::Item;

/// The homes below lie where they do on Linux.
const bool isOnLinux = AIToolLayouts::layout(AIToolID::vsCode).homeRelativePath == ".config/Code";

struct FencedHome {
    TemporaryFolder place;
    AIToolHomeDiscovery discovery{.userHome = FileURL::folder(place / "home")};

    FencedHome() { place.folder("home"); }
    [[nodiscard]] std::shared_ptr<const AIToolFence> fence() const {
        return AIToolFence::find(discovery);
    }
    /// Of these paths below the place, the ones that are held, with a space between them.
    [[nodiscard]] std::string held(const std::vector<std::string>& names) const {
        const auto fence = this->fence();
        std::string all;
        for (const std::string& name : names) {
            const bool isFolder = name.ends_with('/');
            const std::string path = path::standardized(place / name);
            const auto reason = fence->reason(path, isFolder ? folder : file);
            if (!reason) continue;
            EXPECT_TRUE(fence->isNear(LoweredPath(path).text())) << path;
            EXPECT_GT(reason->text().size(), 20U);
            all += (all.empty() ? "" : " ") + name;
        }
        return all;
    }
};

TEST(AIToolFence, HoldsWhatNoRuleOfTheToolRecognises) {
    const FencedHome made;
    made.place.file("home/.codex/config.toml");
    made.place.folder("home/.codex/sessions");
    const std::vector<std::string> held{"home/.codex/",
                                        "home/.codex/sessions/2026/a.jsonl",
                                        "home/.codex/SESSIONS/a.jsonl",
                                        "home/.codex/auth.json",
                                        "home/.codex/unheard-of/x",
                                        "home/.codex/cache/",
                                        "home/.codex/cache/unheard-of.json",
                                        "home/.codex/cache/codex_apps_tools/a.db",
                                        "home/.codex/cache/codex_apps_tools/auth.json",
                                        "home/.codex/.tmp/git-abcdef/x.lock",
                                        "home/.codex/worktrees/one/node_modules/",
                                        "home/.Codex/sessions/a.jsonl"};
    std::string all;
    for (const std::string& name : held) all += (all.empty() ? "" : " ") + name;
    EXPECT_EQ(made.held(held), all);
    EXPECT_EQ(made.held({"home/.codex/cache/codex_apps_tools/", "home/.codex/.tmp/git-abcdef/",
                         "home/.codex/cache/codex_apps_tools/a.json", "home/.codexes/sessions/a",
                         "home/.codex/generated_images/a.png", "home/sessions/a", "home/",
                         "home/.claude/projects/none-is-there"}),
              "");
    const auto fence = made.fence();
    EXPECT_TRUE(fence->isBelow(made.place / "home") && fence->isBelow(made.place / "home/.codex"));
    EXPECT_FALSE(fence->isBelow(made.place / "home/.codex/cache"));
}

TEST(AIToolFence, StandsAroundHomesThatWereRejectedAsWell) {
    FencedHome made;
    // A link, with where it leads to; a home with one marker; the earlier home beside a new one.
    made.place.folder("elsewhere/mine/sessions");
    made.place.link("home/.codex", made.place / "elsewhere/mine");
    made.place.file("home/.claude/settings.json");
    made.place.file("home/.copilot/config.json");
    made.place.folder("home/tools/copilot/session-state");
    made.discovery.environment = {{"COPILOT_HOME", made.place / "home/tools/copilot"}};
    EXPECT_EQ(made.held({"home/.codex/sessions/a", "elsewhere/mine/sessions/a",
                         "elsewhere/mine/cache/x", "home/.claude/projects/a", "home/.claude/other",
                         "home/.copilot/session-state/a", "home/tools/copilot/session-state/a"}),
              "home/.codex/sessions/a elsewhere/mine/sessions/a elsewhere/mine/cache/x "
              "home/.claude/projects/a home/.claude/other home/.copilot/session-state/a "
              "home/tools/copilot/session-state/a");

    // What may be anybody's is not the tool's because it lies beside what the tool keeps.
    made.place.folder("home/project/.git");
    made.discovery.environment = {{"COPILOT_HOME", made.place / "home/project"},
                                  {"CODEX_HOME", made.place / "home"}};
    EXPECT_EQ(made.held({"home/project/session-state/a", "home/project/auth.json",
                         "home/project/node_modules/", "home/project/logs/a.txt",
                         "home/sessions/a.jsonl", "home/auth.json", "home/.cache/pip/a",
                         "home/cache/a.sqlite", "home/Documents/"}),
              "home/project/session-state/a home/project/auth.json home/sessions/a.jsonl "
              "home/auth.json home/cache/a.sqlite");
}

TEST(AIToolFence, HoldsTheVersionsInUse) {
    const FencedHome made;
    const std::string versions = "home/.local/share/claude/versions";
    made.place.file(versions + "/1.0.9");
    made.place.file(versions + "/1.0.10");
    made.place.file(versions + "/1.0.8");
    made.place.folder("home/.local/bin");
    made.place.link("home/.local/bin/claude", made.place / (versions + "/1.0.9"));
    made.place.folder("home/.cache/codex-runtimes/codex-primary-runtime");
    made.place.folder("home/.cache/codex-runtimes/codex-runtime-install-abcdef");
    EXPECT_EQ(made.held({versions + "/1.0.8", versions + "/1.0.9", versions + "/1.0.10",
                         "home/.cache/codex-runtimes/codex-primary-runtime/bin/node",
                         "home/.cache/codex-runtimes/codex-runtime-install-abcdef/a",
                         "home/.cache/codex-runtimes/", "home/.cache/pip/a"}),
              versions + "/1.0.9 " + versions +
                  "/1.0.10 home/.cache/codex-runtimes/codex-primary-runtime/bin/node "
                  "home/.cache/codex-runtimes/");
    std::filesystem::remove(made.place / "home/.local/bin/claude");
    EXPECT_EQ(made.held({versions + "/1.0.8"}), versions + "/1.0.8");
}

TEST(AIToolFence, IsAskedBeforeAnyRule) {
    if (!isOnLinux) GTEST_SKIP() << "the rules below are those of Linux";
    const FencedHome made;
    for (const char* name : {"machineid", "Preferences", "GPUCache/data_1", "CachedData/1f/a.code",
                             "Cache/Cache_Data/f_00001_0", "Cache/Cache_Data/chat-history_0",
                             "Cache/Cache_Data/index", "logs/Cache/x"}) {
        made.place.file(std::string("home/.config/Code/") + name);
    }
    const FileURL home = FileURL::folder(made.place / "home");
    const Timestamp asked = Timestamp::now();
    SafetyPolicyFacts facts = testing::quietMachine();
    facts.internalLocalVolumeIdentifiers = {"inside"};
    SafetyPolicyContext open{facts};
    SafetyPolicyContext fenced = open;
    fenced.setToolState(made.fence());
    const auto rules = BuiltInCleanupRules::allLocations(home);
    const DeterministicSafetyPolicy policy(home);
    DeterministicSafetyPolicy::LastFolder last;
    const auto tiers = [&](const char* name) {
        const FileURL url = FileURL::file(made.place / (std::string("home/.config/Code/") + name));
        const FileObservation item{.id = {url.text()},
                                   .url = url,
                                   .kind = FileKind::regularFile,
                                   .byteCount = 1,
                                   .modificationDate = asked.adding(-86'400.0 * 400),
                                   .ownerUserID = facts.currentUserID,
                                   .volumeIdentifier = "inside",
                                   .isReadable = true,
                                   .isCloudPlaceholder = false,
                                   .isInProjectRepository = false,
                                   .isBackupArtifact = false,
                                   .linkCount = 1};
        std::string all;
        for (const SafetyPolicyContext* context : {&open, &fenced}) {
            for (auto* memory : {&last, static_cast<decltype(&last)>(nullptr)}) {
                for (const auto hint : {std::optional<CleanupCategory>(),
                                        std::optional(CleanupCategory::exactDuplicate)}) {
                    const auto rated = policy.classify(item, {.categoryHint = hint,
                                                              .rules = rules,
                                                              .context = *context,
                                                              .now = asked,
                                                              .lastFolder = memory});
                    all += std::string(rawValue(rated.assessment.tier)).substr(0, 1);
                }
            }
        }
        return all;
    };
    // Safe, to review, protected: without a fence and with one, as a cache and as a copy.
    EXPECT_EQ(tiers("Cache/Cache_Data/f_00001_0"), "srsrsrsr");
    EXPECT_EQ(tiers("Cache/Cache_Data/index"), "srsrpppp");
    EXPECT_EQ(tiers("Cache/Cache_Data/chat-history_0"), "srsrpppp");
    EXPECT_EQ(tiers("GPUCache/data_1"), "srsrpppp");
    EXPECT_EQ(tiers("CachedData/1f/a.code"), "srsrpppp") << "nobody knows which build is current";
    EXPECT_EQ(tiers("User/chat.json").substr(4), "pppp");
}

} // namespace
} // namespace tidyro
