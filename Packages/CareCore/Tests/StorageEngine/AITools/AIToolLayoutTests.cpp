#include "StorageEngine/AITools/AIToolLayout.h"

#include <set>

#include <gtest/gtest.h>

#include "Base/PathText.h"

namespace tidyro {
namespace {

constexpr OperatingSystem bothSystems[] = {OperatingSystem::macOS, OperatingSystem::linux_};

std::vector<std::string> parts(std::string_view path) {
    const auto views = path::components(path);
    return {views.begin(), views.end()};
}

TEST(NamePatterns, MatchOneComponentAtATime) {
    const auto is = [](std::string_view pattern, std::string_view name) {
        return NamePattern::matches(pattern, name);
    };
    EXPECT_TRUE(is("*_[0-9s]", "f_0") && is("*_[0-9s]", "a_b_s") && is("*_[0-9s]", "_9"));
    EXPECT_FALSE(is("*_[0-9s]", "f_a") || is("*_[0-9s]", "f_0 ") || is("*_[0-9s]", "f_"));
    EXPECT_TRUE(is("[!.]*", "a.vsix"));
    EXPECT_FALSE(is("[!.]*", ".a") || is("[!.]*", ""));
    EXPECT_TRUE(is("git-??????", "git-aZ09_x"));
    EXPECT_FALSE(is("git-??????", "git-12345") || is("git-??????", "git-1234567"));
    EXPECT_TRUE(is("*.sqlite*", "logs_2.sqlite-wal") && is("*", "") && is("**", "a"));
    EXPECT_TRUE(is("[ab", "[ab") && is("[]x]", "]") && is("[a-]", "-"));
    EXPECT_FALSE(is("[ab", "a") || is("", "a") || is("a", ""));
    // Backtracking for every "*" would take longer than the age of the world.
    EXPECT_FALSE(is("*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", std::string(100'000, 'a')));

    const std::vector<std::string> deep{"*", "**"};
    EXPECT_FALSE(NamePattern::matches(deep, parts("a")));
    EXPECT_TRUE(NamePattern::matches(deep, parts("a/b")) &&
                NamePattern::matches(deep, parts("a/b/c/d")));
    const std::vector<std::string> logs{"*", "mcp-logs-*", "*"};
    EXPECT_TRUE(NamePattern::matches(logs, parts("p/mcp-logs-x/1.jsonl")));
    EXPECT_FALSE(NamePattern::matches(logs, parts("p/mcp-logs-x")) ||
                 NamePattern::matches(logs, parts("p/mcp-logs-x/1/2")));
}

TEST(AIToolLayouts, AreOnesThatTheRestCanRelyOn) {
    for (const OperatingSystem system : bothSystems) {
        std::set<std::string> ids;
        ASSERT_EQ(AIToolLayouts::all(system).size(), allCases<AIToolID>().size());
        for (const AIToolID tool : allCases<AIToolID>()) {
            const AIToolLayout& layout = AIToolLayouts::layout(tool, system);
            SCOPED_TRACE(layout.layoutVersion);
            EXPECT_EQ(layout.tool, tool);
            EXPECT_EQ(layout.layoutVersion.ends_with("-linux"), system == OperatingSystem::linux_);
            EXPECT_GE(layout.homeMarkers.size(), 4U);
            std::vector<const AIToolRecognizer*> rules;
            for (const auto& root : layout.candidateRoots) {
                for (const auto& rule : root.recognizers) rules.push_back(&rule);
                // A root inside protected state would need a rule that outweighs it.
                const std::string top = root.relativePath.substr(0, root.relativePath.find('/'));
                EXPECT_TRUE(!layout.protectedNames.contains(top) ||
                            root.relativePath == "plugins/.trash")
                    << root.relativePath;
                EXPECT_FALSE(layout.conversationTopLevelNames.contains(top));
            }
            for (const auto& store : layout.externalStores) {
                for (const auto& rule : store.recognizers) rules.push_back(&rule);
                EXPECT_EQ(store.protectedDecision, AIToolDecision::currentRuntime);
            }
            for (const AIToolRecognizer* rule : rules) {
                EXPECT_TRUE(ids.insert(rule->ruleID).second) << rule->ruleID;
                EXPECT_EQ(layout.recognizer(rule->ruleID)->recognizer, rule);
                EXPECT_FALSE(rule->pattern.empty() || rule->consequence.empty());
                const bool isGenerated = rule->group == AIToolArtifactGroup::generatedWork;
                EXPECT_EQ(isGenerated, !mayBeAllowlistedForSafeCleanup(rule->category));
            }
            EXPECT_FALSE(layout.recognizer("codex-cache-apps-tools ").has_value());
        }
    }
}

TEST(AIToolLayouts, NameWhatTheToolsKeep) {
    const auto& codex = AIToolLayouts::layout(AIToolID::codex, OperatingSystem::macOS);
    EXPECT_EQ(codex.layoutVersion, "codex-2026.09.27");
    EXPECT_EQ(codex.protectedNames.size(), 41U);
    EXPECT_EQ(codex.protectedTopLevelPatterns.size(), 20U);
    const auto& claude = AIToolLayouts::layout(AIToolID::claudeCode, OperatingSystem::linux_);
    EXPECT_EQ(claude.protectedNames.size(), 34U);
    EXPECT_EQ(claude.externalStores[0].kind.launcherRelativePath, ".local/bin/claude");
    const auto& onMac = AIToolLayouts::layout(AIToolID::vsCode, OperatingSystem::macOS);
    const auto& onLinux = AIToolLayouts::layout(AIToolID::vsCode, OperatingSystem::linux_);
    EXPECT_EQ(onMac.protectedNames.size(), 33U);
    EXPECT_EQ(onMac.homeRelativePath, "Library/Application Support/Code");
    EXPECT_EQ(onLinux.homeRelativePath, ".config/Code");
    EXPECT_EQ(onMac.runningAppMarkers,
              std::vector<std::string>{"/Visual Studio Code.app/Contents/"});
    const auto found = onMac.recognizer("vsCode-old-build-cache");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->recognizer->consequence,
              "These belong to versions of VS Code that are no longer installed. The current "
              "version's cache is kept.");
    EXPECT_EQ(found->root->buildFolders->productFiles[1],
              "~/Applications/Visual Studio Code.app/Contents/Resources/app/product.json");
    const auto& desktop = AIToolLayouts::layout(AIToolID::claudeDesktop, OperatingSystem::macOS);
    EXPECT_EQ(desktop.candidateRoots.size(), 3U) << "without builds and extensions";
}

TEST(AIToolLayouts, FindTheDeepestRoot) {
    const auto& claude = AIToolLayouts::layout(AIToolID::claudeCode, OperatingSystem::linux_);
    const auto root = [&](std::string_view path) -> std::string {
        const AIToolCandidateRoot* found = claude.rootOf(parts(path));
        return found == nullptr ? "none" : found->relativePath;
    };
    EXPECT_EQ(root("plugins/.trash/a"), "plugins/.trash");
    EXPECT_EQ(root("plugins/.trash"), "plugins/.trash");
    EXPECT_EQ(root("plugins"), "none");
    EXPECT_EQ(root("plugins/.trash2/a"), "none");
    EXPECT_EQ(root("Cache/a"), "none");
    EXPECT_EQ(root("cache/a/b"), "cache");
    EXPECT_EQ(root(""), "none");
}

} // namespace
} // namespace tidyro
