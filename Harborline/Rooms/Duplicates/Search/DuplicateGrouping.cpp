#include "Rooms/Duplicates/Search/DuplicateGrouping.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Sorting/KnownPlaces.h"

namespace tidyro {

/// A proven file with its names.
struct DuplicateGrouping::Named {
    ProvenFile proof;
    std::string path;
    std::vector<std::string> otherNames;
    bool insidePackage;
};

DuplicateGrouping::DuplicateGrouping(const Options& options) : options_(options) {}

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
                .insidePackage = files[names.front().second].insidePackage};
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

std::optional<std::string> DuplicateGrouping::heldBecause(const Named& file) {
    if (isOnSystemVolume(file.path)) {
        return std::string(platform::systemText(SystemText::belongsToSystem));
    }
    if (file.insidePackage) return "Inside an app or library, which would break without it.";
    if (file.proof.linkCount > 1) {
        return "This file has another name on the disk (a hard link), so moving one name frees "
               "nothing.";
    }
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
    const auto entry = options_.policy.planEntry(question);
    if (entry) return std::nullopt;
    return std::string(explanation(entry.error()));
}

DuplicateGroup DuplicateGrouping::makeGroup(std::vector<Named> files) {
    std::ranges::sort(files, {}, &Named::path);
    DuplicateGroup group{.digest = platform::hexText(files.front().proof.digest),
                         .bytesEach = files.front().proof.bytes,
                         .copies = {}};
    std::map<platform::FileExtent, std::int64_t> storages;
    std::int64_t next = 0;
    for (Named& file : files) {
        std::int64_t storage = next;
        if (file.proof.extent) {
            storage = storages.try_emplace(*file.proof.extent, next).first->second;
        }
        if (storage == next) ++next;
        group.copies.push_back({.path = std::move(file.path),
                                .modified = file.proof.modified,
                                .created = file.proof.created,
                                .otherNames = std::move(file.otherNames),
                                .storage = storage,
                                .isSystem = false});
    }
    if (next < 2) return group;
    for (std::size_t i = 0; i < files.size() && !options_.cancel.stop_requested(); ++i) {
        files[i].path = group.copies[i].path;
        group.copies[i].isSystem = isOnSystemVolume(files[i].path);
        group.copies[i].heldBecause = heldBecause(files[i]);
    }
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
