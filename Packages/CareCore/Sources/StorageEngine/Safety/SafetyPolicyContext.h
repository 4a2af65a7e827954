#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/JSONCoding.h"
#include "Base/Record.h"
#include "StorageEngine/Places/RootPathIndex.h"

namespace tidyro {

/// What a verdict needs to know of the machine at one moment. This is the part of a context that is
/// written to JSON.
struct SafetyPolicyFacts {
    using PathSet = std::set<std::string, std::less<>>;

    std::uint32_t currentUserID; ///< the person who runs the program
    std::set<std::string, std::less<>> internalLocalVolumeIdentifiers;
    std::vector<FileURL> activeApplicationRoots;   ///< data folders of applications running now
    std::vector<FileURL> additionalProtectedRoots; ///< further folders never to be cleaned
    PathSet activelyGrowingPaths;                  ///< seen growing during the scan
    PathSet openByProcessPaths;                    ///< open or executed by some process

    static constexpr auto fields() {
        using Self = SafetyPolicyFacts;
        return fieldList<Self>(
            field("currentUserID", &Self::currentUserID),
            field("internalLocalVolumeIdentifiers", &Self::internalLocalVolumeIdentifiers),
            field("activeApplicationRoots", &Self::activeApplicationRoots),
            field("additionalProtectedRoots", &Self::additionalProtectedRoots),
            field("activelyGrowingPaths", &Self::activelyGrowingPaths),
            field("openByProcessPaths", &Self::openByProcessPaths));
    }
    bool operator==(const SafetyPolicyFacts&) const = default;
};

/// The facts, and what is derived from them once because every verdict asks for it. Immutable.
class SafetyPolicyContext {
  public:
    /// `choosable`: those of the additional protected roots in which a person may pick single
    /// items, though rules leave them alone: the folders of documents, music, pictures and the
    /// like, and folders that are mounted a second time. JSON does not hold them: a context that
    /// was read back has none, which is the safe side.
    explicit SafetyPolicyContext(SafetyPolicyFacts facts, std::vector<FileURL> choosable = {});

    [[nodiscard]] const SafetyPolicyFacts& facts() const { return facts_; }
    [[nodiscard]] const std::vector<FileURL>& choosableRoots() const { return choosableRoots_; }
    [[nodiscard]] const std::vector<std::string>& activeApplicationRootPaths() const {
        return activeApplicationRootPaths_;
    }
    [[nodiscard]] const std::vector<std::string>& additionalProtectedRootPaths() const {
        return additionalProtectedRootPaths_;
    }
    [[nodiscard]] const RootPathIndex& activeApplicationRootIndex() const {
        return activeApplicationRoots_;
    }
    [[nodiscard]] const RootPathIndex& additionalProtectedRootIndex() const {
        return additionalProtectedRoots_;
    }

    bool operator==(const SafetyPolicyContext& other) const { return facts_ == other.facts_; }

  private:
    SafetyPolicyFacts facts_;
    std::vector<FileURL> choosableRoots_;
    std::vector<std::string> activeApplicationRootPaths_;
    std::vector<std::string> additionalProtectedRootPaths_;
    RootPathIndex activeApplicationRoots_;
    RootPathIndex additionalProtectedRoots_;
};

/// The keys are those of the facts. JSON is Unicode, and names of files need not be: a path that is
/// not Unicode is written as the text of its URL. A path begins with "/" and a URL never does,
/// which tells the two apart when they are read.
template <>
struct JSONCoder<SafetyPolicyContext> {
    static JSON encode(const SafetyPolicyContext& context);
    static Decoded<SafetyPolicyContext> decode(const JSON& json);
};

} // namespace tidyro
