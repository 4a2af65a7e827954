#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/FileURL.h"
#include "Base/LocaleText.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/ProofCard.h"
#include "StorageEngine/AITools/AIToolAuditReport.h"
#include "StorageEngine/AITools/Cleanup/AIToolLastLook.h"

namespace tidyro {

/// Why a tool's home was not cleaned. Nothing was touched.
enum class AIToolCleanupError : std::uint8_t {
    nothingSelected,
    approvalDoesNotMatch,
    manifestExpired,
    permanentRequiresDisposable,
    homeChanged,
};

/// What a person is told.
[[nodiscard]] std::string_view description(AIToolCleanupError error);

/// What a mode does to the items, beside the button that confirms it.
[[nodiscard]] std::string_view cleanupModeText(CleanupExecutionMode mode);

/// What a person ticked in the report of one home. It is a wish: what is no longer eligible is
/// never taken, whatever stands here, and a rule or key that nobody knows takes nothing.
struct AIToolCleanupSelection {
    std::set<std::string> disposableRuleIDs = {};
    std::set<std::string> excludedKeys = {}; ///< of single items that the person unticked
    /// Of the items that the person looked at and ticked one by one: generated work, and items of
    /// rules whose place always asks for a person's look.
    std::set<std::string> reviewedGeneratedKeys = {};
    CleanupExecutionMode generatedWorkMode = CleanupExecutionMode::recoverable;
    CleanupExecutionMode disposableMode = CleanupExecutionMode::recoverable;

    /// What is ticked when nobody has chosen yet. Generated work never is.
    [[nodiscard]] static AIToolCleanupSelection recommended(const AIToolAuditReport& forReport);

    bool operator==(const AIToolCleanupSelection&) const = default;
};

/// What was ticked and does not stand in a manifest all the same.
struct AIToolCleanupLeftOut {
    struct Tally {
        std::uint64_t count = 0;
        std::uint64_t byteCount = 0;

        bool operator==(const Tally&) const = default;
    };
    std::map<AIToolVeto::Reason, Tally> vetoed = {};
    Tally fenced = {};       ///< in a folder in which nothing may be taken
    Tally forTrashOnly = {}; ///< was to be removed for good
    /// Their place asks for a person's look at each. Nobody looked, or they were to be removed for
    /// good.
    Tally needingReview = {};

    /// For people: how many, and why.
    [[nodiscard]] std::vector<std::string>
    lines(const LocaleText& locale = LocaleText::current()) const;
    bool operator==(const AIToolCleanupLeftOut&) const = default;
};

/// The exact list of the items of one home that a cleanup will touch, and how. It is made from an
/// audit, shown, confirmed by its digest, and carried out once within ten minutes.
///
///     AIToolCleanupLeftOut leftOut;
///     const auto manifest = AIToolCleanupManifest::make(
///         report, AIToolCleanupSelection::recommended(report), Timestamp::now(),
///         {.leftOut = &leftOut});
///     if (!manifest) return show(description(manifest.error()));
///     for (const std::string& line : manifest->manifestLines()) show(line);
struct AIToolCleanupManifest {
    static constexpr double lifetime = 600; ///< seconds
    static constexpr std::size_t linesOnScreen = 200;

    struct Entry {
        std::string ruleID;
        FileURL url; ///< written as a URL, so that every byte of a name counts
        std::uint64_t byteCount;
        std::uint64_t allocatedByteCount;

        [[nodiscard]] const std::string& path() const { return url.path(); }

        static constexpr auto fields() {
            return fieldList<Entry>(field("ruleID", &Entry::ruleID), field("path", &Entry::url),
                                    field("byteCount", &Entry::byteCount),
                                    field("allocatedByteCount", &Entry::allocatedByteCount));
        }
        bool operator==(const Entry&) const = default;
    };

    struct Operation {
        CleanupExecutionMode mode;
        AIToolArtifactGroup group;
        std::vector<Entry> entries;
        std::vector<CleanupCandidate> candidates; ///< one for each entry, as it was audited

        static constexpr auto fields() {
            using Self = Operation;
            return fieldList<Self>(field("mode", &Self::mode), field("group", &Self::group),
                                   field("entries", &Self::entries),
                                   field("candidates", &Self::candidates));
        }
        bool operator==(const Operation&) const = default;
    };

