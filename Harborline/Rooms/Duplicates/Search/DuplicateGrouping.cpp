#include "Rooms/Duplicates/Search/DuplicateGrouping.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Machine/OperatingSystem.h"
#include "Rooms/Duplicates/Search/CopyStorage.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

namespace {

/// Whether the file was changed so late before reading began that a later change may have left the
/// same date. Dates move in steps: most file systems take the moment from a clock that ticks every
/// hundredth of a second, and one that keeps no fractions may count in steps of two seconds.
bool mayBeChanging(const ProvenFile& file, Timestamp readingBegan) {
    const Timestamp changed = file.changed.value_or(file.modified);
    const double seconds = changed.secondsSinceReference();
    const double step = seconds == std::floor(seconds) ? 2.0 : 0.02;
    return !(changed.adding(step) < readingBegan);
}

} // namespace

/// A proven file with its names.
struct DuplicateGrouping::Named {
    ProvenFile proof;
    std::string path;
    std::vector<std::string> otherNames;
    std::vector<std::uint32_t> listed; ///< all names, as their numbers in the listing
    bool insidePackage;
    /// What the policy found out about the file itself. It asks only when nothing else holds it.
    platform::FileUse use = platform::FileUse::unknown;
};

DuplicateGrouping::DuplicateGrouping(const Options& options)
    : options_(options), places_(options.listing, options.search.home), opener_(options.listing) {}

/// Sorts the files by their contents and keeps each by one of its names. Several mounts or roots
/// may lead to a file that has one name by its link count, so it may have been read by several.
void DuplicateGrouping::keepEachFileOnce(DuplicateProving::Result& proven) {
    const auto order = [](const ProvenFile& file) {
        return std::tie(file.bytes, file.digest, file.identity, file.file);
    };
    std::ranges::sort(proven.files, {}, order);
    const auto repeated =
        std::ranges::unique(proven.files, [&](const ProvenFile& a, const ProvenFile& b) {
            if (a.identity != b.identity) return false;
            proven.furtherNames.push_back({.file = b.file, .identity = b.identity});
            return true;
        });
    proven.files.erase(repeated.begin(), repeated.end());
    for (const FurtherName& name : proven.furtherNames) {
        furtherNames_[name.identity].push_back(name.file);
    }
}

/// The first of a file's names in the alphabet stands for it, since chance decides which of them a
/// search meets first.
DuplicateGrouping::Named DuplicateGrouping::withNames(const ProvenFile& file) const {
    const auto& files = options_.listing.files();
    std::vector<std::pair<std::string, std::uint32_t>> names{
        {options_.listing.path(files[file.file]), file.file}};
    const auto further = furtherNames_.find(file.identity);
    if (further != furtherNames_.end()) {
        for (const std::uint32_t name : further->second) {
            names.emplace_back(options_.listing.path(files[name]), name);
        }
        std::ranges::sort(names);
    }
    Named found{.proof = file,
                .path = names.front().first,
                .otherNames = {},
                .listed = {},
                .insidePackage = files[names.front().second].insidePackage};
    for (const auto& [path, number] : names) found.listed.push_back(number);
    for (auto name = names.begin() + 1; name != names.end(); ++name) {
        // Two roots may list the same path.
        if (name->first != std::prev(name)->first) found.otherNames.push_back(name->first);
    }
    return found;
}

bool DuplicateGrouping::isOnSystemVolume(const std::string& path) const {
    return std::ranges::any_of(options_.search.systemVolumeRoots, [&](const FileURL& root) {
        return path::isInsideOrEqual(path, root.path());
    });
}

std::expected<CleanupPlanEntry, DiskItemRefusal> DuplicateGrouping::askPolicy(const Named& file) {
    const KnownPlace* place = KnownPlaces::place(file.path, options_.search.home);
    DiskItemRemovalPolicy::Question question{.item = FileURL::file(file.path),
                                             .measuredBytes = file.proof.bytes,
                                             .built = options_.startedAt,
                                             .at = Timestamp::now(),
                                             .cancel = options_.cancel};
    if (place != nullptr) {
        question.placeID = std::string(place->id);
        question.group = place->group;
    }
    return options_.policy.planEntry(question);
}

