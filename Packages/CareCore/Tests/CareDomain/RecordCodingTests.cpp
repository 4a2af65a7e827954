// Every record as JSON: the keys and their order are a format that files are kept in.
#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/JSONText.h"
#include "Base/StableHash.h"
#include "CareDomain/CleanupApproval.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/ExactDuplicateGroup.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "CareDomain/SampleRecords.h"
#include "CareDomain/ScanReport.h"

namespace tidyro {
namespace {

using Kind = DecodingError::Kind;

template <class Record>
void expectError(const JSON& document, Kind kind, const std::string& path) {
    const auto read = fromJSON<Record>(document);
    ASSERT_FALSE(read) << document;
    EXPECT_EQ(read.error().kind, kind) << document;
    EXPECT_EQ(read.error().path, path) << document;
}

/// Whether a record comes back from its text, and from the same text with the keys turned round.
template <class Record>
void expectThereAndBack(const Record& record, const std::vector<std::string>& keys) {
    EXPECT_EQ(jsonTextOf(record), jsonText(toJSON(record)));
    const JSON document = toJSON(record);
    std::vector<std::string> written;
    for (const auto& entry : document.items()) written.push_back(entry.key());
    EXPECT_EQ(written, keys);
    JSON turned = {{"a key of a later version", true}};
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) turned[*key] = document[*key];
    for (const JSON& each : {document, turned}) {
        const auto read = fromJSONText<Record>(jsonText(each));
        ASSERT_TRUE(read) << read.error().description();
        EXPECT_EQ(*read, record) << each;
        EXPECT_EQ(stableHash(*read), stableHash(record));
    }
}

/// `keyList`: the keys in their order, a "?" behind those that may be missing.
template <class Record>
void check(const std::string& keyList) {
    SCOPED_TRACE(keyList);
    std::vector<std::string> keys;
    std::vector<std::string> required;
    std::istringstream words(keyList);
    for (std::string key; words >> key;) {
        const bool isOptional = key.ends_with('?');
        if (isOptional) key.pop_back();
        if (!isOptional) required.push_back(key);
        keys.push_back(key);
    }
    for (std::uint64_t seed = 1; seed <= 24; ++seed) { // as many as the largest enumeration has
        const auto full = testing::sample<Record>(seed);
        expectThereAndBack(full, keys);
        expectThereAndBack(testing::withoutOptionals(full), required);
    }
    const JSON document = toJSON(testing::sample<Record>());
    expectError<Record>(JSON::array({document}), Kind::typeMismatch, "");
    for (const std::string& key : keys) {
        JSON mistyped = document;
        mistyped[key] = JSON::array({nullptr});
        expectError<Record>(mistyped, Kind::typeMismatch, key);
        JSON missing = document;
        missing.erase(key);
        JSON empty = document;
        empty[key] = nullptr;
        if (std::ranges::count(required, key) == 1) {
            expectError<Record>(missing, Kind::missingKey, key);
            expectError<Record>(empty, Kind::typeMismatch, key);
        } else {
            EXPECT_TRUE(fromJSON<Record>(missing)) << key;
            EXPECT_EQ(fromJSON<Record>(missing), fromJSON<Record>(empty)) << key;
        }
    }
}

TEST(RecordCoding, EveryRecordComesBackUnchangedOrSaysWhyNot) {
    check<LocalItemID>("rawValue");
    check<FileObservation>("id url kind byteCount creationDate? modificationDate? ownerUserID? "
                           "volumeIdentifier? fileResourceIdentifier? isReadable "
                           "isCloudPlaceholder isInProjectRepository isBackupArtifact linkCount");
    check<FileFingerprint>("byteCount modificationDate? volumeIdentifier? fileResourceIdentifier?");
    check<ScanRoot>("id url label");
    check<CoverageGap>("url reason detail");
    check<ScanReport>("roots items coverageGaps startedAt completedAt");
    check<ExactDuplicateGroup>("contentDigest byteCountPerItem members");
    check<ReclaimGoal>("byteCount purpose?");
    check<CleanupEvidence>("codes summary");
    check<RiskAssessment>("tier evidence");
    check<CleanupCandidate>("observation category assessment authorization?");
    check<ProofCard>("category riskTier evidence byteCount recoveryMethod");
    check<CleanupPlanEntry>("candidateID sourceURL fingerprint proofCard approvalRequirement "
                            "authorization?");
    check<CleanupPlan>("id goal entries createdAt expiresAt mode");
    check<CleanupApproval>("planID approvedCandidateIDs itemLevelApprovedCandidateIDs approvedAt");
    check<PermanentCleanupAcknowledgement>("planID itemCount byteCount acknowledgedAt");
    check<CleanupReceiptEntry>("candidateID originalURL resultingTrashURL? byteCount disposition "
                               "failureDescription?");
    check<CleanupReceipt>("id planID entries createdAt retainUntil actuallyReclaimedByteCount?");
}

TEST(RecordCoding, SaysWhereADeepFaultLies) {
    auto plan = testing::sample<CleanupPlan>();
    plan.entries[1].authorization = {authorization::DiskItem{.itemURL = FileURL::file("/a")}};
    struct Damage {
        std::string pointer;
        JSON value;
        Kind kind;
        std::string path;
    };
    for (const auto& [pointer, value, kind, path] :
         std::vector<Damage>{{"/mode", "Permanent", Kind::dataCorrupted, "mode"},
                             {"/goal/byteCount", -1, Kind::typeMismatch, "goal.byteCount"},
                             {"/entries/0/proofCard/riskTier", "protected_", Kind::dataCorrupted,
                              "entries.proofCard.riskTier"},
                             {"/entries/0/proofCard/evidence/codes/1", "oldenough",
                              Kind::dataCorrupted, "entries.proofCard.evidence.codes"},
                             {"/entries/1/authorization/builtInRule", JSON::object(),
                              Kind::typeMismatch, "entries.authorization"},
                             {"/entries/1/authorization/diskItem/itemURL", "https:///a",
                              Kind::dataCorrupted, "entries.authorization.diskItem.itemURL"}}) {
        JSON damaged = toJSON(plan);
        damaged[JSON::json_pointer(pointer)] = value;
        expectError<CleanupPlan>(damaged, kind, path);
    }
}

} // namespace
} // namespace tidyro
