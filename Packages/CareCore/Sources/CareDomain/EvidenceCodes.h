#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <span>

#include "Base/RawValues.h"

namespace tidyro {

/// One fact about an item. The codes down to `exactByteDuplicate` speak for cleaning, the rest for
/// caution.
enum class EvidenceCode {
    verifiedBuiltInRule,   ///< it matched a shipped, verified rule
    regenerable,           ///< its owner rebuilds the content when it is missing
    oldEnough,             ///< older than the age floor of its rule
    currentUserOwned,      ///< it belongs to the current user
    internalLocalVolume,   ///< it lies on an internal local volume
    inactive,              ///< no owning application is running
    exactByteDuplicate,    ///< byte for byte like a file that is kept
    userReviewRequired,    ///< a person must look at it
    unverifiedRule,        ///< the rule that matched is not a verified one
    insufficientAge,       ///< younger than the age floor
    activeApplicationData, ///< the owning application is running
    unreadable,            ///< it could not be read
    ownershipUnverified,   ///< the owner could not be confirmed as the current user
    outsideInternalVolume, ///< it lies on an external, network or unknown volume
    cloudPlaceholder,      ///< its bytes are not local
    projectRepository,     ///< it lies inside a source repository
    backupArtifact,        ///< it belongs to a backup
    protectedLocation,     ///< it lies in a protected location
    personalLocation,      ///< it lies among the user's personal files
    unknownPurpose,        ///< nothing tells what it is for
    liveDataStore,         ///< a live database or a store in use
    activeGrowth,          ///< it is growing right now
    projectContent,        ///< content of a project rather than generated output
    openByProcess,         ///< a running process holds it open
};

constexpr RawValueTable<EvidenceCode, 24> rawValues(RawValueTag<EvidenceCode>) {
    using enum EvidenceCode;
    return {{{{verifiedBuiltInRule, "verifiedBuiltInRule"},
              {regenerable, "regenerable"},
              {oldEnough, "oldEnough"},
              {currentUserOwned, "currentUserOwned"},
              {internalLocalVolume, "internalLocalVolume"},
              {inactive, "inactive"},
              {exactByteDuplicate, "exactByteDuplicate"},
              {userReviewRequired, "userReviewRequired"},
              {unverifiedRule, "unverifiedRule"},
              {insufficientAge, "insufficientAge"},
              {activeApplicationData, "activeApplicationData"},
              {unreadable, "unreadable"},
              {ownershipUnverified, "ownershipUnverified"},
              {outsideInternalVolume, "outsideInternalVolume"},
              {cloudPlaceholder, "cloudPlaceholder"},
              {projectRepository, "projectRepository"},
              {backupArtifact, "backupArtifact"},
              {protectedLocation, "protectedLocation"},
              {personalLocation, "personalLocation"},
              {unknownPurpose, "unknownPurpose"},
              {liveDataStore, "liveDataStore"},
              {activeGrowth, "activeGrowth"},
              {projectContent, "projectContent"},
              {openByProcess, "openByProcess"}}}};
}

/// A set of evidence codes, ascending by raw text. The order in which codes are inserted makes no
/// difference, nor does repetition.
///
///     EvidenceCodes codes{EvidenceCode::oldEnough, EvidenceCode::regenerable};
///     codes.insert(EvidenceCode::oldEnough);
///     for (EvidenceCode code : codes) ...      // oldEnough, regenerable
///
/// It is one word with a bit for each code, in the order of the raw texts, so gathering evidence
/// allocates nothing. Its member types say that it is an ordered set, and JSON codes it as one.
class EvidenceCodes {
  public:
    struct ByRawText {
        [[nodiscard]] constexpr bool operator()(EvidenceCode a, EvidenceCode b) const {
            return rawValue(a) < rawValue(b);
        }
    };
    using key_type = EvidenceCode;
    using value_type = EvidenceCode;
    using key_compare = ByRawText;

    constexpr EvidenceCodes() = default;
    constexpr EvidenceCodes(std::initializer_list<EvidenceCode> codes) {
        for (const EvidenceCode code : codes) insert(code);
    }
    constexpr explicit EvidenceCodes(std::span<const EvidenceCode> codes) {
        for (const EvidenceCode code : codes) insert(code);
    }

    constexpr void insert(EvidenceCode code) { bits_ |= bit(code); }

    [[nodiscard]] constexpr bool contains(EvidenceCode code) const {
        return (bits_ & bit(code)) != 0;
    }
    [[nodiscard]] constexpr std::size_t size() const {
        return static_cast<std::size_t>(std::popcount(bits_));
    }
    [[nodiscard]] constexpr bool empty() const { return bits_ == 0; }

    class Iterator {
      public:
        using value_type = EvidenceCode;
        using difference_type = std::ptrdiff_t;

        constexpr Iterator() = default;
        constexpr EvidenceCode operator*() const;
        constexpr Iterator& operator++() {
            rest_ &= rest_ - 1; // the lowest bit goes
            return *this;
        }
        constexpr Iterator operator++(int) {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator&) const = default;

      private:
        friend class EvidenceCodes;
        constexpr explicit Iterator(std::uint32_t rest) : rest_(rest) {}

        std::uint32_t rest_ = 0;
    };
    [[nodiscard]] constexpr Iterator begin() const { return Iterator(bits_); }
    [[nodiscard]] constexpr Iterator end() const { return Iterator(0); }

    bool operator==(const EvidenceCodes&) const = default;

  private:
    static constexpr std::size_t count = detail::rawValueRows<EvidenceCode>.size();
    static_assert(count <= 32, "a word has no room for another code");

    struct Ranks {
        std::array<EvidenceCode, count> ascending{}; ///< all codes by raw text
        std::array<std::uint8_t, count> rank{};      ///< where each of them stands there
    };
    static const Ranks ranks;

    static constexpr std::uint32_t bit(EvidenceCode code);

    std::uint32_t bits_ = 0;
};

inline constexpr EvidenceCodes::Ranks EvidenceCodes::ranks = [] {
    Ranks made;
    for (const EvidenceCode code : allCases<EvidenceCode>()) {
        std::uint8_t smaller = 0;
        for (const EvidenceCode other : allCases<EvidenceCode>()) {
            if (ByRawText{}(other, code)) ++smaller;
        }
        made.rank[static_cast<std::size_t>(code)] = smaller;
        made.ascending[smaller] = code;
    }
    return made;
}();

constexpr std::uint32_t EvidenceCodes::bit(EvidenceCode code) {
    return std::uint32_t{1} << ranks.rank[static_cast<std::size_t>(code)];
}

constexpr EvidenceCode EvidenceCodes::Iterator::operator*() const {
    return ranks.ascending[static_cast<std::size_t>(std::countr_zero(rest_))];
}

static_assert(std::forward_iterator<EvidenceCodes::Iterator>);

} // namespace tidyro
