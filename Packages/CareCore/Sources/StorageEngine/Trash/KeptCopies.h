#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "CareDomain/CleanupPlanSheet.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Trash/FingerprintComparison.h"

namespace tidyro {

/// Why an extra copy stays: the copy that was to be kept is no copy of it any more, or not for
/// long.
enum class KeptCopyFailure : std::uint8_t {
    gone,
    unreachable, ///< the system does not say
    notAFile,    ///< not an ordinary file, or one whose contents are not on this disk
    changed,     ///< or another file, or nothing is known to tell that by
    sameFile,    ///< the extra copy is that very file under another name
    inTrash,     ///< or where a cleanup puts what it removes for good
    goesToo,     ///< it is an item of the same run, or lies in one
};

/// What a person is told of the extra copy. Nothing has happened to it.
[[nodiscard]] std::string_view description(KeptCopyFailure failure);

/// Answers, right before an extra copy goes, whether the copy that stays is still there.
///
///     KeptCopies kept({.volumes = volumes, .leaving = items});
///     if (const auto there = kept.check(*sheetEntry.keptCopy, extraSeen.identity); !there) {
///         return refuse(description(there.error()));
///     }
///
/// It tells of the moment at which it is asked, so ask as late as possible. The disk is asked each
/// time, a few looks a copy. It does not change, so any thread may ask.
class KeptCopies {
  public:
    /// An item of the run. A folder takes all that lies in it.
    struct Leaving {
        FileURL url;
        std::optional<platform::ItemIdentity> identity = std::nullopt; ///< as it was planned
    };
    struct Options {
        const platform::Volumes& volumes; ///< read once
        /// All items of the run, those as well that have gone.
        std::span<const Leaving> leaving;
        /// By number while the run of the plan lasts, by UUID for what went long ago.
        FingerprintComparison::Volume volume = FingerprintComparison::Volume::byNumber;
    };
    explicit KeptCopies(const Options& options);

    /// `extra` is the identity of the copy that is to go. No link is followed at the kept copy's
    /// own name. Links above it lead somewhere, and what counts is the file that is there.
    [[nodiscard]] std::expected<void, KeptCopyFailure>
    check(const KeptCopy& kept, const platform::ItemIdentity& extra) const;

  private:
    struct IdentityHash {
        std::size_t operator()(const platform::ItemIdentity& item) const {
            return std::hash<std::uint64_t>{}(item.inode ^ (item.device << 32U));
        }
    };
    [[nodiscard]] bool isInTrash(std::string_view path) const;
    /// Whether an item of the run is the item at a real path, or a folder above it.
    [[nodiscard]] bool isLeaving(std::string_view path) const;

    FingerprintComparison comparison_;
    StringSet leavingPaths_; ///< written ones
    std::unordered_set<platform::ItemIdentity, IdentityHash> leaving_;
    std::string trash_; ///< the person's own
};

} // namespace tidyro
