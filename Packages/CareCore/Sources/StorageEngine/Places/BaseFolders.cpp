#include "StorageEngine/Places/BaseFolders.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/Places/HomeFolders.h"

namespace tidyro {

namespace {

constexpr std::array<std::string_view, 3> usualBases{".cache", ".config", ".local/share"};

/// By these a folder shows that somebody develops something in it.
constexpr std::array<std::string_view, 11> projectMarks{
    ".git",   ".hg", ".jj",       ".svn",         "_darcs",    ".bzr",
    ".pijul", ".sl", ".fslckout", "package.json", "Cargo.toml"};

/// Whether a folder or one directly in it is a project. A folder that cannot be read may be one.
bool mayHoldProject(const std::filesystem::path& folder) {
    std::error_code failed;
    const auto isMarked = [&](const std::filesystem::path& one) {
        return std::ranges::any_of(projectMarks, [&](std::string_view mark) {
            std::error_code unknown;
            const auto type = std::filesystem::symlink_status(one / mark, unknown).type();
            return type != std::filesystem::file_type::not_found;
        });
    };
    if (!std::filesystem::exists(folder, failed)) return static_cast<bool>(failed);
    if (isMarked(folder)) return true;
    for (std::filesystem::directory_iterator at(folder, failed), end; !failed && at != end;
         at.increment(failed)) {
        std::error_code unknown;
        if (at->is_directory(unknown) && isMarked(at->path())) return true;
    }
    return static_cast<bool>(failed);
}

/// The part below the home of a folder that the environment names; empty for any other.
std::string belowHome(const std::optional<std::string>& moved, const FileURL& home) {
    if (!moved) return {};
    const std::string path = path::standardized(*moved);
    if (path == home.path() || !path::isInsideOrEqual(path, home.path())) return {};
    return std::string(path::below(path, home.path()));
}

/// The same for a folder that may be a base.
std::string usable(const std::optional<std::string>& moved, const FileURL& home,
                   std::string_view usual) {
    std::string below = belowHome(moved, home);
    if (below.empty() || below == usual) return below;
    const std::string foldedBelow = folded(below);
    const auto isOrHolds = [&](std::string_view kept) {
        return path::isInsideOrEqual(folded(kept), foldedBelow);
    };
    if (std::ranges::any_of(usualBases, isOrHolds)) return {};
    if (std::ranges::any_of(HomeFolders::standardHomeFolders(), isOrHolds)) return {};
    return mayHoldProject(home.appending(below).path()) ? std::string() : below;
}

/// Replaces the beginning `from` of a path by `to`.
std::optional<std::string> replaced(std::string_view path, std::string_view from,
                                    std::string_view to) {
    if (!path::isInsideOrEqual(path, from)) return std::nullopt;
    return path == from ? std::string(to) : path::joined(to, path::below(path, from));
}

} // namespace

BaseFolders BaseFolders::find(const FileURL& home) {
    return chosen(home, platform::movedFolders());
}

BaseFolders BaseFolders::chosen(const FileURL& home, const platform::MovedFolders& moved) {
    const std::array<const std::optional<std::string>*, 3> named{&moved.caches, &moved.settings,
                                                                 &moved.data};
    std::array<std::string, 3> below;
    for (std::size_t i = 0; i < below.size(); ++i) {
        below[i] = usable(*named[i], home, usualBases[i]);
    }
    BaseFolders bases;
    const std::array<std::string*, 3> found{&bases.caches, &bases.settings, &bases.data};
    for (std::size_t i = 0; i < below.size(); ++i) {
        const bool holdsAnother = std::ranges::any_of(below, [&](const std::string& other) {
            return &other != &below[i] && !other.empty() &&
                   path::isInsideOrEqual(folded(other), folded(below[i]));
        });
        if (!below[i].empty() && !holdsAnother) *found[i] = below[i];
    }
    return bases;
}

BaseFolders BaseFolders::ofKeptPlaces(const FileURL& home) {
    const platform::MovedFolders moved = platform::movedFolders();
    BaseFolders bases;
    for (const auto& [base, folder] : {std::pair{&bases.caches, &moved.caches},
                                       {&bases.settings, &moved.settings},
                                       {&bases.data, &moved.data}}) {
        if (std::string below = belowHome(*folder, home); !below.empty()) *base = std::move(below);
    }
    return bases;
}

std::string BaseFolders::moved(std::string_view belowHome) const {
    for (const auto& [usual, now] :
         {std::pair{usualBases[0], &caches}, {usualBases[1], &settings}, {usualBases[2], &data}}) {
        if (auto path = replaced(belowHome, usual, *now)) return *std::move(path);
    }
    return std::string(belowHome);
}

std::string BaseFolders::named(std::string_view belowHome) const {
    for (const auto& [usual, now] :
         {std::pair{usualBases[0], &caches}, {usualBases[1], &settings}, {usualBases[2], &data}}) {
        if (auto path = replaced(belowHome, *now, usual)) return *std::move(path);
    }
    return std::string(belowHome);
}

} // namespace tidyro
