#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/Observation/LiveDataDetector.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"
#include "StorageEngine/Rules/ReviewRequiredScope.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

constexpr double day = 86'400;
const FileURL home = FileURL::folder("/nowhere/ada");
const Timestamp now = Timestamp::since1970(1'800'000'000.0);

/// An old, readable file of the person's own; nothing about it is in doubt.
FileObservation fileAt(std::string_view place, double age = 400 * day) {
    const FileURL url = FileURL::file(place.starts_with('/') ? std::string(place)
                                                             : path::joined(home.path(), place));
    return {.id = {url.text()},
            .url = url,
            .kind = FileKind::regularFile,
            .byteCount = 10,
            .modificationDate = now.adding(-age),
            .ownerUserID = 501,
            .volumeIdentifier = "inside",
            .isReadable = true,
            .isCloudPlaceholder = false,
            .isInProjectRepository = false,
            .isBackupArtifact = false,
            .linkCount = 1};
}

SafetyPolicyFacts machine() {
    SafetyPolicyFacts facts = testing::quietMachine();
    facts.currentUserID = 501;
    facts.activeApplicationRoots = {home.appendingFolder("Library/Caches/Running")};
    facts.additionalProtectedRoots = {home.appendingFolder("Library/Caches/Kept")};
    facts.activelyGrowingPaths = {"/nowhere/ada/Library/Caches/growing"};
    facts.openByProcessPaths = {"/nowhere/ada/Library/Caches/open"};
    return facts;
}

struct Bench {
    DeterministicSafetyPolicy policy{home};
    std::vector<CleanupRule> rules = BuiltInCleanupRules::allLocations(home);
    SafetyPolicyContext context{machine()};

    CleanupCandidate rated(const FileObservation& observation,
                           std::optional<CleanupCategory> hint = std::nullopt) const {
        return policy.classify(
            observation, {.categoryHint = hint, .rules = rules, .context = context, .now = now});
    }
};

std::string told(const RiskAssessment& assessment) {
    std::string text(rawValue(assessment.tier));
    for (const EvidenceCode code : assessment.evidence.codes) {
        text += " " + std::string(rawValue(code));
    }
    return text + ": " + std::string(assessment.evidence.summary);
}

constexpr const char* safe =
    "safeToReclaim currentUserOwned inactive internalLocalVolume oldEnough regenerable "
    "verifiedBuiltInRule: A verified built-in rule identifies this as old, inactive, and "
    "regenerable.";
constexpr const char* reviewed =
    "reviewCarefully currentUserOwned inactive internalLocalVolume oldEnough regenerable "
    "userReviewRequired verifiedBuiltInRule: A verified built-in rule identifies this as old, "
    "inactive, and regenerable. Sessions, local models and container data always need your review.";
constexpr const char* reviewOnly =
    "This item is review-only and is never selected by Clean Safely.";

TEST(DeterministicSafetyPolicy, IsUsedAsItsHeaderShows) {
    const FileObservation observation = fileAt("Library/Caches/tool/old");
    const auto context = std::make_shared<const SafetyPolicyContext>(machine());
    std::vector<CleanupCandidate> suggested;
    const auto suggest = [&](const CleanupCandidate& one) { suggested.push_back(one); };

    const DeterministicSafetyPolicy policy(home);
    const auto rules = BuiltInCleanupRules::allLocations(home);
    const auto rated =
        policy.classify(observation, {.rules = rules, .context = *context, .now = now});
    if (rated.assessment.tier == RiskTier::safeToReclaim) suggest(rated);

    EXPECT_EQ(suggested.size(), 1U);
}

TEST(DeterministicSafetyPolicy, AsksForReviewWhereProcessesAreHidden) {
    const Bench bench;
    const FileObservation file = fileAt("Library/Caches/tool/old");
    const auto rated = [&](const SafetyPolicyContext& context, platform::FileUse use) {
        return bench.policy
            .classify(file, {.rules = bench.rules, .context = context, .now = now, .use = use})
            .assessment;
    };
    using enum platform::FileUse;
    const HiddenProcesses some{.applicationFolders = {home.appendingFolder(".gem")},
                               .ownVolume = "inside"};
    const SafetyPolicyContext hidden(machine(), {}, some);
    EXPECT_EQ(told(rated(bench.context, unknown)), safe);
    EXPECT_EQ(told(rated(hidden, free)), safe);
    EXPECT_EQ(told(rated(hidden, unknown)),
              "reviewCarefully currentUserOwned internalLocalVolume oldEnough regenerable "
              "userReviewRequired verifiedBuiltInRule: This is old and regenerable, but Tidyro "
              "runs in a container or sandbox, and a program outside may be using it.");
    EXPECT_EQ(rated(hidden.with(machine()), unknown), rated(hidden, unknown));
    for (const HiddenProcesses& other :
         {HiddenProcesses{.applicationFolders = {home}, .ownVolume = "inside"},
          HiddenProcesses{.applicationFolders = {}, .ownVolume = "another"},
          HiddenProcesses{.applicationFolders = {}}}) {
        EXPECT_EQ(rated(SafetyPolicyContext(machine(), {}, other), free), rated(hidden, unknown));
    }
    const auto read = fromJSON<SafetyPolicyContext>(toJSON(bench.context));
    EXPECT_EQ(rated(*read, free).tier, RiskTier::reviewCarefully) << "nobody knows by now";
}

TEST(DeterministicSafetyPolicy, ProtectsByTheFirstCheckThatFires) {
    struct Case {
        std::string place;
        std::function<void(FileObservation&)> change;
        std::string verdict;
    };
    // Each row would also fire later rows' checks where it can: the order is what is tested.
    const std::string personal = "Documents/Library/Caches/a.sqlite";
    const Case cases[] = {
        {personal,
         [](auto& o) {
             o.kind = FileKind::directory;
             o.isReadable = false;
         },
         "unknownPurpose: Only verified regular files may be cleanup candidates."},
        {personal, [](auto& o) { o.kind = FileKind::other; },
         "unknownPurpose: Only verified regular files may be cleanup candidates."},
        {personal,
         [](auto& o) {
             o.isReadable = false;
             o.ownerUserID = 0;
         },
         "unreadable: Unreadable items remain protected."},
        {personal,
         [](auto& o) {
             o.ownerUserID = 0;
             o.volumeIdentifier = "usb";
         },
         "ownershipUnverified: Current-user ownership could not be verified."},
        {personal, [](auto& o) { o.ownerUserID.reset(); },
         "ownershipUnverified: Current-user ownership could not be verified."},
        {personal,
         [](auto& o) {
             o.volumeIdentifier = "usb";
             o.isCloudPlaceholder = true;
         },
         "outsideInternalVolume: The item is not verified on the current user's internal local "
         "volume."},
        {personal, [](auto& o) { o.volumeIdentifier.reset(); },
         "outsideInternalVolume: The item is not verified on the current user's internal local "
         "volume."},
        {personal, [](auto& o) { o.isCloudPlaceholder = o.isInProjectRepository = true; },
         "cloudPlaceholder: Cloud placeholders remain protected and are never downloaded for "
         "cleanup."},
        {personal, [](auto& o) { o.isInProjectRepository = o.isBackupArtifact = true; },
         "projectRepository: Project repositories remain protected regardless of other evidence."},
        {personal, [](auto& o) { o.isBackupArtifact = true; },
         "backupArtifact: Backup data remains protected regardless of other evidence."},
        {"/Library/Caches/Documents/x",
         {},
         "protectedLocation: This location is outside Tidyro's cleanup authority."},
        {"Library/Caches/tool/.tidyro-0F0E0D0C-0B0A-0908-0706-050403020100/Documents/x",
         {},
         "protectedLocation: This location is outside Tidyro's cleanup authority."},
        {"Library/Caches/Kept/Documents/x",
         {},
         "protectedLocation: This location is outside Tidyro's cleanup authority."},
        {"Library/Caches/Running/Documents/x",
         {},
         "activeApplicationData: Data belonging to an active application remains protected."},
        {"Library/Caches/open",
         {},
         "openByProcess: A running process has this file open or is running it."},
        {personal,
         {},
         "personalLocation: Personal content remains protected from deterministic cleanup."},
        {"Library/Caches/DESKTOP/x",
         {},
         "personalLocation: Personal content remains protected from deterministic cleanup."},
        {"Library/Caches/des\u212Atop/x",
         {}, // lower-cased, the Kelvin sign is a k
         "personalLocation: Personal content remains protected from deterministic cleanup."},
        {"Library/Caches/data.sqlite-wal",
         {},
         "liveDataStore: This is a database write-ahead log. Removing it while the database exists "
         "can corrupt it."},
        {"Library/Caches/App/IndexedDB/000003.log",
         {},
         "liveDataStore: This is a database. Removing it loses whatever the owning app stored in "
         "it."},
        {"Library/Caches/growing",
         {},
         "activeGrowth: This grew while the scan was running, so something is writing to it right "
         "now."},
        {"Library/Application Support/Code/state",
         {},
         "protectedLocation: Application Support data is review-only and cannot be inferred as "
         "temporary."},
        {"Library/Developer/Xcode/DerivedData/App-x/SourcePackages/a/b.o",
         {},
         "protectedLocation: Xcode does not download or rebuild these again when part is missing, "
         "so removing some files breaks the project's builds."},
        {"Library/Developer/Xcode/DerivedData/CompilationCache.noindex/x",
         {},
         "protectedLocation: Xcode does not download or rebuild these again when part is missing, "
         "so removing some files breaks the project's builds."},
    };
    const Bench bench;
    for (const Case& each : cases) {
        FileObservation observation = fileAt(each.place);
        if (each.change) each.change(observation);
        const CleanupCandidate candidate = bench.rated(observation);
        EXPECT_EQ(told(candidate.assessment), "protected " + each.verdict) << each.place;
        EXPECT_EQ(bench.policy.protectedAssessment(observation, bench.context),
                  candidate.assessment)
            << each.place;
        EXPECT_EQ(candidate.observation, observation);
        EXPECT_FALSE(candidate.authorization);
    }
}

TEST(DeterministicSafetyPolicy, ClassifiesWhatNothingProtects) {
    struct Case {
        std::string place;
        double age; ///< days
        std::string verdict;
        CleanupCategory category = CleanupCategory::regenerableCache;
    };
    const std::string tooYoung =
        "protected insufficientAge: The item has not met the cleanup rule's minimum age.";
    const std::string noRule = "protected unknownPurpose: No verified cleanup rule establishes "
                               "that this item can be regenerated.";
    const Case cases[] = {
        {"Library/Caches/App/x", 400, safe},
        {"Library/Caches/App/x", 14, safe},
        {"Library/Caches/App/x", 13.999, tooYoung},
        {".npm/_cacache/x", 29, tooYoung},
        {".npm/_logs/x", 20, safe, CleanupCategory::expiredLog},
        {"Library/Caches/Google/Chrome/x", 3, safe}, // the deeper of two rules
        {"Library/Caches/pip/x", 20, tooYoung},      // likewise, and stricter
        {"Library/Application Support/Code/GPUCache/x", 7, safe},
        {".cache/pip/x", 400, safe},
        {".cache/tool/x", 400, reviewed}, // a rule that always asks
        {".cache/huggingface/hub/x", 400,
         "protected protectedLocation: Only its owner may shrink this store: hf cache ls, then hf "
         "cache rm or hf cache prune",
         CleanupCategory::unknown},
        {".docker/buildx/cache/x", 400, reviewed},
        {"Downloads/tool.dmg", 400,
         std::string("reviewCarefully userReviewRequired: ") + reviewOnly,
         CleanupCategory::download},
        {"Downloads/Caches/x", 400,
         std::string("reviewCarefully userReviewRequired: ") + reviewOnly,
         CleanupCategory::download},
        {"somewhere/x", 400, noRule, CleanupCategory::unknown},
        {"Library/Caching/x", 400, noRule, CleanupCategory::unknown},
        {"/Applications2/Caches/x", 400, noRule},
    };
    const Bench bench;
    for (const Case& each : cases) {
        const CleanupCandidate candidate = bench.rated(fileAt(each.place, each.age * day));
        EXPECT_EQ(told(candidate.assessment), each.verdict) << each.place;
        EXPECT_EQ(candidate.category, each.category) << each.place;
        EXPECT_FALSE(bench.policy.protectedAssessment(candidate.observation, bench.context))
            << "the rules decide: " << each.place;
    }

    FileObservation undated = fileAt(".npm/_cacache/x");
    undated.modificationDate.reset();
    EXPECT_EQ(told(bench.rated(undated).assessment), tooYoung);
    for (const auto category : {CleanupCategory::largeFile, CleanupCategory::applicationBundle}) {
        EXPECT_EQ(told(bench.rated(fileAt(".npm/_cacache/x"), category).assessment),
                  std::string("reviewCarefully userReviewRequired: ") + reviewOnly);
    }
    EXPECT_EQ(
        told(bench.rated(fileAt(".npm/_cacache/x"), CleanupCategory::exactDuplicate).assessment),
        std::string("reviewCarefully exactByteDuplicate userReviewRequired: ") + reviewOnly);
}

std::string tierOf(const Bench& bench, std::string_view place) {
    return std::string(rawValue(bench.rated(fileAt(place)).assessment.tier));
}

TEST(DeterministicSafetyPolicy, RatesEachRowOfLinuxAsItIsPublished) {
    Bench bench;
    bench.rules = BuiltInCleanupRules::allLocations(home, CleanupAgeFloor::recommended,
                                                    OperatingSystem::linux_);
    const auto groups = BuiltInRuleRegistry::groupedSpecs(OperatingSystem::linux_);
    for (const CleanupRuleGroup& group : groups.subspan(7)) {
        for (const CleanupRuleSpec& row : group.specs) {
            if (isForEachFolder(row)) continue; // no such folder is there
            const std::string root(row.relativePath);
            const char* expected = row.alwaysNeedsReview ? "reviewCarefully" : "safeToReclaim";
            const std::string in = row.onlyInCacheFolders ? "/Default/Code Cache/js/x" : "/a/x";
            EXPECT_EQ(tierOf(bench, root + in), expected) << row.id;
            const CleanupCandidate young = bench.rated(fileAt(root + in, row.minimumAge - 1));
            EXPECT_EQ(young.assessment.tier, RiskTier::protected_) << row.id;
            EXPECT_EQ(tierOf(bench, root + "2/a/x"),
                      root.starts_with(".cache/") ? "reviewCarefully" : "protected")
                << row.id;
            EXPECT_EQ(tierOf(bench, root + "/a/LocalHistory/x"), "protected") << row.id;
            if (!row.onlyInCacheFolders) continue;
            for (const char* place :
                 {"/x", "/Cache", "/Default/Preferences", "/Default/Extensions/a/cache/x",
                  "/User/workspaceStorage/Cache/x",
                  "/Default/Service Worker/CacheStorage/Cache/x"}) {
                EXPECT_EQ(tierOf(bench, root + place), "protected") << row.id << place;
            }
        }
    }
}

TEST(DeterministicSafetyPolicy, KeepsWhatPeopleAndStoresHaveInCaches) {
    Bench bench;
    bench.rules = BuiltInCleanupRules::allLocations(home, CleanupAgeFloor::recommended,
                                                    OperatingSystem::linux_);
    for (const char* place : {".cache/rclone/vfs/x",
                              ".cache/deno/location_data/a/x",
                              ".cache/evolution/mail/x",
                              ".cache/kioexec/x",
                              ".cache/obexd/x",
                              ".cache/zsh/history",
                              ".cache/bash/x",
                              ".cache/gdb_history",
                              ".cache/nvim/swap/x",
                              ".cache/vim/undo/x",
                              ".cache/emacs/a~",
                              ".cache/tool/x.swp",
                              ".cache/lm-studio/models/x",
                              ".cache/uv/wheels/x",
                              ".cache/huggingface/hub/x",
                              ".cache/torch/hub/x",
                              ".cache/pre-commit/x",
                              ".cache/ccache/x",
                              ".ollama/models/blobs/sha256-1",
                              ".local/share/pnpm/store/v3/x",
                              ".local/share/containers/storage/overlay/x",
                              ".local/share/flatpak/repo/x",
                              "go/pkg/mod/golang.org/x",
                              "miniconda3/pkgs/x",
                              ".cache/keys.kdbx",
                              ".cache/a/wallet.dat",
                              ".config/discord/downloads/x",
                              ".config/tool/Cache/x",
                              ".local/share/tool/downloads/x",
                              ".local/share/Steam/userdata/1/x",
                              ".var/app/org.gimp.GIMP/data/x"}) {
        EXPECT_EQ(tierOf(bench, place), "protected") << place;
    }
    // What is rooted in a store names just what may go.
    EXPECT_EQ(tierOf(bench, "go/pkg/mod/cache/download/x"), "safeToReclaim");
    EXPECT_EQ(tierOf(bench, ".local/share/containers/storage/tmp/x"), "reviewCarefully");
    EXPECT_EQ(tierOf(bench, ".ollama/models/blobs/partial/x"), "reviewCarefully");
    // Neighbours by their names.
    for (const char* place : {".cache/uv2/x", ".cache/rclones/x", ".cache/tool/history/x"}) {
        EXPECT_EQ(tierOf(bench, place), "reviewCarefully") << place;
    }
    EXPECT_EQ(tierOf(bench, ".cache/deno/gen/x"), "safeToReclaim");
    EXPECT_EQ(told(bench.rated(fileAt(".cache/uv/x")).assessment),
              "protected protectedLocation: Only uv may shrink its cache: uv cache prune");
}

TEST(DeterministicSafetyPolicy, TellsWhatMayGoFromItsNeighbours) {
    const Bench bench;
    struct Pair {
        const char* mayGo;
        const char* stays;
    };
    for (const auto& [mayGo, stays] :
         {Pair{".kube/cache/x", ".kube/config"}, Pair{".kube/http-cache/x", ".kube/http-cache2/x"},
          Pair{"go/pkg/mod/cache/download/x", "go/src/x"},
          Pair{"go/pkg/mod/cache/download/x", "go/pkg/mod/cache/lock"},
          Pair{".aws/cli/cache/x", ".aws/credentials"}, Pair{".gem/cache/x", ".gem/credentials"},
          Pair{".config/gcloud/logs/x", ".config/gcloud/credentials"},
          Pair{".npm/_cacache/x", ".npmrc"}, Pair{".npm/_logs/x", ".password-store/x"},
          Pair{"Library/Caches/x/y", "Library/Keychains/x"},
          Pair{"Library/Logs/x", "Library/LogsOfMine/x"},
          Pair{".bundle/cache/x", ".lmstudio/models/x"},
          Pair{".cache/terraform/x", ".terraform.d/x"},
          Pair{"Library/Application Support/Code/GPUCache/x",
               "Library/Application Support/Code/Cache2/x"}}) {
        EXPECT_EQ(tierOf(bench, mayGo), "safeToReclaim") << mayGo;
        EXPECT_EQ(tierOf(bench, stays), "protected") << stays;
    }
    // Even a rule that reached them could not let them go.
    Bench wide;
    wide.rules = {CleanupRule({.id = "all",
                               .rootURL = home,
                               .category = CleanupCategory::regenerableCache,
                               .minimumAge = 0,
                               .isRegenerable = true})};
    for (const char* kept : {".kube/config", ".aws/credentials", ".npmrc", ".password-store/x",
                             "Library/Keychains/x", "go/pkg/mod/x", ".ssh/id"}) {
        EXPECT_EQ(tierOf(wide, kept), "protected") << kept;
    }
    const std::string homePrefix = loweredHomePrefix(home);
    const auto needsReview = [&](std::string_view below) {
        return ReviewRequiredScope::touchesReviewRoot(path::joined(home.path(), below), homePrefix);
    };
    EXPECT_TRUE(needsReview(".lmstudio/models/x"));
    EXPECT_FALSE(needsReview(".lmstudio2/x"));
}

TEST(DeterministicSafetyPolicy, LeavesWhatToolsFetchedForThemselvesToReview) {
    const Bench bench;
    const auto rated = [&](const char* place, PartOf whole) {
        FileObservation file = fileAt(place);
        file.isInProjectRepository = true;
        return told(
            bench.policy
                .classify(
                    file,
                    {.rules = bench.rules, .context = bench.context, .now = now, .partOf = whole})
                .assessment);
    };
    const std::string fetched = rated(".cargo/git/checkouts/a/b/x", PartOf::toolCheckout);
    EXPECT_TRUE(fetched.starts_with("reviewCarefully ")) << fetched;
    EXPECT_TRUE(fetched.ends_with("A package manager fetched this repository for itself and "
                                  "fetches it again. Make sure that nothing in it is yours."));
    EXPECT_TRUE(rated(".cache/yay/a/x", PartOf::toolCheckout).starts_with("reviewCarefully "));
    for (const PartOf whole : {PartOf::nothing, PartOf::repository}) {
        EXPECT_TRUE(rated(".cargo/git/checkouts/a/b/x", whole).starts_with("protected projectRep"));
    }
    EXPECT_TRUE(rated("project/x", PartOf::toolCheckout).starts_with("protected unknownPurpose"));
}

TEST(DeterministicSafetyPolicy, FollowsTheEnvironment) {
    if (platform::operatingSystem() != OperatingSystem::linux_) GTEST_SKIP() << "of Linux";
    const testing::TemporaryFolder place;
    const FileURL ada = FileURL::folder(place.path());
    place.folder("var");
    ::setenv("XDG_CACHE_HOME", (place / "var").c_str(), 1);
    const DeterministicSafetyPolicy policy(ada);
    const auto rules = BuiltInCleanupRules::allLocations(ada);
    ::unsetenv("XDG_CACHE_HOME");
    const SafetyPolicyContext context(machine());
    const auto tier = [&](const char* name) {
        const auto rated =
            policy.classify(fileAt(place / name), {.rules = rules, .context = context, .now = now});
        return std::string(rawValue(rated.assessment.tier));
    };
    EXPECT_EQ(tier("var/tool/x"), "reviewCarefully");
    EXPECT_EQ(tier("var/rclone/x"), "protected");
    EXPECT_EQ(tier("var/huggingface/x"), "protected");
    EXPECT_EQ(tier("var/nvim/undo/x"), "protected");
    EXPECT_EQ(tier(".cache/go-build/x"), "protected") << "no rule is left there";
    const auto moved = std::ranges::find(rules, "linux-go-build", &CleanupRule::id);
    ASSERT_NE(moved, rules.end());
    EXPECT_EQ(moved->rootPath(), place / "var/go-build");
}

TEST(DeterministicSafetyPolicy, KeepsWhatWasBuiltHere) {
    const testing::TemporaryFolder place;
    place.file(".m2/repository/org/mine/lib/maven-metadata-local.xml", "x");
    place.file(".m2/repository/org/mine/lib/1.0/lib.jar", "x");
    place.file(".m2/repository/org/theirs/lib/1.0/lib.jar", "x");
    const FileURL ada = FileURL::folder(place.path());
    const DeterministicSafetyPolicy policy(ada);
    const auto rules = BuiltInCleanupRules::allLocations(ada, CleanupAgeFloor::recommended,
                                                         OperatingSystem::linux_);
    const SafetyPolicyContext context(machine());
    const auto tier = [&](const char* name) {
        return policy
            .classify(fileAt(place / name), {.rules = rules, .context = context, .now = now})
            .assessment.tier;
    };
    EXPECT_EQ(tier(".m2/repository/org/mine/lib/1.0/lib.jar"), RiskTier::protected_);
    EXPECT_EQ(tier(".m2/repository/org/theirs/lib/1.0/lib.jar"), RiskTier::reviewCarefully);
}

TEST(DeterministicSafetyPolicy, TrustsNoRuleFurtherThanItReaches) {
    Bench bench;
    const auto withRule = [&](CleanupRule::Options options) {
        bench.rules = {CleanupRule(std::move(options))};
        return told(bench.rated(fileAt("x/file")).assessment);
    };
    const CleanupRule::Options plain{.id = "x",
                                     .rootURL = home.appendingFolder("x"),
                                     .category = CleanupCategory::temporaryArtifact,
                                     .minimumAge = 0,
                                     .isRegenerable = true};
    EXPECT_EQ(withRule(plain), safe);
    auto changed = plain;
    changed.authority = CleanupRule::Authority::unverified;
    EXPECT_EQ(withRule(changed), "protected unverifiedRule: An unverified rule cannot grant "
                                 "cleanup eligibility.");
    changed = plain;
    changed.isRegenerable = false;
    EXPECT_EQ(withRule(changed), "protected unknownPurpose: The matching rule does not prove that "
                                 "this category is regenerable.");
    changed = plain;
    changed.category = CleanupCategory::generatedWork;
    EXPECT_EQ(withRule(changed), "protected unknownPurpose: The matching rule does not prove that "
                                 "this category is regenerable.");
}

TEST(DeterministicSafetyPolicy, TellsPlacesByTheirNames) {
    using Policy = DeterministicSafetyPolicy;
    const auto at = [](const char* path) { return FileURL::file(path); };
    EXPECT_TRUE(Policy::isPersonalProtected(at("/u/Documents/Caches/x")));
    EXPECT_FALSE(Policy::isPersonalProtected(at("/u/Library/Caches/x")));
    EXPECT_TRUE(Policy::isSystemProtected(at("/Applications")));
    EXPECT_TRUE(Policy::isSystemProtected(at("/Users/Shared/x")));
    EXPECT_FALSE(Policy::isSystemProtected(at("/Applications old/x")));
    EXPECT_FALSE(Policy::isSystemProtected(at("/Users/ada/Library/Caches/x")));
    EXPECT_FALSE(Policy::isApplicationSupport(at("/u/Library/Application Support/A/Code Cache/x")));
    EXPECT_TRUE(Policy::isApplicationSupport(at("/u/Library/Application Support/Cache/x")))
        << "the application's own folder may be called so";
    EXPECT_FALSE(Policy::isNonRegeneratingBuildStore(
        at("/u/library/developer/xcode/deriveddata/App/Build/SourcePackages/x")));

    const std::string prefix = loweredHomePrefix(home);
    for (const char* path : {"/", "/nowhere", "/nowhere/ada", "/nowhere/ada/.Cache",
                             "/nowhere/ada/.cache/huggingface", "/nowhere/ada/.codex/sessions/a"}) {
        EXPECT_TRUE(ReviewRequiredScope::touchesReviewRoot(path, prefix)) << path;
    }
    for (const char* path : {"/now", "/elsewhere/.docker", "/nowhere/ada/.dockers",
                             "/nowhere/ada/.cache/huggingface2", "/nowhere/adam/.docker"}) {
        EXPECT_FALSE(ReviewRequiredScope::touchesReviewRoot(path, prefix)) << path;
    }
}

TEST(ReviewRequiredScope, CapsWhatIsSafeByPlaceCategoryAndGroup) {
    using enum CleanupCategory;
    struct Case {
        const char* place;
        CleanupCategory category;
        std::optional<DiskGroup> group;
        bool isReviewed;
    };
    const RiskAssessment safeToGo = Bench().rated(fileAt(".npm/_cacache/x")).assessment;
    const RiskAssessment kept = Bench().rated(fileAt("somewhere/x")).assessment;
    for (const Case& each : {Case{".npm/_cacache/x", regenerableCache, {}, false},
                             {".npm/_cacache/x", expiredLog, DiskGroup::logs, false},
                             {".docker/x", regenerableCache, {}, true},
                             {".npm/_cacache/x", archivedConversation, {}, true},
                             {".npm/_cacache/x", generatedWork, {}, true},
                             {".npm/_cacache/x", applicationData, {}, true},
                             {".npm/_cacache/x", regenerableCache, DiskGroup::oldDownloads, true},
                             {".npm/_cacache/x", regenerableCache, DiskGroup::largeFiles, true}}) {
        const FileURL url = fileAt(each.place).url;
        EXPECT_EQ(told(ReviewRequiredScope::capped(safeToGo, url, each.category, home, each.group)),
                  each.isReviewed ? reviewed : safe)
            << each.place << " " << rawValue(each.category);
        EXPECT_EQ(ReviewRequiredScope::capped(kept, url, each.category, home, each.group), kept)
            << "what stays anyway is not made less strict";
    }
}

TEST(SafetyPolicyContext, ReadsBackWithWhatIsDerived) {
    SafetyPolicyFacts facts = machine();
    facts.openByProcessPaths.insert({"/nowhere/\xFF", "/file:///x", "/nowhere/\u00E9"});
    facts.activelyGrowingPaths.insert("/\xC3/\xA9");
    const SafetyPolicyContext context(facts);
    const JSON written = toJSON(context);
    EXPECT_EQ(written.begin().key(), "currentUserID");
    const auto read = fromJSONText<SafetyPolicyContext>(jsonText(written));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(*read, context) << "names that are no Unicode as well";
    EXPECT_TRUE(read->activeApplicationRootIndex().contains("/nowhere/ada/Library/Caches/Running"));

    const std::vector<std::string> roots{"/a/b", "/a", "/a-b", "/c/d", "/c/d/e", "/\xFF"};
    const RootPathIndex index{roots};
    for (const char* inside : {"/a", "/a/b", "/a/z/z", "/a-b/x", "/c/d/e/f", "/\xFF/x"}) {
        EXPECT_TRUE(index.contains(inside)) << inside;
    }
    for (const char* outside : {"/", "/a-", "/a0", "/c", "/c/e", "/c/d0", "/\xFE"}) {
        EXPECT_FALSE(index.contains(outside)) << outside;
    }
    const std::vector<std::string> everything{"/"};
    EXPECT_TRUE(RootPathIndex{everything}.contains("/any/thing"));
    EXPECT_FALSE(RootPathIndex().contains("/"));
}

/// Every condition of a safe verdict, said again in the plainest way.
bool mayBeSafe(const FileObservation& o, const std::vector<CleanupRule>& rules) {
    const SafetyPolicyFacts facts = machine();
    const std::string& path = o.url.path();
    const std::string low = lowercased(path);
    const auto in = [&](const std::string& root) {
        return path == root || path.starts_with(root + "/");
    };
    if (o.kind != FileKind::regularFile || !o.isReadable || o.isCloudPlaceholder ||
        o.isInProjectRepository || o.isBackupArtifact || o.ownerUserID != 501U ||
        o.volumeIdentifier != "inside" || !o.modificationDate) {
        return false;
    }
    for (const char* root : {"/System", "/Library", "/Applications", "/Users/Shared"}) {
        if (in(root)) return false;
    }
    for (const auto* roots : {&facts.activeApplicationRoots, &facts.additionalProtectedRoots}) {
        for (const FileURL& root : *roots) {
            if (in(root.path())) return false;
        }
    }
    if (facts.openByProcessPaths.contains(path) || facts.activelyGrowingPaths.contains(path)) {
        return false;
    }
    for (const char* name : {"/desktop/", "/documents/", "/movies/", "/music/", "/pictures/",
                             "/indexeddb/", "/databases/", "/leveldb/"}) {
        if ((low + "/").find(name) != std::string::npos) return false;
    }
    const std::string tools = "/nowhere/ada/.rustup/downloads"; // a rule's own root
    const auto belowTools = low.starts_with(tools + "/") ? low.substr(tools.size()) : low;
    if ((belowTools + "/").find("/downloads/") != std::string::npos) return false;
    for (const char* ending : {".sqlite", "-wal", ".ldb", ".db"}) {
        if (low.ends_with(ending)) return false;
    }
    const std::string support = "/library/application support/";
    if (const auto at = low.find(support); at != std::string::npos) {
        auto names = path::components(std::string_view(low).substr(at + support.size()));
        names.pop_back();                               // the file's own name is no folder's
        if (!names.empty()) names.erase(names.begin()); // nor does the application's count
        const bool isCache = std::ranges::any_of(names, [](std::string_view name) {
            return name == "gpucache" || name == "caches" || name == "peak files" ||
                   name == "media cache" || name == "media cache files";
        });
        if (!isCache) return false;
    }
    for (const char* root : {"/nowhere/ada/.cache/huggingface", "/nowhere/ada/.docker"}) {
        if (in(root)) return false;
    }
    const CleanupRule* deepest = nullptr;
    for (const CleanupRule& rule : rules) {
        if (in(rule.rootPath()) &&
            (deepest == nullptr || rule.rootPath().size() > deepest->rootPath().size())) {
            deepest = &rule;
        }
    }
    if (deepest != nullptr && deepest->onlyInCacheFolders()) {
        const auto begins = std::min(low.size(), deepest->rootPath().size() + 1);
        auto names = path::components(std::string_view(low).substr(begins));
        if (names.empty()) return false;
        names.pop_back();
        if (std::ranges::none_of(
                names, [](auto name) { return name == "gpucache" || name == "caches"; })) {
            return false;
        }
    }
    return deepest != nullptr && !deepest->alwaysNeedsReview() &&
           now.secondsSinceReference() - o.modificationDate->secondsSinceReference() >=
               deepest->minimumAge();
}

TEST(DeterministicSafetyPolicy, CallsNothingSafeThatMissesACondition) {
    const Bench bench;
    std::mt19937 random(20'261'121);
    const auto oneIn = [&](unsigned count) { return random() % count == 0; };
    const std::vector<std::string> names{
        "a",         "App",     "Caches",    "Documents", "GPUCache",     "IndexedDB",
        "x.sqlite",  "f-wal",   "open",      "growing",   "Kept",         "Running",
        "Downloads", "b.ldb",   "desktop",   "Google",    "Chrome",       "Code",
        "file.txt",  "Library", "Databases", "c.DB",      "SourceThings", "huggingface"};
    int safeCount = 0;
    for (int i = 0; i < 100'000; ++i) {
        const CleanupRule& near = bench.rules[random() % bench.rules.size()];
        std::string place = oneIn(12) ? "/Library" : oneIn(12) ? home.path() : near.rootPath();
        if (oneIn(40)) place += "2";
        for (auto depth = 1 + random() % 3; depth > 0; --depth) {
            place += "/" + names[random() % (oneIn(2) ? 2 : names.size())];
        }
        FileObservation o = fileAt(place, static_cast<double>(random() % 120) * day);
        if (oneIn(20)) o.kind = FileKind::other;
        if (oneIn(20)) o.isReadable = false;
        if (oneIn(20)) o.ownerUserID = oneIn(2) ? std::optional<std::uint32_t>() : 0U;
        if (oneIn(20)) o.volumeIdentifier = oneIn(2) ? std::optional<SharedText>() : "usb";
        if (oneIn(20)) o.isCloudPlaceholder = true;
        if (oneIn(20)) o.isInProjectRepository = true;
        if (oneIn(20)) o.isBackupArtifact = true;
        if (oneIn(20)) o.modificationDate.reset();
        const bool isSafe = bench.rated(o).assessment.tier == RiskTier::safeToReclaim;
        ASSERT_EQ(isSafe, mayBeSafe(o, bench.rules)) << o.url.path();
        safeCount += isSafe ? 1 : 0;
    }
    EXPECT_GT(safeCount, 10'000); // the generator makes what it is meant to make
}

/// Whoever rates folder by folder gets the verdict that each file gets by itself, also where a
/// file's own name is what keeps it, what makes it a place or what gives it another rule.
TEST(DeterministicSafetyPolicy, RatesAfterAnotherFileOfTheFolderAsItRatesAlone) {
    const Bench bench;
    std::vector<std::string> folders{"/nix", "/nix/store", "/opt", home.path()};
    for (const char* below : {"Library",
                              "go",
                              "go/pkg",
                              ".cache",
                              ".cache/uv",
                              ".cache/uv/swap",
                              ".cache/editor",
                              ".cache/editor/undo",
                              ".aws",
                              ".aws/cli/cache",
                              ".config",
                              ".config/gh",
                              ".docker",
                              ".config/google-chrome/Default",
                              ".config/google-chrome/Default/Cache",
                              ".local/share",
                              ".var/app/a",
                              ".var/app/a/cache",
                              ".var/app/a/cache/uv",
                              "snap/b/common/.cache/x",
                              "snap/chromium/common",
                              ".kube",
                              "LocalHistory",
                              ".npm/x.kdbx",
                              "plain"}) {
        folders.push_back(path::joined(home.path(), below));
    }
    std::vector<std::string> names{
        "file",       "wallet.dat", "Keys.KDBX", "x.swp",  "#x#",  "x~",      "_history",
        ".a_history", ".histfile",  "Cache",     "uv",     "swap", "backups", "config",
        "data",       "store",      "mod",       "models", "gh",   "nix",     "LocalHistory",
        "chromium",   "extensions", ".aws",      "kdb",    ".kdb"};
    for (const CleanupRule& rule : bench.rules) {
        folders.push_back(rule.rootPath());
        folders.push_back(rule.rootPath() + "/deep/inside");
        folders.emplace_back(path::parent(rule.rootPath()));
        names.emplace_back(path::lastComponent(rule.rootPath()));
    }
    FolderResolver resolver;
    DeterministicSafetyPolicy::LastFolder last;
    std::map<RiskTier, int> seen;
    for (const std::string& folder : folders) {
        for (const std::string& name : names) {
            const FileObservation file = fileAt(path::joined(folder, name));
            DeterministicSafetyPolicy::Question question{
                .rules = bench.rules, .context = bench.context, .now = now, .folders = &resolver};
            const CleanupCandidate alone = bench.policy.classify(file, question);
            question.lastFolder = &last;
            const CleanupCandidate inTurn = bench.policy.classify(file, question);
            ASSERT_EQ(told(inTurn.assessment), told(alone.assessment)) << file.url.path();
            ASSERT_EQ(inTurn.category, alone.category) << file.url.path();
            ++seen[alone.assessment.tier];
        }
    }
    for (const RiskTier tier : {RiskTier::safeToReclaim, RiskTier::reviewCarefully}) {
        EXPECT_GT(seen[tier], 1'000); // the files are those that it is about
    }
    // Another policy, and other rules, are asked anew.
    const FileObservation file = fileAt("Library/Caches/tool/old");
    const auto tierBy = [&](const DeterministicSafetyPolicy& policy,
                            std::span<const CleanupRule> rules) {
        return policy
            .classify(file,
                      {.rules = rules, .context = bench.context, .now = now, .lastFolder = &last})
            .assessment.tier;
    };
    EXPECT_EQ(tierBy(bench.policy, bench.rules), RiskTier::safeToReclaim);
    EXPECT_EQ(tierBy(bench.policy, {}), RiskTier::protected_);
}

/// What a tool keeps in its store by a name of its own may still be a history of the person's: a
/// rule about the store does not reach it.
TEST(DeterministicSafetyPolicy, KeepsHistoriesInStoresFromTheRulesOfTheStores) {
    const Bench bench;
    const CleanupRule rule({.id = "x",
                            .rootURL = home.appendingFolder(".cache/uv"),
                            .category = CleanupCategory::regenerableCache,
                            .minimumAge = 0,
                            .isRegenerable = true});
    const auto tier = [&](std::string_view place) {
        return bench.policy
            .classify(fileAt(place), {.rules = {&rule, 1}, .context = bench.context, .now = now})
            .assessment.tier;
    };
    EXPECT_EQ(tier(".cache/uv/wheels/x"), RiskTier::safeToReclaim);
    EXPECT_EQ(tier(".cache/uv/swap/x"), RiskTier::protected_);
}

} // namespace
} // namespace tidyro
