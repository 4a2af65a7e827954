#include "StorageEngine/Recovery/CleanupHistoryIndex.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

#include "Base/JSONCoding.h"
#include "Base/Saturating.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Machine/SHA256.h"

namespace tidyro {

/// What tells a file from the one that had its name before.
struct CleanupHistoryIndex::FileState {
    std::uint64_t byteCount = 0;
    std::uint64_t inode = 0;
    std::optional<Timestamp> modified = std::nullopt;

    static constexpr auto fields() {
        using Self = FileState;
        return fieldList<Self>(field("byteCount", &Self::byteCount), field("inode", &Self::inode),
                               field("modified", &Self::modified));
    }
    bool operator==(const FileState&) const = default;
};

namespace {

constexpr std::int64_t historyVersion = 1;
/// Far above what thousands of cleanups take.
constexpr std::size_t maxHistoryBytes = 64UL << 20U;

std::string digestOf(std::string_view text) {
    platform::SHA256 hash;
    hash.update(std::as_bytes(std::span(text)));
    return platform::hexText(hash.finish());
}

/// The first line.
struct HistoryHead {
    std::int64_t version;
    CleanupHistoryIndex::FileState ledger;
    std::string intents; ///< digest of what the files of the journal are
    std::uint64_t unreadableIntentCount;
    std::string lines; ///< digest of the other lines

    static constexpr auto fields() {
        using Self = HistoryHead;
        return fieldList<Self>(field("version", &Self::version), field("ledger", &Self::ledger),
                               field("intents", &Self::intents),
                               field("unreadableIntentCount", &Self::unreadableIntentCount),
                               field("lines", &Self::lines));
    }
};

CleanupHistoryLine lineOf(const CleanupReceipt& receipt) {
    CleanupHistoryLine line{.kind = CleanupHistoryKind::receipt,
                            .id = receipt.id,
                            .planID = receipt.planID,
                            .createdAt = receipt.createdAt,
                            .retainUntil = receipt.retainUntil,
                            .mode = CleanupExecutionMode::recoverable,
                            .actuallyReclaimedByteCount = receipt.actuallyReclaimedByteCount};
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        switch (entry.disposition) {
        case CleanupMoveDisposition::movedToTrash: line.movedToTrash.add(entry.byteCount); break;
        case CleanupMoveDisposition::permanentlyRemoved:
            line.permanentlyRemoved.add(entry.byteCount);
            break;
        case CleanupMoveDisposition::simulated: line.simulated.add(entry.byteCount); break;
        case CleanupMoveDisposition::failed:
        case CleanupMoveDisposition::refused: line.failed.add(entry.byteCount); break;
        }
    }
    if (line.permanentlyRemoved.count > 0) line.mode = CleanupExecutionMode::permanent;
    if (line.simulated.count > 0) line.mode = CleanupExecutionMode::simulation;
    return line;
}

/// Where an outcome is counted.
struct TallyOf {
    CleanupHistoryLine& line;

    CleanupHistoryTally& operator()(const intent_outcome::MovedToTrash&) const {
        return line.movedToTrash;
    }
    CleanupHistoryTally& operator()(const intent_outcome::RestoredFromTrash&) const {
        return line.movedToTrash;
    }
    CleanupHistoryTally& operator()(const intent_outcome::NoLongerInTrash&) const {
        return line.movedToTrash;
    }
    CleanupHistoryTally& operator()(const intent_outcome::Failed&) const { return line.failed; }
    CleanupHistoryTally& operator()(const intent_outcome::PermanentlyRemoved&) const {
        return line.permanentlyRemoved;
    }
    CleanupHistoryTally& operator()(const intent_outcome::Simulated&) const {
        return line.simulated;
    }
};

CleanupHistoryLine lineOf(const CleanupIntent& intent) {
    CleanupHistoryLine line{.kind = CleanupHistoryKind::openIntent,
                            .id = intent.id,
                            .planID = intent.planID,
                            .createdAt = intent.createdAt,
                            .mode = intent.mode};
    for (const CleanupIntentEntry& entry : intent.entries) {
        CleanupHistoryTally& tally =
            entry.outcome ? std::visit(TallyOf{line}, entry.outcome->value) : line.unresolved;
        tally.add(entry.fingerprint.byteCount);
    }
    return line;
}

std::string lineText(const auto& record) { return jsonText(toJSON(record)) + '\n'; }

std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

} // namespace

void CleanupHistoryTally::add(std::uint64_t bytes) {
    ++count;
    byteCount = saturatingAdd(byteCount, bytes);
}

