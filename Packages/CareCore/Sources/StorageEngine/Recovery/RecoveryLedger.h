#pragma once

#include <expected>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupReceipt.h"
#include "Platform/Files/ChangeGate.h"

namespace tidyro {

struct RecoveryLedgerError {
    enum class Kind {
        invalidEncryptionKeyLength, ///< or a ledger whose key is missing
        malformedEnvelope,          ///< damaged, or sealed with another key
        unreadable,                 ///< the system did not let us, see `cause`
        unwritable,
    };
    Kind kind;
    SystemError cause{0};

    /// For people.
    [[nodiscard]] std::string description() const;
    bool operator==(const RecoveryLedgerError&) const = default;
};

/// Keeps the receipts of finished cleanups. Any thread may call; the calls are carried out one
/// after another.
class RecoveryLedger {
  public:
    using Error = RecoveryLedgerError;

    virtual ~RecoveryLedger() = default;
    /// Stores a receipt behind the others. One with the same id takes the place of the earlier, so
    /// that recovery may store it once more.
    [[nodiscard]] virtual std::expected<void, Error> append(const CleanupReceipt& receipt) = 0;
    /// The receipts that are still kept at a moment, in the order in which they were stored. The
    /// others are dropped for good.
    [[nodiscard]] virtual std::expected<std::vector<CleanupReceipt>, Error>
    receipts(Timestamp retainedAt) = 0;
};

/// For simulations and tests.
class InMemoryRecoveryLedger final : public RecoveryLedger {
  public:
    [[nodiscard]] std::expected<void, Error> append(const CleanupReceipt& receipt) override;
    [[nodiscard]] std::expected<std::vector<CleanupReceipt>, Error>
    receipts(Timestamp retainedAt) override;
    [[nodiscard]] std::vector<CleanupReceipt> storedReceipts() const;

  private:
    mutable std::mutex mutex_;
    std::vector<CleanupReceipt> receipts_;
};

/// The ledger in one file, sealed with AES-GCM. docs/file-formats.md describes the file, and what
/// the sealing protects.
///
///     auto key = recoveryLedgerKey(defaultLedgerKeyURL(), ledgerURL);
///     if (!key) return std::unexpected(key.error());
///     auto ledger = JSONRecoveryLedger::open(ledgerURL, *key);
///     ledger->append(receipt) ...
///     ledger->receipts(Timestamp::now()) ...
///
/// Several processes may use one file. A ledger that cannot be read is never replaced.
class JSONRecoveryLedger final : public RecoveryLedger {
  public:
    /// When the clock stands further than this beyond the newest receipt, nothing is dropped: it
    /// may be wrong, and one look at such a moment would erase the whole history.
    static constexpr double maxSecondsBeyondNewest = 90 * 86'400.0;

    struct Options {
        /// Whether a receipt has to stay although its time is over, since something that it tells
        /// can still be put back.
        std::function<bool(const CleanupReceipt&)> isStillNeeded = nullptr;
        /// Makes room on a full disk; false when it cannot. Then a receipt is stored all the same.
        std::function<bool()> giveSpaceBack = nullptr;
        platform::ChangeGate* gate = &platform::ChangeGate::open(); // for tests
    };

    /// The key has 16, 24 or 32 bytes.
    [[nodiscard]] static std::expected<JSONRecoveryLedger, Error>
    open(FileURL fileURL, std::string encryptionKey, Options options);
    [[nodiscard]] static std::expected<JSONRecoveryLedger, Error> open(FileURL fileURL,
                                                                       std::string encryptionKey);
    JSONRecoveryLedger(JSONRecoveryLedger&& other) noexcept;
    JSONRecoveryLedger& operator=(JSONRecoveryLedger&&) = delete;
    ~JSONRecoveryLedger() override = default;

    [[nodiscard]] std::expected<void, Error> append(const CleanupReceipt& receipt) override;
    [[nodiscard]] std::expected<std::vector<CleanupReceipt>, Error>
    receipts(Timestamp retainedAt) override;
    /// All receipts of the file, also those whose time is over. Nothing is dropped.
    [[nodiscard]] std::expected<std::vector<CleanupReceipt>, Error> storedReceipts();

  private:
    JSONRecoveryLedger(FileURL fileURL, std::string key, Options options);

    [[nodiscard]] std::expected<std::vector<CleanupReceipt>, Error> load() const;
    [[nodiscard]] std::expected<void, Error> add(const CleanupReceipt& receipt);
    [[nodiscard]] bool mayDrop(const CleanupReceipt& receipt,
                               const std::vector<CleanupReceipt>& all, Timestamp at) const;

    FileURL fileURL_;
    std::string key_;
    Options options_;
    std::mutex mutex_;
};

/// "Harborline/Recovery/ledger.json" and "Harborline/Keys/recovery-ledger.key" in the person's
/// Application Support folder.
[[nodiscard]] FileURL defaultLedgerURL();
[[nodiscard]] FileURL defaultLedgerKeyURL();

/// The key in a file. The first time it is made, with 32 random bytes, for this user alone. When a
/// ledger exists already its key is lost, which is an error: a new key would make the ledger
/// unreadable for ever.
[[nodiscard]] std::expected<std::string, RecoveryLedgerError>
recoveryLedgerKey(const FileURL& keyURL, const FileURL& ledgerURL,
                  platform::ChangeGate& gate = platform::ChangeGate::open());

/// The receipts in a ledger's text, and the text of a ledger that holds them.
[[nodiscard]] std::expected<std::vector<CleanupReceipt>, RecoveryLedgerError>
receiptsInLedger(std::string_view text, std::string_view key);
[[nodiscard]] std::string ledgerText(const std::vector<CleanupReceipt>& receipts,
                                     std::string_view key);

} // namespace tidyro
