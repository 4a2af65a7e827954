#include "StorageEngine/AITools/AIToolAuditor.h"

#include <filesystem>
#include <set>

#include <gtest/gtest.h>

#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "Support/OtherCircumstances.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryFolder;

/// A home on the disk with an auditor for it. All files are a moment old; the audit is made as if
/// ten days had passed.
struct Audited {
    TemporaryFolder place;
    AIToolHomeDiscovery discovery{.userHome = FileURL::folder(place / "home")};
    platform::testing::FakeVolumes volumes =
        platform::testing::FakeVolumes::withOneAt(place.path());
    StaticToolActivityProvider activity{{}};
    Timestamp now = Timestamp::now().adding(10 * AIToolAgePolicy::minAge);
    SafetyPolicyFacts machine = testing::quietMachine();
    bool hasContext = true;
    std::size_t maxEntries = AIToolWalker::maxEntries;

    Audited() {
        for (const char* marker : {"config.toml", "auth.json", "sessions/a.jsonl"}) {
            place.file(std::string("home/.codex/") + marker, "state");
        }
    }
    [[nodiscard]] AIToolHome home(AIToolID tool = AIToolID::codex,
                                  const char* name = "home/.codex") const {
        return discovery
            .validate(FileURL::folder(place / name), tool, AIToolHome::Source::conventional)
            .value();
    }
    [[nodiscard]] SafetyPolicyContext context() const { return SafetyPolicyContext(machine); }
    [[nodiscard]] std::expected<AIToolAuditReport, AIToolWalker::Error>
    audit(const AIToolHome& of, const CancelToken& cancel = {}) {
        const AIToolAuditor auditor(
            {.activityProvider = activity,
             .volumes = volumes,
             .freshContext = [&]() -> std::shared_ptr<const SafetyPolicyContext> {
                 return hasContext ? std::make_shared<const SafetyPolicyContext>(context())
                                   : nullptr;
             },
             .maxEntries = maxEntries});
        return auditor.audit(of, now, cancel);
    }
};

/// "rule: path path; rule: path" of all that may go.
std::string eligible(const AIToolAuditReport& report) {
    std::string all;
    for (const AIToolRuleFinding& finding : report.ruleFindings) {
        if (finding.artifacts.empty()) continue;
        all += finding.ruleID + ":";
        for (const AIToolArtifact& artifact : finding.artifacts) all += " " + artifact.relativePath;
        all += "; ";
    }
    return all;
}

TEST(AIToolAudits, MeasureAHomeAndRebuildItsCandidates) {
    Audited made;
    made.place.file("home/.codex/cache/codex_apps_tools/a.json", "12345");
    made.place.file("home/.codex/cache/codex_apps_tools/b.json", "123");
    made.place.file("home/.codex/cache/codex_apps_tools/b.txt", "1");
    made.place.file("home/.codex/.tmp/git-abcdef/.git/HEAD", "ref");
    made.place.file("home/.codex/generated_images/a b\xff.png", "image");
    made.place.file("home/.cache/codex-runtimes/codex-runtime-install-abcdef/x", "1234567");
    const AIToolHome home = made.home();
    const auto report = made.audit(home).value();
    EXPECT_EQ(eligible(report), "codex-cache-apps-tools: cache/codex_apps_tools/a.json "
                                "cache/codex_apps_tools/b.json; "
                                "codex-tmp-git-scratch: .tmp/git-abcdef/.git/HEAD; "
                                "codex-generated-images: generated_images/a b\xff.png; "
                                "codex-runtime-install-staging: codex-runtime-install-abcdef/x; ");
    EXPECT_EQ(report.fileCount, 8U);
    EXPECT_EQ(report.totalLogicalByteCount, 32U);
    EXPECT_EQ(report.totalIncludingStoresByteCount(), 39U);
    EXPECT_EQ(report.eligibleByteCount(), 23U);
    EXPECT_EQ(report.eligibleDisposableByteCount(), 18U);

    const AIToolClassifier classifier({.minimumAge = report.minimumAge,
                                       .context = AIToolClassifier::context(home, made.context()),
                                       .activity = {},
                                       .now = made.now});
    FileObserver observer(home.userHome, made.volumes);
    std::set<std::string> keys;
    for (const AIToolRuleFinding& finding : report.ruleFindings) {
        for (const AIToolArtifact& artifact : finding.artifacts) {
            const FileURL url = finding.url(artifact);
            const auto rated =
                classifier.classify(observer.observation(url).value(), home.locate(url).value(),
                                    {.statusChangeDate = AIToolClassifier::statusChangeDate(url)});
            EXPECT_EQ(report.candidate(artifact, finding), rated.candidate) << url.text();
            EXPECT_TRUE(keys.insert(finding.key(artifact)).second);
        }
    }
    EXPECT_EQ(keys.size(), 5U);
}

} // namespace
} // namespace tidyro
