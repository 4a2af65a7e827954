#include "StorageEngine/Recovery/RecoveryLedger.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "Base/Base64.h"
#include "Base/JSONCoding.h"
#include "Base/JSONText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Machine/SealedBox.h"

namespace tidyro {

namespace {

using Kind = RecoveryLedgerError::Kind;
using Receipts = std::vector<CleanupReceipt>;

/// Far above what three months of large cleanups take.
constexpr std::size_t maxLedgerBytes = 2UL << 30U;
constexpr std::size_t keyBytes = 32;
constexpr std::int64_t ledgerVersion = 1;
constexpr std::string_view ledgerAlgorithm = "AES.GCM";

struct LedgerEnvelope {
    std::int64_t version;
    std::string algorithm;
    std::string sealedPayload;

    static constexpr auto fields() {
        using Self = LedgerEnvelope;
        return fieldList<Self>(field("version", &Self::version),
                               field("algorithm", &Self::algorithm),
                               field("sealedPayload", &Self::sealedPayload));
    }
};

struct LedgerPayload {
    Receipts receipts;

    static constexpr auto fields() {
        return fieldList<LedgerPayload>(field("receipts", &LedgerPayload::receipts));
    }
};

std::unexpected<RecoveryLedgerError> failure(Kind kind, SystemError cause = {0}) {
    return std::unexpected(RecoveryLedgerError{kind, cause});
}

std::span<const std::byte> keySpan(std::string_view key) { return std::as_bytes(std::span(key)); }

/// Writes the text of a ledger piece by piece, so that neither it nor its payload is ever whole in
/// memory.
class LedgerText {
  public:
    LedgerText(std::string_view key, TextInPieces::Take take)
        : sealing_(keySpan(key)), take_(std::move(take)) {}

    void write(std::span<const CleanupReceipt* const> receipts) {
        // The envelope is written around its last value, the sealed payload.
        constexpr std::string_view afterPayload = R"("})";
        std::string envelope =
            jsonTextOf(LedgerEnvelope{ledgerVersion, std::string(ledgerAlgorithm), {}});
        envelope.resize(envelope.size() - afterPayload.size());
        take_(envelope);
        TextInPieces payload([this](std::string_view piece) { addSealed(sealing_.add(piece)); });
        payload += R"({"receipts":[)"; // a `LedgerPayload`
        bool isFirst = true;
        for (const CleanupReceipt* receipt : receipts) {
            if (!std::exchange(isFirst, false)) payload += ',';
            appendJSONText(payload, *receipt);
        }
        payload += "]}";
        payload.end();
        addSealed(sealing_.end());
        take_(base64Text(unwritten_));
        take_(afterPayload);
    }

  private:
    void addSealed(std::string_view bytes) {
        constexpr std::size_t groupBytes = 3; // only the last group may be filled up
        unwritten_ += bytes;
        const std::size_t whole = unwritten_.size() - unwritten_.size() % groupBytes;
        take_(base64Text(std::string_view(unwritten_).substr(0, whole)));
        unwritten_.erase(0, whole);
    }

    platform::Sealing sealing_;
    TextInPieces::Take take_;
    std::string unwritten_;
};

std::vector<const CleanupReceipt*> pointersTo(const Receipts& receipts) {
    std::vector<const CleanupReceipt*> pointers;
    for (const CleanupReceipt& each : receipts) pointers.push_back(&each);
    return pointers;
}

void put(Receipts& receipts, const CleanupReceipt& receipt) {
    const auto same = std::ranges::find(receipts, receipt.id, &CleanupReceipt::id);
    if (same != receipts.end()) {
        *same = receipt;
    } else {
        receipts.push_back(receipt);
    }
}

Receipts retained(const Receipts& receipts, Timestamp at) {
    Receipts kept;
    std::ranges::copy_if(receipts, std::back_inserter(kept),
                         [&](const CleanupReceipt& each) { return each.isRetained(at); });
    return kept;
}

} // namespace

std::string RecoveryLedgerError::description() const {
    switch (kind) {
    case Kind::invalidEncryptionKeyLength:
        return "Tidyro could not unlock your cleanup history because its protection key isn't set "
               "up correctly. Restarting Tidyro may fix this. If it keeps happening, reset the "
               "history in Settings.";
    case Kind::malformedEnvelope:
        return "Tidyro could not read your saved cleanup history. The file appears to be damaged. "
               "This doesn't affect any files already in the Trash or already removed. Only the "
               "record of past cleanups is affected.";
    case Kind::unreadable:
        return "Tidyro could not read your saved cleanup history (" + cause.description() + ").";
    case Kind::unwritable: break;
    }
    return "Tidyro could not save your cleanup history (" + cause.description() + ").";
}

