#include "StorageEngine/Rules/CleanupRule.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/PathText.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Rules/BuiltInRuleRegistry.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;

CleanupRule ruleAt(const FileURL& root,
                   CleanupRule::Authority authority = CleanupRule::Authority::builtIn) {
    return CleanupRule({.id = "user-caches",
                        .rootURL = root,
                        .category = CleanupCategory::regenerableCache,
                        .minimumAge = 0,
                        .isRegenerable = true,
                        .authority = authority});
}

TEST(BuiltInRuleRegistry, HoldsEveryRuleOnceInItsGroup) {
    std::map<std::string_view, std::size_t> sizes;
    for (const CleanupRuleGroup& group :
         BuiltInRuleRegistry::groupedSpecs(OperatingSystem::macOS)) {
        sizes[group.name] = group.specs.size();
    }
    EXPECT_EQ(sizes, (std::map<std::string_view, std::size_t>{{"userLibrary", 13},
                                                              {"appleDeveloper", 14},
                                                              {"packageManagers", 25},
                                                              {"infrastructure", 9},
                                                              {"aiTooling", 6},
                                                              {"applicationSupportCacheHosts", 18},
                                                              {"creativeSuites", 4}}));
    std::set<std::string_view> ids;
    std::set<std::string_view> paths;
    std::map<double, int> ages;
    int reviewed = 0;
    int highYield = 0;
    for (const CleanupRuleSpec& spec : BuiltInRuleRegistry::allSpecs(OperatingSystem::macOS)) {
        EXPECT_TRUE(ids.insert(spec.id).second) << spec.id;
        EXPECT_TRUE(paths.insert(spec.relativePath).second) << spec.relativePath;
        EXPECT_TRUE(mayBeAllowlistedForSafeCleanup(spec.category)) << spec.id;
        ++ages[spec.minimumAge / 86'400];
        reviewed += spec.alwaysNeedsReview ? 1 : 0;
        highYield += spec.isHighYield ? 1 : 0;
    }
    EXPECT_EQ(ids.size(), 89U);
    // The sums over the columns of the published table.
    EXPECT_EQ(ages,
              (std::map<double, int>{{3, 14}, {7, 13}, {14, 18}, {30, 32}, {60, 7}, {90, 5}}));
    EXPECT_EQ(reviewed, 13);
    EXPECT_EQ(highYield, 15);
    EXPECT_EQ(BuiltInRuleRegistry::title("cargo-registry-cache"), "Cargo registry cache");
    EXPECT_EQ(BuiltInRuleRegistry::title("npm-cache"), "npm cache");
    for (const auto& title : BuiltInRuleRegistry::titleOverrides()) {
        EXPECT_NE(BuiltInRuleRegistry::spec(title.id), nullptr) << title.id;
    }
}

TEST(BuiltInCleanupRules, AreBoundToAHomeWithTheAgeFloorApplied) {
    const TemporaryFolder home;
    home.file(".npm/_cacache/x");
    home.file("Library/Caches", "a file where a folder is expected");
    const FileURL url = FileURL::folder(home.path());
    const auto age = [&](CleanupAgeFloor floor) {
        const auto rules = BuiltInCleanupRules::scannableLocations(url, floor);
        EXPECT_EQ(rules.size(), 1U);
        EXPECT_EQ(rules.front().rootPath(), home / ".npm/_cacache");
        return rules.front().minimumAge() / 86'400;
    };
    EXPECT_EQ(age(CleanupAgeFloor::everything), 0);
    EXPECT_EQ(age(CleanupAgeFloor::recommended), 30);
    EXPECT_EQ(age(CleanupAgeFloor::ninetyDays), 90);
    EXPECT_EQ(age(CleanupAgeFloor::sixMonths), 182);
    EXPECT_EQ(age(CleanupAgeFloor::oneYear), 365);
    EXPECT_EQ(applied(CleanupAgeFloor::ninetyDays, 120 * 86'400.0), 120 * 86'400.0);
    EXPECT_EQ(applied(CleanupAgeFloor::recommended, -5), 0);
    const auto count = [&](OperatingSystem system) {
        return BuiltInCleanupRules::allLocations(url, CleanupAgeFloor::recommended, system).size();
    };
    EXPECT_EQ(BuiltInCleanupRules::currentUser(url), BuiltInCleanupRules::allLocations(url));
    EXPECT_EQ(count(OperatingSystem::macOS), 89U);
    EXPECT_EQ(count(OperatingSystem::linux_), 170U) << "but for the rows for each folder";
}

/// FNV-1a, by which a published table is compared as a whole.
std::uint64_t rowsDigest(std::span<const CleanupRuleSpec> rows) {
    std::string text;
    for (const CleanupRuleSpec& row : rows) {
        text += std::string(row.id) + "|" + std::string(row.relativePath) + "|" +
                std::string(rawValue(row.category)) + "|" +
                std::to_string(std::lround(row.minimumAge / 86'400)) +
                (row.isHighYield ? "|yes" : "|no") + (row.alwaysNeedsReview ? "|yes\n" : "|no\n");
    }
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    }
    return hash;
}

TEST(BuiltInRuleRegistry, HoldsTheRowsAsTheyArePublished) {
    const std::vector<std::tuple<std::string_view, std::size_t, std::uint64_t>> published{
        {"userLibrary", 13, 0xb8cd941597434399},
        {"appleDeveloper", 14, 0xa843ccd1c7115895},
        {"packageManagers", 25, 0xd63465ffab0d63b1},
        {"infrastructure", 9, 0x8cca7bc45e39b99f},
        {"aiTooling", 6, 0x8f4dc7d893979744},
        {"applicationSupportCacheHosts", 18, 0x29763c8137eb2d8b},
        {"creativeSuites", 4, 0x80f5ba3f0c60600},
        {"linuxBrowsers", 10, 0x4fe3582c032c23a},
        {"linuxDesktop", 20, 0xa096387f79f281fc},
        {"linuxDevelopers", 36, 0xef8967c0064cd5c7},
        {"linuxApplicationCaches", 17, 0x9a17cdd1743cac5c}};
    const auto groups = BuiltInRuleRegistry::groupedSpecs(OperatingSystem::linux_);
    const auto all = BuiltInRuleRegistry::allSpecs(OperatingSystem::linux_);
    ASSERT_EQ(groups.size(), published.size());
    std::size_t before = 0;
    std::set<std::string_view> ids;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const auto& [name, count, digest] = published[i];
        EXPECT_EQ(groups[i].name, name);
        EXPECT_EQ(groups[i].specs.size(), count);
        EXPECT_EQ(rowsDigest(groups[i].specs), digest) << name;
        EXPECT_EQ(groups[i].specs.data(), all.data() + before) << name;
        before += count;
        for (const CleanupRuleSpec& row : groups[i].specs) {
            EXPECT_TRUE(ids.insert(row.id).second) << row.id;
            EXPECT_TRUE(mayBeAllowlistedForSafeCleanup(row.category)) << row.id;
            EXPECT_EQ(row.onlyInCacheFolders, name == "linuxApplicationCaches") << row.id;
            EXPECT_EQ(row.builtHereMark.empty(), row.id != "linux-maven");
        }
    }
    EXPECT_EQ(all.size(), before);
    EXPECT_EQ(BuiltInRuleRegistry::spec("linux-bazel", OperatingSystem::macOS), nullptr);
}

TEST(BuiltInCleanupRules, MakeOneForEachFolderOfARowWithAStar) {
    const TemporaryFolder home;
    home.file(".var/app/org.gimp.GIMP/cache/x", "x");
    home.file(".var/app/a:b/data/x", "x");
    home.file(".var/app/a file", "x");
    home.folder("Documents/cache");
    home.link(".var/app/to elsewhere", "../../Documents");
    home.file("snap/notes/common/.cache/x", "x");
    const auto rules = BuiltInCleanupRules::allLocations(
        FileURL::folder(home.path()), CleanupAgeFloor::recommended, OperatingSystem::linux_);
    std::vector<std::string> made;
    for (const CleanupRule& rule : rules) {
        if (rule.id().find(':') == std::string::npos) continue;
        made.push_back(rule.id() + " " + rule.rootPath().substr(home.path().size()));
        EXPECT_TRUE(rule.alwaysNeedsReview());
    }
    EXPECT_EQ(made, (std::vector<std::string>{
                        "flatpak-caches:a:b /.var/app/a:b/cache",
                        "flatpak-caches:org.gimp.GIMP /.var/app/org.gimp.GIMP/cache",
                        "snap-caches:notes /snap/notes/common/.cache"}));
    for (const CleanupRule& rule : rules) {
        if (rule.id().find(':') == std::string::npos) continue;
        const auto read = fromJSON<CleanupRule>(toJSON(rule));
        ASSERT_TRUE(read);
        EXPECT_EQ(read->authority(), CleanupRule::Authority::unverified) << "whoever wrote it";
    }
    const auto isKnown = [](std::string_view id) {
        return BuiltInRuleRegistry::spec(id, OperatingSystem::linux_) != nullptr;
    };
    EXPECT_TRUE(isKnown("flatpak-caches:org.gimp.GIMP"));
    EXPECT_FALSE(isKnown("flatpak-caches:"));
    EXPECT_FALSE(isKnown("linux-bazel:x")) << "the row stands for one folder";
    EXPECT_EQ(BuiltInRuleRegistry::title("flatpak-caches:org.gnome-x"),
              "Flatpak caches: org.gnome-x");
}

TEST(BuiltInCleanupRules, GrantNothingThroughALinkThatLeadsAway) {
    const TemporaryFolder place;
    place.file("disk/home/Documents/thesis", "x");
    place.file("disk/home/.gem/cache/x", "x");
    place.link("disk/home/.npm", "Documents");
    place.link("disk/home/.bundle", "../../outside");
    place.file("outside/cache/x", "x");
    place.folder("disk/home/.cache");
    place.link("disk/home/.cache/pip", "../Documents");
    place.link("home", "disk/home"); // this one leads nowhere else
    const FileURL home = FileURL::folder(place / "home");
    const auto granted = [&](const char* name) {
        const FileURL url = FileURL::file(place / name);
        const auto rules = BuiltInCleanupRules::allLocations(home);
        return DeterministicSafetyPolicy::mostSpecificMatchingRule(url, rules)
            ->grantsSafeCleanupAuthority(url);
    };
    EXPECT_TRUE(granted("home/.gem/cache/x"));
    EXPECT_FALSE(granted("home/.npm/_cacache/not there yet"));
    EXPECT_FALSE(granted("home/.cache/pip/thesis"));
    EXPECT_FALSE(granted("home/.bundle/cache/x"));
}

TEST(CleanupRule, GrantsAuthorityOnlyWhereTheItemReallyLies) {
    const TemporaryFolder place;
    place.file("caches/app/file", "x");
    place.file("caches more/file", "x");
    place.file("documents/letter", "x");
    place.link("caches/leading out", "../documents");
    place.link("caches/a letter", "../documents/letter");
    place.link("caches/inside", "app");
    place.link("linked", "caches");
    const auto granted = [&](const CleanupRule& rule, std::string_view name) {
        const FileURL url = FileURL::file(place / name);
        FolderResolver folders;
        const bool grants = rule.grantsSafeCleanupAuthority(url);
        // Through the memory of a scan, which never asks about links themselves.
        if (name != "caches/a letter" && name != "caches/inside") {
            EXPECT_EQ(rule.grantsSafeCleanupAuthority(url, folders), grants) << name;
            EXPECT_EQ(rule.grantsSafeCleanupAuthority(url, folders), grants) << name;
        }
        return grants;
    };
    const CleanupRule rule = ruleAt(FileURL::folder(place / "caches"));
    EXPECT_TRUE(granted(rule, "caches"));
    EXPECT_TRUE(granted(rule, "caches/app/file"));
    EXPECT_TRUE(granted(rule, "caches/gone/already"));
    EXPECT_FALSE(granted(rule, "caches more/file"));
    EXPECT_FALSE(granted(rule, "documents/letter"));
    EXPECT_FALSE(granted(rule, "caches/leading out/letter"));
    EXPECT_FALSE(granted(rule, "caches/a letter"));
    EXPECT_FALSE(granted(rule, "caches/inside")) << "a link is not what it points to";
    EXPECT_FALSE(granted(rule, "caches/inside/file"));
    // A root that nothing is said of may be reached through a link: what is below it lies where it
    // says.
    EXPECT_TRUE(granted(ruleAt(FileURL::folder(place / "linked")), "linked/app/file"));
    EXPECT_FALSE(
        granted(ruleAt(FileURL::folder(place / "caches"), CleanupRule::Authority::unverified),
                "caches/app/file"));
    EXPECT_EQ(ruleAt(FileURL::folder(place / "caches/")).rootPrefix(), rule.rootPrefix());
}

TEST(CleanupRule, IsUsedAsTheHeadersShow) {
    const TemporaryFolder place;
    place.file(".npm/_cacache/index/x", "x");
    const FileURL home = FileURL::folder(place.path());
    const FileURL file = home.appending(".npm/_cacache/index/x");
    const CleanupRule rule({.id = "npm-cache",
                            .rootURL = home.appendingFolder(".npm/_cacache"),
                            .category = CleanupCategory::regenerableCache,
                            .minimumAge = 30 * 86'400.0,
                            .isRegenerable = true});
    const bool isGranted = rule.grantsSafeCleanupAuthority(file);
    EXPECT_TRUE(isGranted);
    std::vector<std::string> roots;
    for (const CleanupRule& location : BuiltInCleanupRules::scannableLocations(home)) {
        roots.push_back(location.rootPath());
    }
    EXPECT_EQ(roots, std::vector{rule.rootPath()});
}

TEST(CleanupRule, ReadsBackNoMoreTrustingThanItWas) {
    const CleanupRule rule = ruleAt(FileURL::folder("/home/ada/Library/Caches"));
    EXPECT_EQ(jsonText(toJSON(rule)),
              R"({"id":"user-caches","rootURL":"file:///home/ada/Library/Caches/",)"
              R"("category":"regenerableCache","minimumAge":0.0,"isRegenerable":true,)"
              R"("trust":"verifiedBuiltIn"})");
    EXPECT_EQ(fromJSON<CleanupRule>(toJSON(rule)), rule);

    JSON written = toJSON(rule);
    written["trust"] = "unverified";
    EXPECT_EQ(fromJSON<CleanupRule>(written)->authority(), CleanupRule::Authority::unverified);
    written["trust"] = "trust me";
    EXPECT_FALSE(fromJSON<CleanupRule>(written));
    written = toJSON(rule);
    written["id"] = "dot-cache"; // reviewed by the registry's word
    EXPECT_TRUE(fromJSON<CleanupRule>(written)->alwaysNeedsReview());
    written["id"] = "nobody's";
    EXPECT_TRUE(fromJSON<CleanupRule>(written)->alwaysNeedsReview());
}

TEST(CleanupRule, GrantsNoMoreAfterItWasReadBack) {
    const TemporaryFolder place;
    place.file("home/.gem/cache/x");
    place.file("home/Documents/_cacache/thesis");
    place.link("home/.npm", "Documents");
    place.link("linked", "home");
    const FileURL home = FileURL::folder(place / "linked");
    const auto grants = [](const CleanupRule& rule, const FileURL& file) {
        return rule.grantsSafeCleanupAuthority(file);
    };
    for (const CleanupRule& rule : BuiltInCleanupRules::allLocations(home)) {
        const auto read = fromJSON<CleanupRule>(toJSON(rule));
        ASSERT_TRUE(read);
        const FileURL file = FileURL::file(path::joined(rule.rootPath(), "thesis"));
        EXPECT_EQ(grants(*read, file), grants(rule, file)) << rule.id();
        EXPECT_EQ(*read == rule, rule.resolvedRootURL().has_value()) << rule.id();
    }
    const auto rules = BuiltInCleanupRules::allLocations(home);
    const auto gems = std::ranges::find(rules, "ruby-gem-cache", &CleanupRule::id);
    const auto npm = std::ranges::find(rules, "npm-cache", &CleanupRule::id);
    const auto gem = home.appending(".gem/cache/x");
    const auto thesis = home.appending(".npm/_cacache/thesis");
    EXPECT_TRUE(grants(*fromJSON<CleanupRule>(toJSON(*gems)), gem));
    EXPECT_FALSE(grants(*fromJSON<CleanupRule>(toJSON(*npm)), thesis));

    const auto readWith = [&](const char* key, const JSON& value) {
        JSON written = toJSON(*gems);
        written["rootURL"] = toJSON(FileURL::folder(place / "home/.gem/cache"));
        written[key] = value;
        const auto read = fromJSON<CleanupRule>(written);
        return read && read->authority() == CleanupRule::Authority::builtIn;
    };
    EXPECT_TRUE(readWith("minimumAge", 0.0));
    EXPECT_FALSE(readWith("rootURL", toJSON(FileURL::folder(place / "home/Documents"))));
    EXPECT_FALSE(readWith("rootURL", toJSON(FileURL::folder("/.gem/cache"))));
    EXPECT_FALSE(readWith("id", "npm-cache"));
    EXPECT_FALSE(readWith("id", "nobody's"));
    EXPECT_FALSE(readWith("category", "expiredLog"));

    const CleanupRule reviewed({.id = "ruby-gem-cache",
                                .rootURL = gems->rootURL(),
                                .category = gems->category(),
                                .minimumAge = 0,
                                .isRegenerable = true,
                                .alwaysNeedsReview = true});
    EXPECT_FALSE(grants(*fromJSON<CleanupRule>(toJSON(reviewed)), gem));
    const CleanupRule trusting({.id = npm->id(),
                                .rootURL = npm->rootURL(),
                                .category = npm->category(),
                                .minimumAge = npm->minimumAge(),
                                .isRegenerable = true});
    EXPECT_FALSE(trusting == *npm) << "one grants what lies behind the link, the other does not";
}

} // namespace
} // namespace tidyro
