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

/// What a verdict needs to know of the machine at one moment. As a record it is what is written.
struct SafetyPolicyFacts {
    std::uint32_t currentUserID; ///< the person who runs the program
    std::set<std::string, std::less<>> internalLocalVolumeIdentifiers;
    std::vector<FileURL> activeApplicationRoots;   ///< data folders of applications running now
    std::vector<FileURL> additionalProtectedRoots; ///< further folders never to be cleaned
    std::set<std::string, std::less<>> activelyGrowingPaths; ///< seen growing during the scan
    std::set<std::string, std::less<>> openByProcessPaths;   ///< open or executed by some process

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

/// The facts, with what every verdict asks of them derived once. Immutable.
class SafetyPolicyContext {
  public:
    /// `choosable`: those of the additional protected roots that only rules leave alone. A person
    /// may pick single items in them: the folders of documents, music, pictures and the like, and
    /// what is mounted a second time. They are not written, so a context that was read back has
    /// none, and none is the answer in doubt.
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

/// Keys are those of the facts; reading derives the rest again. JSON is Unicode and names of files
/// need not be: a path that is none is written as the text of its URL, which no path begins like.
template <>
struct JSONCoder<SafetyPolicyContext> {
    static JSON encode(const SafetyPolicyContext& context);
    static Decoded<SafetyPolicyContext> decode(const JSON& json);
};

} // namespace tidyro
