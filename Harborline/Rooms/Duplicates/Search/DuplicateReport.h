#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"

namespace tidyro {

/// How long things last where a copy lies, the longest first.
enum class CopyPlace : std::uint8_t {
    own,        ///< the person's own folders and projects
    landing,    ///< Downloads and the desktop
    disposable, ///< temporary folders, caches, what tools generate, what programs keep
};

constexpr RawValueTable<CopyPlace, 3> rawValues(RawValueTag<CopyPlace>) {
    using enum CopyPlace;
    return {{{{own, "own"}, {landing, "landing"}, {disposable, "disposable"}}}};
}

/// What makes a copy a better or worse one to keep, whatever the person's rule.
struct CopyStanding {
    CopyPlace place = CopyPlace::own;
    /// Whether others may go because this one stays. Never so for a copy that may vanish or change
    /// by itself: one in a backup, one that is open, growing or a database.
    bool isReason = true;
    /// The file has several names, so it stays whoever removes one of them.
    bool hasSeveralNames = false;
    /// The removable or remote volume that it lies on; absent on a disk of this machine.
    std::optional<std::string> volume = std::nullopt;

    static constexpr auto fields() {
        using Self = CopyStanding;
        return fieldList<Self>(field("place", &Self::place), field("isReason", &Self::isReason),
                               field("hasSeveralNames", &Self::hasSeveralNames),
                               field("volume", &Self::volume));
    }
    bool operator==(const CopyStanding&) const = default;
};

/// One of several files with the same contents.
struct DuplicateCopy {
    std::string path; ///< absolute; its bytes are those on the disk
    Timestamp modified;
    std::optional<Timestamp> created = std::nullopt;
    /// Further names of this very file that the search met, ascending.
    std::vector<std::string> otherNames;
    /// Copies of one set with the same number share the same blocks.
    std::int64_t storage;
    bool isSystem; ///< it lies on a volume of the operating system
    /// Why this copy must not be removed; absent when it may be.
    std::optional<std::string> heldBecause = std::nullopt;
    /// Absent for a copy that was never judged. Copies without it stand alike.
    std::optional<CopyStanding> standing = std::nullopt;
    /// What removing this copy alone frees at least: what it takes, without the blocks that any
    /// other file shares. Absent for a copy that was not measured, which counts as its length.
    std::optional<std::uint64_t> freedBytes = std::nullopt;

    [[nodiscard]] const std::string& id() const { return path; }

    static constexpr auto fields() {
        using Self = DuplicateCopy;
        return fieldList<Self>(
            field("path", &Self::path), field("modified", &Self::modified),
            field("created", &Self::created), field("otherNames", &Self::otherNames),
            field("storage", &Self::storage), field("isSystem", &Self::isSystem),
            field("heldBecause", &Self::heldBecause), field("standing", &Self::standing),
            field("freedBytes", &Self::freedBytes));
    }
    bool operator==(const DuplicateCopy&) const = default;
};

/// One set of copies: all files that the search met with these contents. There are at least two
/// copies, and they lie on at least two storages.
struct DuplicateGroup {
    std::string digest;                ///< SHA-256 of the contents, lower-case hexadecimal
    std::uint64_t bytesEach;           ///< the length of the contents
    std::vector<DuplicateCopy> copies; ///< by path, ascending
    /// What the copies take together beyond what the largest of them takes: blocks that several
    /// have count once, and holes nothing. Absent for a set that was not measured.
    std::optional<std::uint64_t> extraBytes = std::nullopt;

    [[nodiscard]] const std::string& id() const { return digest; }
    /// How many times the contents really lie on the disk.
    [[nodiscard]] std::int64_t storageCount() const;
    /// What all storages but one take; by their lengths where they were not measured. Saturates.
    [[nodiscard]] std::uint64_t wastedBytes() const;
    /// What people call it: the file name of its first copy.
    [[nodiscard]] std::string name() const;

    static constexpr auto fields() {
        using Self = DuplicateGroup;
        return fieldList<Self>(field("digest", &Self::digest), field("bytesEach", &Self::bytesEach),
                               field("copies", &Self::copies),
                               field("extraBytes", &Self::extraBytes));
    }
    bool operator==(const DuplicateGroup&) const = default;
};

/// The result of one search.
struct DuplicateReport {
    std::vector<DuplicateGroup> groups; ///< those that waste most first, then by digest
    std::int64_t filesLookedAt;         ///< files that were met, of at least the smallest size
    std::int64_t hardLinkedFiles;       ///< further names of files whose size another file has
    /// Sets of copies that all share their blocks: removing some would free nothing.
    std::int64_t cloneOnlyGroups;
    std::uint64_t minimumBytes;
    std::vector<FileURL> roots;
    bool includedSystemVolumes;
    double duration; ///< seconds
    Timestamp finishedAt;
    std::int64_t deniedFolders; ///< folders that were closed to the search
    /// Files that had to be compared and could not be opened.
    std::optional<std::int64_t> unreadFiles = std::nullopt;

    /// What the extra copies really take: clones and further names take nothing.
    [[nodiscard]] std::uint64_t wastedBytes() const;

    static constexpr auto fields() {
        using Self = DuplicateReport;
        return fieldList<Self>(
            field("groups", &Self::groups), field("filesLookedAt", &Self::filesLookedAt),
            field("hardLinkedFiles", &Self::hardLinkedFiles),
            field("cloneOnlyGroups", &Self::cloneOnlyGroups),
            field("minimumBytes", &Self::minimumBytes), field("roots", &Self::roots),
            field("includedSystemVolumes", &Self::includedSystemVolumes),
            field("duration", &Self::duration), field("finishedAt", &Self::finishedAt),
            field("deniedFolders", &Self::deniedFolders), field("unreadFiles", &Self::unreadFiles));
    }
    bool operator==(const DuplicateReport&) const = default;
};

} // namespace tidyro
