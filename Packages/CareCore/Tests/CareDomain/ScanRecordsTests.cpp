#include <cstdint>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "CareDomain/ExactDuplicateGroup.h"
#include "CareDomain/FileFingerprint.h"
#include "CareDomain/SampleRecords.h"
#include "CareDomain/ScanReport.h"

namespace tidyro {
namespace {

TEST(FileFingerprint, MatchesWhatAgreesInAllFour) {
    using Change = void (*)(FileObservation&);
    const auto seen = testing::sample<FileObservation>();
    const FileFingerprint fingerprint = FileFingerprint::fromObservation(seen);
    auto another = testing::sample<FileObservation>(100);
    another.byteCount = seen.byteCount;
    another.modificationDate = seen.modificationDate;
    another.volumeIdentifier = seen.volumeIdentifier;
    another.fileResourceIdentifier = seen.fileResourceIdentifier;
    EXPECT_TRUE(fingerprint.matches(another));
    const std::vector<Change> changes{
        [](FileObservation& o) { --o.byteCount; },
        [](FileObservation& o) { o.modificationDate = o.modificationDate->adding(0.000'001); },
        [](FileObservation& o) { o.modificationDate = std::nullopt; },
        [](FileObservation& o) {
            o.volumeIdentifier = SharedText::made(std::string(*o.volumeIdentifier) + ' ');
        },
        [](FileObservation& o) { o.volumeIdentifier = std::nullopt; },
        [](FileObservation& o) { *o.fileResourceIdentifier += '0'; },
        [](FileObservation& o) { o.fileResourceIdentifier = std::nullopt; }};
    for (std::size_t i = 0; i < changes.size(); ++i) {
        FileObservation changed = seen;
        changes[i](changed);
        EXPECT_FALSE(fingerprint.matches(changed)) << i;
        EXPECT_FALSE(FileFingerprint::fromObservation(changed).matches(seen)) << i;
    }
    const FileObservation bare = testing::withoutOptionals(seen);
    EXPECT_TRUE(FileFingerprint::fromObservation(bare).matches(bare));
}

TEST(ScanReport, AddsUpWithoutWrapping) {
    auto report = testing::sample<ScanReport>();
    report.items.resize(2);
    report.items[0].byteCount = 5;
    report.items[1].byteCount = UINT64_MAX - 6;
    EXPECT_EQ(report.observedByteCount(), UINT64_MAX - 1);
    report.items.insert(report.items.end(), 2, report.items[0]);
    EXPECT_EQ(report.observedByteCount(), UINT64_MAX);
    report.items.clear();
    EXPECT_EQ(report.observedByteCount(), 0U);
}

TEST(ExactDuplicateGroup, KeepsOneCopy) {
    struct Case {
        std::size_t members;
        std::uint64_t bytesEach;
        std::uint64_t reclaimable;
    };
    for (const auto& [members, bytesEach, reclaimable] :
         {Case{0, 10, 0}, Case{1, 10, 0}, Case{2, UINT64_MAX, UINT64_MAX}, Case{3, 10, 20},
          Case{4, UINT64_MAX / 3, UINT64_MAX}, Case{5, UINT64_MAX / 3, UINT64_MAX}}) {
        const ExactDuplicateGroup group{.contentDigest = "00",
                                        .byteCountPerItem = bytesEach,
                                        .members = std::vector<FileObservation>(members)};
        EXPECT_EQ(group.potentiallyReclaimableByteCount(), reclaimable) << members;
    }
}

} // namespace
} // namespace tidyro
