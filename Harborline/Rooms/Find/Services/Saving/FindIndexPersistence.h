#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <span>
#include <string>
#include <variant>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Rooms/Find/Services/Index/FindIndex.h"

namespace tidyro {

/// Why an index could not be saved or opened. It can always be built anew from the disk.
struct FindIndexPersistenceError {
    struct UnsupportedVersion {
        std::uint32_t version;
        bool operator==(const UnsupportedVersion&) const = default;
    };
    /// The file has the right length and contradicts itself. The reason is "name offsets",
    /// "structure", "extra children" or "sizes".
    struct Inconsistent {
        std::string reason;
        bool operator==(const Inconsistent&) const = default;
    };
    struct WriteFailed {
        SystemError error;
        bool operator==(const WriteFailed&) const = default;
    };
    struct Unreadable {
        bool operator==(const Unreadable&) const = default;
    };
    struct NotAnIndex {
        bool operator==(const NotAnIndex&) const = default;
    };
    /// The file is shorter than its head says.
    struct Truncated {
        bool operator==(const Truncated&) const = default;
    };

    std::variant<UnsupportedVersion, Inconsistent, WriteFailed, Unreadable, NotAnIndex, Truncated>
        kind;

    /// One sentence for people.
    [[nodiscard]] std::string description() const;
    bool operator==(const FindIndexPersistenceError&) const = default;
};

/// Saves an index in one file, so that the next start can open it instead of walking the disk. Any
/// thread may call.
///
///     const auto saved = FindIndexPersistence::write(storage, metadata, url);
///     auto opened = FindIndexPersistence::read(url);
///     if (opened) index.replace(std::move(opened->storage), opened->metadata);
///
/// FindIndexPair keeps the same file together with the stamps of the folders, and notices every
/// changed byte. FindIndexFile.h says how the file is laid out. Reading trusts none of its bytes.
/// It returns an index whose every link stays inside it, or an error, and takes time in proportion
/// to the length of the file.
struct FindIndexPersistence {
    using Error = FindIndexPersistenceError;
    using Metadata = FindIndexMetadata;

    /// "Harborline/Find/name-index-v1.bin" in the person's Application Support folder.
    [[nodiscard]] static FileURL defaultURL();

    /// Is shown all bytes of a file in their order, for a checksum. Null: nobody wants them.
    using Passed = std::function<void(std::span<const std::byte>)>;

    /// Replaces the file as a whole and makes its folder when that is missing. The new bytes go
    /// into a file beside it first, whose name ends with ".partial" and which is locked: when two
    /// processes save at once, one waits for the other, and the later one's index stays.
    [[nodiscard]] static std::expected<void, Error> write(const FindIndexStorage& storage,
                                                          const Metadata& metadata,
                                                          const FileURL& url,
                                                          const Passed& passed = nullptr);

    /// What was read; the names are folded again. Dates are saved as seconds since 1970 and may be
    /// a tenth of a microsecond off.
    struct Opened {
        FindIndexStorage storage;
        Metadata metadata;
    };
    [[nodiscard]] static std::expected<Opened, Error> read(const FileURL& url,
                                                           const Passed& passed = nullptr);

    /// Reads the same from any source of bytes. `next` fills a block with the bytes that follow and
    /// returns how many there were.
    using Next = std::function<std::expected<std::size_t, SystemError>(std::span<std::byte>)>;
    [[nodiscard]] static std::expected<Opened, Error> read(std::uint64_t byteCount,
                                                           const Next& next);

    /// Checks that every number in the stored columns leads where it should: to an entry that
    /// exists, upwards to the root, to the end of a block. Folded names are not looked at.
    [[nodiscard]] static std::expected<void, Error> validate(const FindIndexStorage& storage);
};

} // namespace tidyro
