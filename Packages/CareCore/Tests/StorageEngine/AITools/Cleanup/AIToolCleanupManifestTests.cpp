#include "StorageEngine/AITools/Cleanup/AIToolCleanupManifest.h"

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONText.h"
#include "Platform/Machine/SHA256.h"
#include "ToolHomes.h"

namespace tidyro {
namespace {

using testing::ToolHomes;
using Mode = CleanupExecutionMode;
using Reason = AIToolVeto::Reason;

std::set<std::string> namesIn(const AIToolCleanupManifest& manifest) {
    std::set<std::string> names;
    for (const auto& operation : manifest.operations) {
        for (const auto& entry : operation.entries) names.emplace(entry.url.lastComponent());
    }
    return names;
}

const AIToolRuleFinding& findingOf(const AIToolAuditReport& report, std::string_view rule) {
    return *std::ranges::find(report.ruleFindings, rule, &AIToolRuleFinding::ruleID);
}

TEST(AIToolCleanupManifest, HoldsExactlyWhatIsTickedAndEligible) {
    ToolHomes made;
    const ToolHomes::Program program(made);
    const AIToolAuditReport report = program.report(0, made.now);
    auto selection = AIToolCleanupSelection::recommended(report);
    EXPECT_EQ(selection.disposableRuleIDs,
              (std::set<std::string>{"codex-cache-apps-tools", "codex-tmp-git-scratch"}));
    EXPECT_TRUE(selection.reviewedGeneratedKeys.empty());
    const auto make = [&] {
        return AIToolCleanupRunner::makeManifest(report, selection, made.now);
    };

    EXPECT_EQ(namesIn(*make()), (std::set<std::string>{"head", "list.json", "one", "two"}));
    const auto& scratch = findingOf(report, "codex-tmp-git-scratch");
    const auto& images = findingOf(report, "codex-generated-images");
    selection.excludedKeys = {scratch.key(scratch.artifacts.front()), "nobody's key"};
    selection.disposableRuleIDs.insert({"nobody's rule", "codex-generated-images"});
    selection.reviewedGeneratedKeys = {"nobody's key either"};
    EXPECT_EQ(namesIn(*make()), (std::set<std::string>{"list.json", "one", "two"}));

    selection.reviewedGeneratedKeys = {images.key(images.artifacts.front())};
    selection.disposableMode = Mode::permanent;
    const auto both = make();
    ASSERT_EQ(both->operations.size(), 2);
    EXPECT_EQ(both->operations[0].mode, Mode::permanent);
    EXPECT_EQ(both->operations[1].mode, Mode::recoverable);
    EXPECT_EQ(both->operations[1].entries.front().ruleID, "codex-generated-images");
    EXPECT_EQ(both->itemCount(), 4);
    EXPECT_EQ(both->expiresAt, made.now.adding(600));

    selection.disposableRuleIDs.clear();
    selection.generatedWorkMode = Mode::permanent;
    EXPECT_EQ(make().error(), AIToolCleanupError::permanentRequiresDisposable);
    selection.reviewedGeneratedKeys.clear();
    EXPECT_EQ(make().error(), AIToolCleanupError::nothingSelected);
    AIToolAuditReport otherLayout = report;
    otherLayout.layoutVersion = "codex-1999";
    EXPECT_FALSE(AIToolCleanupRunner::makeManifest(
        otherLayout, AIToolCleanupSelection::recommended(report), made.now));
}

TEST(AIToolCleanupManifest, LeavesOutWhatTheLastLookOrAFenceHolds) {
    ToolHomes made;
    made.place.file(ToolHomes::scratch + "objects/cc/old-session-copy", "anything");
    made.place.file(ToolHomes::scratch + "objects/cc/data", "{\"messages\":[{\"role\":\"user\"}]}");
    made.place.file(ToolHomes::scratch + "fenced/file", "anything");
    made.place.link("way", made.place / (ToolHomes::scratch + "fenced"));
    const ToolHomes::Program program(made);
    const AIToolAuditReport report = program.report(0, made.now);
    AIToolCleanupLeftOut leftOut;
    const std::vector<FileURL> fences{FileURL::folder(made.place / "way")};
    const auto manifest =
        AIToolCleanupManifest::make(report, AIToolCleanupSelection::recommended(report), made.now,
                                    {.fenceRoots = fences, .leftOut = &leftOut});
    ASSERT_TRUE(manifest);
    EXPECT_EQ(namesIn(*manifest), (std::set<std::string>{"head", "list.json", "one", "two"}));
    EXPECT_EQ(leftOut.vetoed[Reason::tellingName].count, 1);
    EXPECT_EQ(leftOut.vetoed[Reason::tellingContents].count, 1);
    EXPECT_EQ(leftOut.fenced.count, 1);
    EXPECT_EQ(leftOut.lines().size(), 3);
    EXPECT_EQ(leftOut.lines()[0],
              "1 item (8 bytes) left out: the name speaks of a conversation or a credential.");

    const std::vector<FileURL> all{FileURL::folder(made.place.path())};
    const auto none =
        AIToolCleanupManifest::make(report, AIToolCleanupSelection::recommended(report), made.now,
                                    {.fenceRoots = all, .leftOut = &leftOut});
    EXPECT_EQ(none.error(), AIToolCleanupError::nothingSelected);
    EXPECT_EQ(leftOut.fenced.count, 7) << "told although there is no manifest";
}

TEST(AIToolCleanupManifest, RemovesForGoodOnlyWhatRestsOnDocumentedRulesInPlainPlaces) {
    ToolHomes made;
    const std::string logs = "home/.cache/claude-cli-nodejs/project/mcp-logs-a/";
    made.place.file("home/.claude/settings.json", "{}");
    made.place.folder("home/.claude/projects");
    made.place.file(logs + "log.jsonl", "{\"sessionId\":1}");
    made.place.file("home/.claude/debug/today.txt", "a log");
    {
        const ToolHomes::Program program(made);
        const AIToolAuditReport report = program.report(1, made.now);
        auto selection = AIToolCleanupSelection::recommended(report);
        EXPECT_FALSE(selection.disposableRuleIDs.contains("claude-mcp-logs"));
        selection.disposableRuleIDs.insert("claude-mcp-logs");
        const auto make = [&](AIToolCleanupLeftOut* leftOut) {
            return AIToolCleanupManifest::make(report, selection, made.now, {.leftOut = leftOut});
        };
        EXPECT_EQ(namesIn(*make(nullptr)), (std::set<std::string>{"log.jsonl", "today.txt"}));
        selection.disposableMode = Mode::permanent;
        AIToolCleanupLeftOut leftOut;
        EXPECT_EQ(namesIn(*make(&leftOut)), std::set<std::string>{"today.txt"});
        EXPECT_EQ(leftOut.forTrashOnly.count, 1);
    }
    // A home in a place that always asks for a person's look.
    made.place.file("home/.cache/huggingface/codex/config.toml");
    made.place.folder("home/.cache/huggingface/codex/sessions");
    made.place.file("home/.cache/huggingface/codex/.tmp/git-aBcDeF/file", "scratch");
    ToolHomes::Program program(made);
    const AIToolHomeDiscovery discovery{.userHome = made.userHome()};
    const auto home =
        discovery.validate(FileURL::folder(made.place / "home/.cache/huggingface/codex"),
                           AIToolID::codex, AIToolHome::Source::custom);
    ASSERT_TRUE(home);
    const auto report = program.auditor.audit(*home, made.now);
    ASSERT_TRUE(report);
    auto selection = AIToolCleanupSelection::recommended(*report);
    const auto make = [&](AIToolCleanupLeftOut* leftOut) {
        return AIToolCleanupManifest::make(*report, selection, made.now, {.leftOut = leftOut});
    };
    AIToolCleanupLeftOut leftOut;
    EXPECT_FALSE(make(&leftOut));
    EXPECT_EQ(leftOut.needingReview.count, 1);
    const auto& scratch = findingOf(*report, "codex-tmp-git-scratch");
    selection.reviewedGeneratedKeys = {scratch.key(scratch.artifacts.front())};
    EXPECT_TRUE(make(nullptr)) << "somebody looked at it";
    selection.disposableMode = Mode::permanent;
    EXPECT_FALSE(make(nullptr));
}

TEST(AIToolCleanupManifest, IsAnotherOneWithAnyOtherValue) {
    ToolHomes made;
    made.place.file(ToolHomes::scratch + "\xff", "no text");
    const ToolHomes::Program program(made);
    const AIToolAuditReport report = program.report(0, made.now);
    const auto manifest = *AIToolCleanupRunner::makeManifest(
        report, AIToolCleanupSelection::recommended(report), made.now);
    const auto approval = AIToolCleanupApproval::approve(manifest, made.now);
    EXPECT_TRUE(approval.matches(manifest));
    platform::SHA256 hash;
    const std::string text = jsonTextOf(manifest);
    hash.update(std::as_bytes(std::span(text)));
    EXPECT_EQ(approval.digest, platform::hexText(hash.finish()));
    const auto differs = [&](const std::function<void(AIToolCleanupManifest&)>& change) {
        AIToolCleanupManifest other = manifest;
        change(other);
        return other.digest() != manifest.digest() && !approval.matches(other);
    };
    using Manifest = AIToolCleanupManifest;
    EXPECT_TRUE(differs([](Manifest& one) { one.id = {}; }));
    EXPECT_TRUE(differs([](Manifest& one) { one.tool = AIToolID::aider; }));
    EXPECT_TRUE(differs([](Manifest& one) { one.layoutVersion += "x"; }));
    EXPECT_TRUE(differs([](Manifest& one) { ++one.home.inode; }));
    EXPECT_TRUE(differs([](Manifest& one) { one.operations[0].mode = Mode::permanent; }));
    EXPECT_TRUE(differs([](Manifest& one) { ++one.operations[0].entries[0].byteCount; }));
    EXPECT_TRUE(differs([](Manifest& one) { one.operations[0].entries[0].ruleID = "x"; }));
    EXPECT_TRUE(differs([](Manifest& one) {
        auto& seen = one.operations[0].candidates[0].observation;
        seen.modificationDate = seen.modificationDate->adding(1e-6);
    }));
    EXPECT_TRUE(differs([](Manifest& one) {
        for (auto& entry : one.operations[0].entries) {
            if (entry.url.lastComponent() == "\xff") {
                entry.url = entry.url.parent().appending("\xfe");
            }
        }
    })) << "two names that are no text are two names";

    const auto lines = manifest.manifestLines(2);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[2], "and 3 more items, 34 bytes");
    const auto all = manifest.manifestLines();
    EXPECT_EQ(all.size(), 5);
    EXPECT_TRUE(std::ranges::any_of(
        all, [](const std::string& line) { return line.ends_with("/\\xFF, 7 bytes"); }));
}

TEST(AIToolCleanupBatch, HasOneManifestForEachHomeWithAnythingSelected) {
    ToolHomes made;
    const ToolHomes::Program program(made);
    const std::vector<AIToolAuditReport> reports{program.report(0, made.now),
                                                 program.report(1, made.now)};
    const auto& images = findingOf(reports[0], "codex-generated-images");
    AIToolCleanupBatch::ByHome<AIToolCleanupSelection> selections;
    selections[program.homes[0]].reviewedGeneratedKeys = {images.key(images.artifacts.front())};
    auto batch = AIToolCleanupBatch::recommended(
        {.reports = reports, .selections = selections, .mode = Mode::permanent, .now = made.now});
    ASSERT_EQ(batch.manifests.size(), 2);
    EXPECT_EQ(batch.manifests[0].operations[0].mode, Mode::recoverable) << "made for a person";
    EXPECT_EQ(batch.manifests[1].tool, AIToolID::cursor);
    EXPECT_EQ(batch.manifests[1].operations[0].mode, Mode::permanent);
    EXPECT_EQ(batch.itemCount(), 3);
    EXPECT_EQ(batch.byteCount(), 21);
    EXPECT_EQ(batch.expiresAt(), made.now.adding(600));
    EXPECT_EQ(batch.toolBytesBefore.at(program.homes[1]),
              reports[1].totalIncludingStoresByteCount());
    selections[program.homes[0]] = {};
    batch = AIToolCleanupBatch::recommended(
        {.reports = reports, .selections = selections, .mode = Mode::permanent, .now = made.now});
    EXPECT_EQ(batch.manifests.size(), 1);
}

} // namespace
} // namespace tidyro
