// The records of a cleanup: any bytes give a record, which is written, read back and written
// again in the same way, or an error.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "Base/Fault.h"
#include "Base/JSONCoding.h"
#include "Base/StableHash.h"
#include "CareDomain/CleanupApproval.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupReceipt.h"
#include "CareDomain/ExactDuplicateGroup.h"
#include "CareDomain/PermanentCleanupAcknowledgement.h"
#include "CareDomain/SampleRecords.h"
#include "CareDomain/ScanReport.h"

namespace {

using namespace tidyro;

template <class... Records>
struct RecordList {
    static void read(const JSON& document) { (readOne<Records>(document), ...); }

    /// The text of the `number`th record, filled to the brim.
    static std::string text(std::size_t number, std::uint64_t seed) {
        std::string found;
        std::size_t at = 0;
        const auto take = [&]<class Record>(std::type_identity<Record>) {
            if (at++ == number) found = jsonText(toJSON(testing::sample<Record>(seed)));
        };
        (take(std::type_identity<Records>()), ...);
        return found;
    }
    static constexpr std::size_t count = sizeof...(Records);

  private:
    template <class Record>
    static void readOne(const JSON& document) {
        const auto record = fromJSON<Record>(document);
        if (!record) {
            require(!record.error().reason.empty(), "an error says nothing");
            return;
        }
        const std::string text = jsonText(toJSON(*record));
        const auto again = fromJSONText<Record>(text);
        require(again.has_value(), "a record that was written is not read back");
        require(jsonText(toJSON(*again)) == text, "a record changed on its way");
        require(*again != *record || stableHash(*again) == stableHash(*record),
                "equal records have different hashes");
    }
};

using AllRecords =
    RecordList<LocalItemID, FileObservation, FileFingerprint, ScanRoot, CoverageGap, ScanReport,
               ExactDuplicateGroup, ReclaimGoal, CleanupEvidence, RiskAssessment, CleanupCandidate,
               ProofCard, CleanupPlanEntry, CleanupPlan, CleanupApproval, CleanupAuthorization,
               PermanentCleanupAcknowledgement, CleanupReceiptEntry, CleanupReceipt>;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto document = parseJSON({reinterpret_cast<const char*>(data), size});
    if (document) AllRecords::read(*document);
    return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

/// Random bytes seldom are a record: now and then one takes their place, to start from.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maximum, unsigned seed) {
    if (seed % 64 == 0) {
        const unsigned chosen = seed / 64;
        const std::string text =
            AllRecords::text(chosen % AllRecords::count, chosen / AllRecords::count % 100);
        if (text.size() <= maximum) {
            std::ranges::copy(text, data);
            return text.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maximum);
}
