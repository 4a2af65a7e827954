#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/JSON.h"
#include "Base/JSONValues.h"
#include "Base/Record.h"
#include "StorageEngine/RootPathIndex.h"

namespace tidyro {

/// Folders that hold what must not be touched, with what every question about them needs. A list
/// never changes, so its paths and its index cannot come to differ from it; JSON reads and writes
/// the folders alone.
class RootFolders {
  public:
    using value_type = FileURL;

    RootFolders() = default;
    RootFolders(std::vector<FileURL> urls); // NOLINT(google-explicit-constructor): it is a list
    RootFolders(std::initializer_list<FileURL> urls) : RootFolders(std::vector<FileURL>(urls)) {}

    [[nodiscard]] const std::vector<FileURL>& urls() const { return urls_; }
    [[nodiscard]] const std::vector<std::string>& paths() const { return paths_; }
    [[nodiscard]] const RootPathIndex& index() const { return index_; }

    [[nodiscard]] auto begin() const { return urls_.begin(); }
    [[nodiscard]] auto end() const { return urls_.end(); }
    [[nodiscard]] std::size_t size() const { return urls_.size(); }

    bool operator==(const RootFolders& other) const { return urls_ == other.urls_; }

  private:
    std::vector<FileURL> urls_;
    std::vector<std::string> paths_;
    RootPathIndex index_;
};

template <>
struct JSONCoder<RootFolders> {
    static JSON encode(const RootFolders& folders) { return toJSON(folders.urls()); }
    static Decoded<RootFolders> decode(const JSON& json) {
        auto urls = fromJSON<std::vector<FileURL>>(json);
        if (!urls) return std::unexpected(std::move(urls.error()));
        return RootFolders(*std::move(urls));
    }
};

/// Paths, standardised; asked for by text of any kind.
using PathSet = std::set<std::string, std::less<>>;

/// What the safety policy has to know of the machine: a snapshot, true of one moment. Whoever is
/// about to touch something takes a fresh one.
struct SafetyPolicyContext {
    std::uint32_t currentUserID;
    PathSet internalLocalVolumeIdentifiers;
    RootFolders activeApplicationRoots;   ///< data of applications that are running
    RootFolders additionalProtectedRoots; ///< never to be cleaned
    PathSet activelyGrowingPaths;         ///< seen growing during a scan
    PathSet openByProcessPaths;           ///< open, mapped or run by a process

    [[nodiscard]] const std::vector<std::string>& activeApplicationRootPaths() const {
        return activeApplicationRoots.paths();
    }
    [[nodiscard]] const std::vector<std::string>& additionalProtectedRootPaths() const {
        return additionalProtectedRoots.paths();
    }
    [[nodiscard]] const RootPathIndex& activeApplicationRootIndex() const {
        return activeApplicationRoots.index();
    }
    [[nodiscard]] const RootPathIndex& additionalProtectedRootIndex() const {
        return additionalProtectedRoots.index();
    }

    static constexpr auto fields() {
        using Self = SafetyPolicyContext;
        return fieldList<Self>(
            field("currentUserID", &Self::currentUserID),
            field("internalLocalVolumeIdentifiers", &Self::internalLocalVolumeIdentifiers),
            field("activeApplicationRoots", &Self::activeApplicationRoots),
            field("additionalProtectedRoots", &Self::additionalProtectedRoots),
            field("activelyGrowingPaths", &Self::activelyGrowingPaths),
            field("openByProcessPaths", &Self::openByProcessPaths));
    }
    bool operator==(const SafetyPolicyContext&) const = default;
};

} // namespace tidyro
