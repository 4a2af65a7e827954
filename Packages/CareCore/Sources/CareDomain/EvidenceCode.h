#pragma once

#include "Base/RawValues.h"

namespace tidyro {

/// One thing that was found out about an item. The first seven speak for cleaning, the rest for
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

} // namespace tidyro