/// Finds out why a copy has to stay, and whether others may go because it does. Only a copy that
/// the policy would let go is such a reason: of any other nothing is known beyond the first thing
/// against it, which may be that it is a backup, a database or in use.
void DuplicateGrouping::judge(Named& file, DuplicateCopy& copy) {
    CopyStanding standing{.isReason = false, .hasSeveralNames = file.proof.linkCount > 1};
    CopyPlaces::Finding found;
    for (const std::uint32_t name : file.listed) {
        found.add(places_.look(options_.listing.files()[name]));
    }
    standing.place = found.place;
    copy.isSystem = isOnSystemVolume(copy.path);
    if (copy.isSystem) {
        copy.heldBecause = platform::systemText(SystemText::belongsToSystem);
    } else if (file.insidePackage) {
        copy.heldBecause = "Inside an app or library, which would break without it.";
    } else {
        const auto entry = askPolicy(file);
        if (entry) file.use = platform::FileUse::free;
        if (entry == std::unexpected(DiskItemRefusal::openByProcess)) {
            file.use = platform::FileUse::inUse;
        }
        standing.isReason = entry && !mayBeChanging(file.proof, options_.startedAt);
        if (entry) {
            const auto& codes = entry->proofCard.evidence.codes;
            if (!codes.contains(EvidenceCode::internalLocalVolume)) {
                standing.volume = entry->fingerprint.volumeIdentifier;
            }
        }
        if (standing.hasSeveralNames) {
            copy.heldBecause = "This file has another name on the disk (a hard link), so moving "
                               "one name frees nothing.";
        } else if (!entry) {
            copy.heldBecause = explanation(entry.error());
        } else if (!standing.isReason) {
            copy.heldBecause = explanation(DiskItemRefusal::growing);
        } else if (!found.heldBecause.empty()) {
            copy.heldBecause = found.heldBecause;
        }
    }
    copy.standing = std::move(standing);
}

/// Files in use are known by their real paths.
bool DuplicateGrouping::isOpenByPath(const Named& file) {
    if (options_.context == nullptr) return true;
    const SafetyPolicyFacts& facts = options_.context->facts();
    return std::ranges::any_of(file.listed, [&](std::uint32_t number) {
        const ListedFile& name = options_.listing.files()[number];
        const std::string written = options_.listing.path(name);
        const std::string real = places_.realPath(name);
        return std::ranges::any_of(
            std::array{&facts.openByProcessPaths, &facts.activelyGrowingPaths},
            [&](const auto* paths) { return paths->contains(written) || paths->contains(real); });
    });
}

/// By whatever name, and by a process of which no path is told. Only what the policy held for
/// another reason is still to be asked.
bool DuplicateGrouping::isOpen(const Named& file) {
    using enum platform::FileUse;
    if (file.use != unknown) return file.use == inUse;
    return opener_.use(options_.listing.files()[file.listed.front()]) == inUse;
}

/// The mode does not tell: file systems without modes call all files executable, and programs that
/// were copied from them may be called none. A file that cannot be asked may be a program.
bool DuplicateGrouping::beginsAsProgram(const Named& file) {
    constexpr std::array<std::string_view, 7> beginnings{"\x7F"
                                                         "ELF",
                                                         "\xFE\xED\xFA\xCE",
                                                         "\xFE\xED\xFA\xCF",
                                                         "\xCE\xFA\xED\xFE",
                                                         "\xCF\xFA\xED\xFE",
                                                         "\xCA\xFE\xBA\xBE",
                                                         "\xCA\xFE\xBA\xBF"};
    auto opened = opener_.openAndLook(options_.listing.files()[file.proof.file]);
    if (!opened) return true;
    std::array<std::byte, 4> bytes{};
    opened->contents.expectSingleReads();
    const auto count = opened->contents.read(0, bytes);
    if (!count) return true;
    std::string beginning;
    for (std::size_t i = 0; i < *count; ++i) beginning += static_cast<char>(bytes[i]);
    return beginning.starts_with("#!") ||
           std::ranges::find(beginnings, beginning) != beginnings.end();
}

