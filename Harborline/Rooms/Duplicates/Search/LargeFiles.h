#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Base/Cancellation.h"
#include "Platform/Folders/FolderReading.h"
#include "Rooms/Duplicates/Search/DiskTurns.h"
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

/// Reads large files whole that are probably copies, side by side: the first is hashed, the others
/// are compared with it byte for byte, which takes a tenth of the time that hashing them would. One
/// that turns out to differ has to be read again by itself. Used by one thread.
class LargeFiles {
  public:
    /// Files read side by side.
    static constexpr std::size_t most = 16;

    struct Surroundings {
        const DuplicateListing& listing;
        SearchProgress& progress;
        DiskTurns& turns;
        const CancelToken& cancel;
    };
    explicit LargeFiles(const Surroundings& surroundings)
        : around_(surroundings), opener_(surroundings.listing) {}

    /// At most `most` files that agree with one another. Files that were counted in the progress
    /// before are not counted again.
    void read(std::span<const LargeFile> files, bool counts);

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

    [[nodiscard]] std::vector<Member> opened(std::span<const LargeFile> files);
    void shareBuffer(std::vector<Member>& members);
    [[nodiscard]] bool fill(std::vector<Member>& members, std::uint64_t at, std::size_t count);
    void compare(std::vector<Member>& members, std::size_t count);
    void count(const LargeFile& file, std::uint64_t files, std::uint64_t bytes);

    Surroundings around_;
    ListedFileOpener opener_;
    platform::SHA256 hash_;
    std::vector<std::byte> buffer_;
    bool counts_ = true;
    bool waitsForDisk_ = false; ///< the last reading did
};

} // namespace tidyro
