#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/PathText.h"
#include "Base/SharedText.h"
#include "Base/SystemError.h"
#include "Base/Timestamp.h"
#include "CareDomain/CleanupCandidate.h"
#include "CareDomain/CoverageGap.h"
#include "Platform/Files/FileLease.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderReading.h"
#include "Platform/Mounts/Volumes.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/Places/FolderResolver.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Suggestions/SmartCleanupReport.h"

/// What the looks of a smart cleanup scan work with, folder by folder and on several threads.
namespace tidyro {

/// What the second look compares and counts of a file that the first look found eligible. A scan
/// keeps it for every candidate.
struct EligibleFile {
    std::uint64_t byteCount;
    std::uint64_t allocatedBytes;
    std::optional<Timestamp> modified;
    platform::ItemIdentity identity;
    std::uint32_t nameLength;
};

/// Those of one folder, in the order of the walk.
struct EligibleFolder {
    FileURL url;
    std::optional<SharedText> volume = std::nullopt; ///< of all of them
    std::string names = {};                          ///< one behind the other
    std::vector<EligibleFile> files = {};

    void add(const FileObservation& seen, const platform::FileMetadata& metadata) {
        const std::string_view name = seen.url.lastComponent();
        volume = seen.volumeIdentifier;
        names += name;
        files.push_back({.byteCount = metadata.byteCount,
                         .allocatedBytes = metadata.allocatedBytes,
                         .modified = metadata.modified,
                         .identity = metadata.identity,
                         .nameLength = static_cast<std::uint32_t>(name.size())});
    }
    [[nodiscard]] std::string firstPath() const {
        return path::joined(url.path(), std::string_view(names).substr(0, files[0].nameLength));
    }
    /// Whether one of the files is still what the first look saw, as its fingerprint would tell.
    [[nodiscard]] bool isUnchanged(const EligibleFile& file, const platform::FileMetadata& seen,
                                   const FileObservation& now) const {
        return volume == now.volumeIdentifier && file.byteCount == seen.byteCount &&
               file.modified == seen.modified && file.identity == seen.identity;
    }
};

/// What a look found in one folder. Looks at several folders go on at once; their findings are put
/// together in the order of the walk.
struct Findings {
    struct Confirmed {
        CleanupCandidate candidate;
        const EligibleFile* file;
    };
    EligibleFolder eligible = {};          ///< the first look's
    std::vector<Confirmed> confirmed = {}; ///< the second look's
    SmartCleanupTotals held = {};
    std::map<EvidenceCode, std::uint64_t> heldBecause = {};
    std::vector<CoverageGap> gaps = {};

    void hold(const CleanupCandidate& candidate) {
        held.add({.itemCount = 1, .byteCount = candidate.observation.byteCount});
        for (const EvidenceCode code : candidate.assessment.evidence.codes) ++heldBecause[code];
    }
    void addGap(FileURL url, CoverageGapReason reason, std::string detail) {
        gaps.push_back({.url = std::move(url), .reason = reason, .detail = std::move(detail)});
    }
};

/// What one thread of a look works with. It remembers folders for the one look only.
struct Looker {
    FileObserver observer;
    FolderResolver folders = {};
    DeterministicSafetyPolicy::LastFolder lastFolder = {};
    platform::FileAccessAsker access = {};
    platform::FolderLister lister{{.isAskedForFacts = false}};
    std::expected<platform::FolderDescriptor, SystemError> top =
        platform::FolderDescriptor::openRoot("/");

    Looker(const FileURL& home, const platform::Volumes& volumes) : observer(home, volumes) {}

    void setListed(FolderSurroundingsFinder::Listed listed) {
        folders = {}; // folders come one after another, and each only once
        folders.setReal(listed.folder, listed.real);
        observer.setListed(std::move(listed));
    }
    /// Opens and lists a folder once for all who ask about it.
    [[nodiscard]] std::expected<platform::FolderDescriptor, SystemError>
    open(const std::string& folder);
};

/// Lets several threads look at folders at once, the caller's among them. Each has a looker.
class Lookers {
  public:
    Lookers(const FileURL& home, const platform::Volumes& volumes);
    /// Calls `look` for each number below `count`; returns when all have been.
    void forEach(std::size_t count, const std::function<void(std::size_t, Looker&)>& look);

  private:
    static constexpr unsigned maxThreads = 4;
    std::list<Looker> all_;
};

} // namespace tidyro