    UUID id;
    AIToolID tool;
    std::string layoutVersion;
    AIToolHome home;
    Timestamp createdAt;
    Timestamp expiresAt;
    std::vector<Operation> operations; ///< of disposable items, then of generated work

    [[nodiscard]] std::size_t itemCount() const;
    [[nodiscard]] std::uint64_t byteCount() const; ///< saturating
    /// SHA-256 of the manifest's JSON, in 64 lower-case hexadecimal digits. Any value that differs
    /// makes another one.
    [[nodiscard]] std::string digest() const;
    /// One line an item, in the order in which they are carried out. When there are more than
    /// `limit` a last line counts the rest.
    [[nodiscard]] std::vector<std::string>
    manifestLines(std::size_t limit = linesOnScreen,
                  const LocaleText& locale = LocaleText::current()) const;

    struct Making {
        /// Further folders in which nothing may be taken.
        std::span<const FileURL> fenceRoots = {};
        /// The last look at each disposable item; several threads ask. Null for none, which is for
        /// measurements alone.
        AIToolLastLook::Veto veto = AIToolVeto::reason;
        /// Is told what was ticked and not taken, also when there is no manifest.
        AIToolCleanupLeftOut* leftOut = nullptr;
    };
    /// Takes what is ticked and eligible. It looks at the contents of the disposable files and
    /// changes nothing.
    [[nodiscard]] static std::expected<AIToolCleanupManifest, AIToolCleanupError>
    make(const AIToolAuditReport& from, const AIToolCleanupSelection& selection, Timestamp now,
         const Making& making);
    [[nodiscard]] static std::expected<AIToolCleanupManifest, AIToolCleanupError>
    make(const AIToolAuditReport& from, const AIToolCleanupSelection& selection, Timestamp now) {
        return make(from, selection, now, Making{});
    }

    static constexpr auto fields() {
        using Self = AIToolCleanupManifest;
        return fieldList<Self>(field("id", &Self::id), field("tool", &Self::tool),
                               field("layoutVersion", &Self::layoutVersion),
                               field("home", &Self::home), field("createdAt", &Self::createdAt),
                               field("expiresAt", &Self::expiresAt),
                               field("operations", &Self::operations));
    }
    bool operator==(const AIToolCleanupManifest&) const = default;
};

/// A person's confirmation of a manifest, with the totals that they saw.
struct AIToolCleanupApproval {
    UUID manifestID;
    std::string digest;
    std::int64_t itemCount;
    std::uint64_t byteCount;
    Timestamp approvedAt;

    [[nodiscard]] static AIToolCleanupApproval approve(const AIToolCleanupManifest& manifest,
                                                       Timestamp at);
    /// Whether it was made for this very manifest.
    [[nodiscard]] bool matches(const AIToolCleanupManifest& manifest) const;
    bool operator==(const AIToolCleanupApproval&) const = default;
};

/// The manifests of several homes that are shown together. Each is approved and carried out by
/// itself.
struct AIToolCleanupBatch {
    struct InOrderOfTools {
        [[nodiscard]] bool operator()(const AIToolHome& a, const AIToolHome& b) const;
    };
    template <class Value>
    using ByHome = std::map<AIToolHome, Value, InOrderOfTools>;

    UUID id;
    std::vector<AIToolCleanupManifest> manifests;
    ByHome<std::uint64_t> toolBytesBefore = {}; ///< of the homes with a manifest, with their stores
    ByHome<AIToolCleanupLeftOut> leftOut = {};  ///< of every home

    [[nodiscard]] std::size_t itemCount() const;
    [[nodiscard]] std::uint64_t byteCount() const;
    /// The earliest moment of its manifests; long ago when there is none.
    [[nodiscard]] Timestamp expiresAt() const;

    struct Request {
        std::span<const AIToolAuditReport> reports;
        /// A home without one gets what is recommended.
        const ByHome<AIToolCleanupSelection>& selections;
        /// For all of them, whatever the selections say. Generated work goes to the Trash where
        /// other items are removed for good.
        CleanupExecutionMode mode;
        Timestamp now;
        std::span<const FileURL> fenceRoots = {};
        AIToolLastLook::Veto veto = AIToolVeto::reason;
    };
    /// One manifest for each home with anything to take, in the order of the reports.
    [[nodiscard]] static AIToolCleanupBatch recommended(const Request& request);
};

} // namespace tidyro