// In memory -----------------------------------------------------------------------------------

std::expected<void, RecoveryLedgerError>
InMemoryRecoveryLedger::append(const CleanupReceipt& receipt) {
    const std::scoped_lock guard(mutex_);
    put(receipts_, receipt);
    return {};
}

std::expected<Receipts, RecoveryLedgerError>
InMemoryRecoveryLedger::receipts(Timestamp retainedAt) {
    const std::scoped_lock guard(mutex_);
    receipts_ = retained(receipts_, retainedAt);
    return receipts_;
}

Receipts InMemoryRecoveryLedger::storedReceipts() const {
    const std::scoped_lock guard(mutex_);
    return receipts_;
}

// In a file -----------------------------------------------------------------------------------

std::expected<Receipts, RecoveryLedgerError> receiptsInLedger(std::string_view text,
                                                              std::string_view key) {
    // Each step frees what the one before needed: a long history is large in each of its forms.
    const auto boxIn = [](std::string_view envelopeText) -> std::optional<std::string> {
        const auto envelope = fromJSONText<LedgerEnvelope>(envelopeText);
        const bool isKnown = envelope && envelope->version == ledgerVersion &&
                             envelope->algorithm == ledgerAlgorithm;
        return isKnown ? base64Bytes(envelope->sealedPayload) : std::nullopt;
    };
    auto box = boxIn(text);
    if (!box) return failure(Kind::malformedEnvelope);
    const auto opened = platform::openSealed(keySpan(key), *box);
    box.reset();
    if (!opened) return failure(Kind::malformedEnvelope);
    auto payload = fromJSONText<LedgerPayload>(*opened);
    if (!payload) return failure(Kind::malformedEnvelope);
    return std::move(payload->receipts);
}

std::string ledgerText(const Receipts& receipts, std::string_view key) {
    std::string text;
    LedgerText(key, [&](std::string_view piece) { text += piece; }).write(pointersTo(receipts));
    return text;
}

JSONRecoveryLedger::JSONRecoveryLedger(FileURL fileURL, std::string key, Options options)
    : fileURL_(std::move(fileURL)), key_(std::move(key)), options_(std::move(options)) {}

JSONRecoveryLedger::JSONRecoveryLedger(JSONRecoveryLedger&& other) noexcept
    : fileURL_(std::move(other.fileURL_)),
      key_(std::move(other.key_)),
      options_(std::move(other.options_)) {}

std::expected<JSONRecoveryLedger, RecoveryLedgerError>
JSONRecoveryLedger::open(FileURL fileURL, std::string encryptionKey, Options options) {
    if (!platform::isUsableKeyLength(encryptionKey.size())) {
        return failure(Kind::invalidEncryptionKeyLength);
    }
    return JSONRecoveryLedger(std::move(fileURL), std::move(encryptionKey), std::move(options));
}

std::expected<JSONRecoveryLedger, RecoveryLedgerError>
JSONRecoveryLedger::open(FileURL fileURL, std::string encryptionKey) {
    return open(std::move(fileURL), std::move(encryptionKey), Options{});
}

std::expected<Receipts, RecoveryLedgerError> JSONRecoveryLedger::load() const {
    const auto text = platform::readWholeFile(fileURL_.path(), maxLedgerBytes);
    if (!text && text.error().code == ENOENT) return Receipts();
    if (!text) return failure(Kind::unreadable, text.error());
    return receiptsInLedger(*text, key_);
}

namespace {

/// Changes a ledger's file. The sibling that the new text goes into is locked before the old one is
/// read, so that of two processes neither loses what the other stored.
class LedgerChange {
  public:
    [[nodiscard]] static std::expected<LedgerChange, RecoveryLedgerError>
    begin(const FileURL& file, platform::ChangeGate& gate) {
        const std::string folder(file.parent().path());
        if (const auto made = platform::makePrivateFolder(folder, gate); !made) {
            return failure(Kind::unwritable, made.error());
        }
        auto writer = platform::DurableWriter::open(file.path(),
                                                    platform::DurableWriter::Sibling::shared, gate);
        if (!writer) return failure(Kind::unwritable, writer.error());
        return LedgerChange(*std::move(writer));
    }
    [[nodiscard]] std::expected<void, RecoveryLedgerError>
    end(std::span<const CleanupReceipt* const> receipts, std::string_view key) {
        std::expected<void, SystemError> done;
        LedgerText(key, [&](std::string_view piece) {
            if (done) done = writer_.append(std::as_bytes(std::span(piece)));
        }).write(receipts);
        if (done) done = writer_.commit();
        if (!done) return failure(Kind::unwritable, done.error());
        return {};
    }

