#include "StorageEngine/Recovery/CleanupIntentLog.h"

#include <unordered_map>
#include <utility>

#include "Base/JSONCoding.h"
#include "Base/JSONText.h"

namespace tidyro {

namespace {

/// The lines of a log that are not empty. The last one may lack its line break.
template <class Take>
void forEachLine(std::string_view log, Take take) {
    while (!log.empty()) {
        const std::size_t end = std::min(log.find('\n'), log.size());
        if (end > 0) take(log.substr(0, end));
        log.remove_prefix(std::min(end + 1, log.size()));
    }
}

class LogReader {
  public:
    explicit LogReader(RecordedIntent& read) : read_(read) {
        for (CleanupIntentEntry& entry : read.intent.entries) {
            entries_.try_emplace(entry.candidateID.rawValue, &entry);
        }
    }

    /// False for a line that says nothing about this intent.
    [[nodiscard]] bool apply(std::string_view line) {
        auto record = fromJSONText<IntentLogRecord>(line);
        return record && std::visit(*this, std::move(record->value));
    }

    bool operator()(EntryOutcome told) {
        const auto found = entries_.find(told.candidateID.rawValue);
        if (found == entries_.end()) return false;
        found->second->outcome = std::move(told.outcome);
        return true;
    }
    bool operator()(const intent_log::Closed& closed) {
        read_.intent.closedAt = closed.at;
        return true;
    }
    bool operator()(intent_log::RestoreOutcomes restored) {
        bool areAllKnown = true;
        for (EntryOutcome& told : restored.outcomes) {
            areAllKnown = (*this)(std::move(told)) && areAllKnown;
        }
        // A record that is about items does not bring back a receipt that was missing before; one
        // about none says that recovery has stored it.
        const bool wasMissing = read_.isReceiptMissing && !restored.outcomes.empty();
        read_.isReceiptMissing = wasMissing || restored.receiptMissing;
        return areAllKnown;
    }
    bool operator()(const intent_log::ReceiptMissing&) {
        read_.isReceiptMissing = true;
        return true;
    }

  private:
    RecordedIntent& read_;
    std::unordered_map<std::string_view, CleanupIntentEntry*> entries_;
};

} // namespace

std::vector<const CleanupIntentEntry*> CleanupIntent::unresolvedEntries() const {
    std::vector<const CleanupIntentEntry*> found;
    for (const CleanupIntentEntry& entry : entries) {
        if (!entry.outcome) found.push_back(&entry);
    }
    return found;
}

std::string logLine(const IntentLogRecord& record) { return jsonTextOf(record) + '\n'; }

Decoded<RecordedIntent> readIntent(std::string_view snapshot, std::string_view log) {
    auto intent = fromJSONText<CleanupIntent>(snapshot);
    if (!intent) return std::unexpected(std::move(intent.error()));
    RecordedIntent read{.intent = *std::move(intent)};
    LogReader reader(read);
    forEachLine(log, [&](std::string_view line) {
        if (!reader.apply(line)) ++read.passedOverLineCount;
    });
    return read;
}

bool isSettled(std::string_view log) {
    bool isClosed = false;
    bool isDoubtful = false;
    forEachLine(log, [&](std::string_view line) {
        // As this program writes them. A line in another form is looked at with the snapshot.
        if (line.starts_with(R"({"outcome":{)")) return;
        const auto record = fromJSONText<IntentLogRecord>(line);
        const auto* restored =
            record ? std::get_if<intent_log::RestoreOutcomes>(&record->value) : nullptr;
        if (record && std::holds_alternative<intent_log::Closed>(record->value)) {
            isClosed = true;
        } else if (restored == nullptr || restored->receiptMissing) {
            isDoubtful = true;
        }
    });
    return isClosed && !isDoubtful;
}

} // namespace tidyro
