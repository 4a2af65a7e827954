// The two files of a cleanup's intent, the snapshot before the first zero byte and the log behind
// it: any bytes give an intent that is written and read back unchanged, or an error. A log cut
// short anywhere tells nothing that the whole log does not.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Base/JSONCoding.h"
#include "StorageEngine/Recovery/CleanupIntentLog.h"
#include "StorageEngine/Recovery/SampleIntents.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(bytes.find('\0'), size);
    const std::string_view log = bytes.substr(std::min(end + 1, size));
    const auto read = readIntent(bytes.substr(0, end), log);
    if (!read) {
        require(!read.error().reason.empty(), "an error says nothing");
        return 0;
    }
    if (isSettled(log)) {
        require(!read->intent.isOpen() && !read->isReceiptMissing,
                "a cleanup is settled by its log, but not by both files");
    }
    const std::string text = jsonText(toJSON(read->intent));
    const auto again = readIntent(text, {});
    require(again.has_value(), "an intent that was written is not read back");
    require(jsonText(toJSON(again->intent)) == text, "an intent changed on its way");

    const auto cut = readIntent(bytes.substr(0, end), log.substr(0, log.size() / 2));
    require(cut.has_value(), "a torn log made an intent unreadable");
    require(cut->intent.isOpen() || !read->intent.isOpen(), "a log that goes on opened an intent");
    return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

/// Random bytes seldom are an intent: now and then one takes their place, to start from.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maximum, unsigned seed) {
    if (seed % 64 == 0) {
        std::string text = jsonText(toJSON(testing::sampleIntent("/home", 2)));
        text += '\0';
        text += logLine({EntryOutcome{testing::itemID("a"), testing::movedTo("/T")}});
        text += logLine({intent_log::RestoreOutcomes{
            {{testing::itemID("b"), {intent_outcome::Failed{"why"}}}}, seed % 128 == 0}});
        text += logLine({intent_log::Closed{Timestamp::sinceReference(seed)}});
        if (seed % 256 == 0) text += logLine({intent_log::ReceiptMissing{}});
        if (text.size() <= maximum) {
            text.copy(reinterpret_cast<char*>(data), text.size());
            return text.size();
        }
    }
    return LLVMFuzzerMutate(data, size, maximum);
}