  private:
    explicit LedgerChange(platform::DurableWriter writer) : writer_(std::move(writer)) {}
    platform::DurableWriter writer_;
};

} // namespace

std::expected<void, RecoveryLedgerError> JSONRecoveryLedger::append(const CleanupReceipt& receipt) {
    const std::scoped_lock guard(mutex_);
    auto added = add(receipt);
    const bool isFull =
        !added && (added.error().cause.code == ENOSPC || added.error().cause.code == EDQUOT);
    if (isFull && options_.giveSpaceBack && options_.giveSpaceBack()) added = add(receipt);
    return added;
}

std::expected<void, RecoveryLedgerError> JSONRecoveryLedger::add(const CleanupReceipt& receipt) {
    auto change = LedgerChange::begin(fileURL_, *options_.gate);
    if (!change) return std::unexpected(change.error());
    const auto receipts = load();
    if (!receipts) return std::unexpected(receipts.error());
    auto all = pointersTo(*receipts);
    const auto same = std::ranges::find(all, receipt.id, &CleanupReceipt::id);
    if (same != all.end()) {
        *same = &receipt;
    } else {
        all.push_back(&receipt);
    }
    return change->end(all, key_);
}

bool JSONRecoveryLedger::mayDrop(const CleanupReceipt& receipt, const Receipts& all,
                                 Timestamp at) const {
    const Timestamp newest = std::ranges::max(all, {}, &CleanupReceipt::createdAt).createdAt;
    return !receipt.isRetained(at) && at <= newest.adding(maxSecondsBeyondNewest) &&
           !(options_.isStillNeeded && options_.isStillNeeded(receipt));
}

std::expected<Receipts, RecoveryLedgerError> JSONRecoveryLedger::receipts(Timestamp retainedAt) {
    const std::scoped_lock guard(mutex_);
    const auto found = load();
    if (!found) return found;
    const auto isDropped = [&](const Receipts& all) {
        return [&](const CleanupReceipt& each) { return mayDrop(each, all, retainedAt); };
    };
    if (!std::ranges::any_of(*found, isDropped(*found))) return retained(*found, retainedAt);

    auto change = LedgerChange::begin(fileURL_, *options_.gate);
    if (!change) return std::unexpected(change.error());
    const auto all = load(); // another may have stored one meanwhile
    if (!all) return all;
    Receipts kept;
    std::ranges::remove_copy_if(*all, std::back_inserter(kept), isDropped(*all));
    if (const auto written = change->end(pointersTo(kept), key_); !written) {
        return std::unexpected(written.error());
    }
    return retained(kept, retainedAt);
}

std::expected<Receipts, RecoveryLedgerError> JSONRecoveryLedger::storedReceipts() {
    const std::scoped_lock guard(mutex_);
    return load();
}

// The key -------------------------------------------------------------------------------------

FileURL defaultLedgerURL() {
    return platform::applicationSupportFolder().appending("Harborline/Recovery/ledger.json");
}

FileURL defaultLedgerKeyURL() {
    return platform::applicationSupportFolder().appending("Harborline/Keys/recovery-ledger.key");
}

std::expected<std::string, RecoveryLedgerError>
recoveryLedgerKey(const FileURL& keyURL, const FileURL& ledgerURL, platform::ChangeGate& gate) {
    const auto kept = [&]() -> std::expected<std::string, RecoveryLedgerError> {
        auto key = platform::readWholeFile(keyURL.path(), keyBytes);
        if (key && platform::isUsableKeyLength(key->size())) return *std::move(key);
        if (key || key.error().code == EFBIG) return failure(Kind::invalidEncryptionKeyLength);
        return failure(Kind::unreadable, key.error());
    };
    auto key = kept();
    if (key || key.error().kind != Kind::unreadable || key.error().cause.code != ENOENT) return key;

    if (const auto ledger = platform::fileMetadata(ledgerURL.path());
        ledger || ledger.error().code != ENOENT) {
        return failure(Kind::invalidEncryptionKeyLength);
    }
    if (const auto made = platform::makePrivateFolder(keyURL.parent().path(), gate); !made) {
        return failure(Kind::unwritable, made.error());
    }
    const auto made = platform::makeDurably(keyURL.path(), platform::randomBytes(keyBytes), gate);
    // Another process may have been first; then its key holds.
    if (!made && made.error().code != EEXIST) return failure(Kind::unwritable, made.error());
    return kept();
}

} // namespace tidyro
