#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "Base/FileURL.h"
#include "CareDomain/CleanupPlan.h"
#include "CareDomain/CleanupPlanSheet.h"

namespace tidyro {

/// Why a plan was not written to a file, or not read from one. Nothing of the plan was carried out.
enum class CleanupPlanFileError : std::uint8_t {
    unreadable,
    unwritable,
    tooLarge,
    damaged, ///< or written by somebody else
    otherVersion,
    sheetOfAnotherPlan, ///< the two do not speak of the same items
    changed,            ///< its digest is not the one that it was written with
};

/// What a person is told.
[[nodiscard]] std::string_view description(CleanupPlanFileError error);

/// The digest of a plan and its sheet, in 64 lower-case hexadecimal digits: SHA-256 of both as a
/// file has them. An approval names it, so that it holds for these very values and for no others.
[[nodiscard]] std::string cleanupDigest(const CleanupPlan& plan, const CleanupPlanSheet& sheet);

/// A plan and its sheet in a file, so that they can be approved elsewhere or later.
/// docs/file-formats.md describes the file.
///
///     const auto digest = CleanupPlanFile::write(url, plan, sheet);
///     if (!digest) show(description(digest.error()));
///     ...
///     const auto file = CleanupPlanFile::read(url);
///     if (!file || file->digest != approved) refuse();
///
/// A file is read only when it is, byte for byte, what would be written for its plan. Its digest
/// tells that nobody changed it by accident. It is no signature: whoever can write the file can
/// write another digest as well, so an approval keeps the digest itself.
struct CleanupPlanFile {
    static constexpr std::size_t maxByteCount = 256UL << 20U;
    static constexpr std::uint32_t version = 1;

    CleanupPlan plan;
    CleanupPlanSheet sheet;
    std::string digest;

    template <class T>
    using Result = std::expected<T, CleanupPlanFileError>;

    /// Replaces what is at the URL, with a file that this person alone may read. Returns the
    /// digest.
    [[nodiscard]] static Result<std::string> write(const FileURL& url, const CleanupPlan& plan,
                                                   const CleanupPlanSheet& sheet);
    [[nodiscard]] static Result<CleanupPlanFile> read(const FileURL& url);

    /// The file's bytes, and what they hold.
    [[nodiscard]] static std::string text(const CleanupPlan& plan, const CleanupPlanSheet& sheet);
    [[nodiscard]] static Result<CleanupPlanFile> fromText(std::string_view text);
};

} // namespace tidyro
