#pragma once

#include <atomic>
#include <cstddef>
#include <expected>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "FolderWalk/FolderWalk.h"
#include "FolderWalk/WalkProgress.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Refreshing/FindIndexRefresh.h"

namespace tidyro {

/// What is known of the folders of an index before it is looked at. Never changes, so threads read
/// it without a lock.
class FindKnownFolders {
  public:
    using Entry = FindIndexStorage::Entry;
    explicit FindKnownFolders(const FindIndexStorage& index);

    [[nodiscard]] const FindIndexStorage& index() const { return index_; }
    /// Whether the folder stands as it did when it was read.
    [[nodiscard]] bool isUnchanged(Entry folder, const platform::FolderFacts& facts) const;
    [[nodiscard]] bool hasFolders(Entry folder) const { return hasFolders_.has(folder); }
    /// Calls `visit` with each folder in a folder that is not deleted.
    template <class Visit>
    void visitFolders(Entry folder, const Visit& visit) const;
    /// The folder of the index that had this identity and has not changed since; `none` when there
    /// is none. The first call makes the table of all identities.
    [[nodiscard]] Entry movedFrom(const platform::FolderFacts& facts) const;
    /// Puts what an unchanged folder holds into the listing. False when the index does not know all
    /// of it.
    [[nodiscard]] bool list(Entry folder, FindDirectoryListing& listing) const;

  private:
    static constexpr std::uint32_t noRow = FindIndexStorage::none;
    struct IdentityHash {
        std::size_t operator()(const platform::ItemIdentity& identity) const noexcept {
            return static_cast<std::size_t>(identity.inode * 0x9E37'79B9'7F4A'7C15U ^
                                            identity.device);
        }
    };

    const FindIndexStorage& index_;
    GrowingArray<std::uint32_t> rows_; ///< of the stamps, by entry
    FindEntrySet hasFolders_;
    mutable std::once_flag isIdentified_;
    mutable std::unordered_map<platform::ItemIdentity, std::uint32_t, IdentityHash> byIdentity_;
};

template <class Visit>
void FindKnownFolders::visitFolders(Entry folder, const Visit& visit) const {
    index_.visitChildren(folder, [&](Entry child) {
        const unsigned set = index_.flags[child] & unsigned{findflag::folder | findflag::deleted};
        if (set == findflag::folder) visit(child);
        return true;
    });
}

/// One look at the folders of an index. Folders of the index have their entries as numbers, new
/// ones the numbers behind them.
class FindRefreshWalk : private FolderWalk::Target {
  public:
    struct Options {
        FolderWalk::Options walk;
        double progressInterval;
        FindIndexRefresh::ProgressHandler progress;
        std::int64_t settledBefore; ///< later dates of change are not settled
        bool mayTakeMoved;          ///< nothing of a folder is left out, so a moved one is whole
    };
    FindRefreshWalk(const FindIndexStorage& index, Options options);

    /// Once only.
    [[nodiscard]] std::expected<FindIndexChanges, SystemError> run();
    void cancel() { walk_.cancel(); }

  private:
    using Entry = FindIndexStorage::Entry;
    class Reader;
    struct FreshFolder {
        Entry parent;
        std::string name;
    };

    std::unique_ptr<FolderWalk::Reader> makeReader(const std::atomic<bool>& cancelled) override;
    Entry parent(Entry folder) const override {
        return isNew(folder) ? fresh(folder).parent : known_.index().parent[folder];
    }
    std::string_view name(Entry folder) const override {
        return isNew(folder) ? fresh(folder).name : known_.index().name(folder);
    }
    bool isReportDue() const override { return reports_.isDue(); }
    void report(std::unique_lock<std::mutex>& lock, Entry folder) override;

    [[nodiscard]] bool isNew(Entry folder) const { return folder >= known_.index().count(); }
    [[nodiscard]] const FreshFolder& fresh(Entry folder) const {
        return fresh_[folder - known_.index().count()];
    }

    const FindKnownFolders known_;
    const std::int64_t settledBefore_;
    const bool mayTakeMoved_;

    // Under the walk's lock.
    WalkProgress<FindIndexRefresh::Progress> reports_;
    std::vector<FreshFolder> fresh_;
    FindIndexChanges changes_;

    FolderWalk walk_;
};

} // namespace tidyro
