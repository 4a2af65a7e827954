#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "Base/Cancellation.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Duplicates/Search/DuplicateListing.h"
#include "Rooms/Duplicates/Search/ProvenFile.h"
#include "Rooms/Duplicates/Search/SearchProgress.h"

namespace tidyro {

/// A large file that agrees with others in all that was looked at so far.
struct LargeFile {
    std::uint64_t bytes;
    std::uint64_t hash; ///< of both ends
    platform::ItemIdentity identity;
    std::uint32_t file; ///< in the listing

    [[nodiscard]] bool agreesWith(const LargeFile& other) const {
        return bytes == other.bytes && hash == other.hash;
    }
};

/// Lets threads that read large files from one disk take turns. A disk gives one long run after
/// another faster than several at once, and while one thread reads the others hash. All threads of
/// a search share one.
class DiskTurns {
  public:
    /// Waits for the turn, which lasts as long as the lock is held.
    [[nodiscard]] std::unique_lock<std::mutex> turn(std::uint64_t device) {
        return std::unique_lock(disk(device));
    }

  private:
    std::mutex& disk(std::uint64_t device) {
        const std::scoped_lock lock(mutex_);
        return disks_[device];
    }

    std::mutex mutex_;
    std::map<std::uint64_t, std::mutex> disks_; ///< its elements stay where they are
};

/// Reads large files that are probably copies, whole and side by side. It hashes one and compares
/// the others with it byte for byte, which takes a tenth of the time that hashing them would. A
/// file that turns out to differ has to be read again by itself. Used by one thread.
class LargeFileReader {
  public:
    static constexpr std::size_t maxSideBySide = 16;

    /// What all readers of one search share.
    struct Shared {
        const DuplicateListing& listing;
        SearchProgress& progress;
        DiskTurns& turns;
        const CancelToken& cancel;
    };
    explicit LargeFileReader(const Shared& shared) : shared_(shared), opener_(shared.listing) {}

    /// The progress counts files the first time only.
    enum class Time : std::uint8_t { first, second };
    /// Reads at most `maxSideBySide` files that agree with one another.
    void read(std::span<const LargeFile> files, Time time);

    std::vector<ProvenFile> proven;
    std::vector<LargeFile> different; ///< to be read by themselves

  private:
    struct Member {
        LargeFile file;
        ListedFileOpener::Opened opened;
        std::span<std::byte> buffer;
        bool isLost = false;
        bool isDifferent = false;
    };

    [[nodiscard]] std::vector<Member> open(std::span<const LargeFile> files);
    void shareBuffer(std::vector<Member>& members);
    [[nodiscard]] bool fill(std::vector<Member>& members, std::uint64_t at, std::size_t count);
    void compare(std::vector<Member>& members, std::size_t count);
    void count(const LargeFile& file, std::uint64_t files, std::uint64_t bytes);

    Shared shared_;
    ListedFileOpener opener_;
    platform::SHA256 hash_;
    std::vector<std::byte> buffer_;
    Time time_ = Time::first;
    bool hasWaited_ = false; ///< for the disk, in the last round of reads
};

} // namespace tidyro