/// What the ledger and the journal are, as far as the system tells it without reading them.
struct CleanupHistoryIndex::State {
    FileState ledger;
    std::string intents;
};

FileURL CleanupHistoryIndex::indexURL() const {
    return options_.ledgerURL.parent().appending("history-index-v1");
}

std::expected<CleanupHistoryIndex::State, CleanupHistoryIndex::Error>
CleanupHistoryIndex::state() const {
    State now;
    const auto ledger = platform::fileMetadata(options_.ledgerURL.path());
    if (ledger) {
        now.ledger = {.byteCount = ledger->byteCount,
                      .inode = ledger->identity.inode,
                      .modified = ledger->modified};
    } else if (ledger.error().code != ENOENT) {
        return std::unexpected(
            Error{RecoveryLedgerError{RecoveryLedgerError::Kind::unreadable, ledger.error()}});
    }
    std::vector<std::string> files;
    std::error_code failed;
    std::filesystem::directory_iterator entries(options_.journal->folder().path(), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        const std::string name = entries->path().filename().string();
        if (name.ends_with(".json") || name.ends_with(".outcomes")) {
            const auto seen = platform::fileMetadata(entries->path().string());
            files.push_back(lineText(FileState{.byteCount = seen ? seen->byteCount : 0,
                                               .inode = seen ? seen->identity.inode : 0,
                                               .modified = seen ? seen->modified : std::nullopt}) +
                            name + '\n');
        }
        entries.increment(failed);
    }
    if (failed && failed != std::errc::no_such_file_or_directory) {
        return std::unexpected(Error{CleanupIntentJournalError{
            CleanupIntentJournalError::CouldNotWrite{SystemError{failed.value()}.description()}}});
    }
    std::ranges::sort(files);
    std::string all;
    for (const std::string& file : files) all += file;
    now.intents = digestOf(all);
    return now;
}

std::optional<CleanupHistoryIndex::History> CleanupHistoryIndex::read(const State& now) const {
    const auto text = platform::readWholeFile(indexURL().path(), maxHistoryBytes);
    if (!text) return std::nullopt;
    std::string_view rest = *text;
    const auto head = fromJSONText<HistoryHead>(takeLine(rest));
    if (!head || head->version != historyVersion || head->ledger != now.ledger ||
        head->intents != now.intents || head->lines != digestOf(rest)) {
        return std::nullopt;
    }
    History history{.unreadableIntentCount = head->unreadableIntentCount};
    while (!rest.empty()) {
        auto line = fromJSONText<CleanupHistoryLine>(takeLine(rest));
        if (!line) return std::nullopt;
        history.lines.push_back(*std::move(line));
    }
    return history;
}

std::expected<CleanupHistoryIndex::History, CleanupHistoryIndex::Error>
CleanupHistoryIndex::make() const {
    const auto receipts = options_.storedReceipts();
    if (!receipts) return std::unexpected(Error{receipts.error()});
    const auto open = options_.journal->openIntents();
    if (!open) return std::unexpected(Error{open.error()});
    History history{.unreadableIntentCount = open->unreadable.size(), .wasMadeAnew = true};
    for (const CleanupReceipt& receipt : *receipts) history.lines.push_back(lineOf(receipt));
    for (const RecordedIntent& recorded : open->intents) {
        history.lines.push_back(lineOf(recorded.intent));
    }
    std::ranges::sort(history.lines, {}, [](const CleanupHistoryLine& line) {
        return std::pair(line.createdAt, line.id);
    });
    return history;
}

std::expected<CleanupHistoryIndex::History, CleanupHistoryIndex::Error>
CleanupHistoryIndex::history() {
    // Looked at before they are read: when they change meanwhile, the index is made anew next time.
    const auto now = state();
    if (!now) return std::unexpected(now.error());
    if (auto known = read(*now)) return *std::move(known);
    auto made = make();
    if (!made) return made;
    std::string lines;
    for (const CleanupHistoryLine& line : made->lines) lines += lineText(line);
    const std::string head =
        lineText(HistoryHead{.version = historyVersion,
                             .ledger = now->ledger,
                             .intents = now->intents,
                             .unreadableIntentCount = made->unreadableIntentCount,
                             .lines = digestOf(lines)});
    // Where it cannot be written, it is made anew each time.
    if (platform::makePrivateFolder(indexURL().parent().path(), *options_.gate)) {
        static_cast<void>(platform::writeDurably(indexURL().path(), head + lines,
                                                 {.sibling = {}, .gate = options_.gate}));
    }
    return made;
}

} // namespace tidyro