/// Holds what no look at a single copy shows. A program that has mapped a file writes to it without
/// changing any date at first, so the copies of an open file may differ from it by now.
void DuplicateGrouping::judgeTogether(const std::vector<Named>& files, DuplicateGroup& group) {
    const auto isFree = [](const DuplicateCopy& copy) { return !copy.heldBecause; };
    if (std::ranges::none_of(group.copies, isFree)) return;
    constexpr std::string_view inUse =
        "A program has a copy of this set open and may be changing it.";
    std::string_view reason;
    const bool isOpenSomewhere =
        std::ranges::any_of(files, [&](const Named& file) { return isOpenByPath(file); });
    if (!isOpenSomewhere && beginsAsProgram(files.front())) {
        reason = "This is a program or a script, which others may start from where it is.";
    } else if (isOpenSomewhere ||
               std::ranges::any_of(files, [&](const Named& file) { return isOpen(file); })) {
        reason = inUse;
    }
    if (reason.empty()) return;
    for (DuplicateCopy& copy : group.copies) {
        if (isFree(copy)) copy.heldBecause = reason;
    }
}

DuplicateGroup DuplicateGrouping::makeGroup(std::vector<Named> files) {
    std::ranges::sort(files, {}, &Named::path);
    DuplicateGroup group{.digest = platform::hexText(files.front().proof.digest),
                         .bytesEach = files.front().proof.bytes,
                         .copies = {}};
    std::vector<const ProvenFile*> proofs;
    proofs.reserve(files.size());
    for (const Named& file : files) proofs.push_back(&file.proof);
    const CopyStorage storage = CopyStorage::measure(proofs);
    group.extraBytes = storage.extraBytes;
    for (std::size_t i = 0; i < files.size(); ++i) {
        Named& file = files[i];
        group.copies.push_back({.path = std::move(file.path),
                                .modified = file.proof.modified,
                                .created = file.proof.created,
                                .otherNames = std::move(file.otherNames),
                                .storage = storage.copies[i].number,
                                .isSystem = false,
                                .freedBytes = storage.copies[i].freedBytes});
    }
    if (group.storageCount() < 2) return group;
    for (std::size_t i = 0; i < files.size() && !options_.cancel.stop_requested(); ++i) {
        files[i].path = group.copies[i].path;
        judge(files[i], group.copies[i]);
    }
    judgeTogether(files, group);
    return group;
}

DuplicateGrouping::Groups DuplicateGrouping::makeGroups(DuplicateProving::Result proven) {
    keepEachFileOnce(proven);
    const std::vector<ProvenFile>& files = proven.files;
    const auto contents = [](const ProvenFile& file) { return std::tie(file.bytes, file.digest); };
    Groups made{.groups = {}, .furtherNames = std::ssize(proven.furtherNames)};
    for (auto begin = files.begin(); begin != files.end() && !options_.cancel.stop_requested();) {
        const auto end = std::find_if(begin, files.end(), [&](const ProvenFile& file) {
            return contents(file) != contents(*begin);
        });
        if (end - begin > 1) {
            std::vector<Named> copies;
            for (auto at = begin; at != end; ++at) copies.push_back(withNames(*at));
            DuplicateGroup one = makeGroup(std::move(copies));
            if (one.storageCount() > 1) {
                made.groups.push_back(std::move(one));
            } else {
                ++made.cloneOnlyGroups;
            }
        }
        begin = end;
    }
    std::ranges::sort(made.groups, [](const DuplicateGroup& a, const DuplicateGroup& b) {
        const std::uint64_t left = a.wastedBytes();
        const std::uint64_t right = b.wastedBytes();
        return left != right ? left > right : a.digest < b.digest;
    });
    return made;
}

} // namespace tidyro
