#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/JSONForward.h"
#include "Base/Record.h"
#include "Base/SharedText.h"
#include "Base/StringTable.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Safety/ToolStateFence.h"

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

/// What holds where processes may run that this program does not see, as in a container: nobody
/// knows which applications run, and only a file itself can tell that nobody has it open.
struct HiddenProcesses {
    /// Folders of applications. What they keep may go only when they do not run.
    std::vector<FileURL> applicationFolders;
    /// The volume that this system lies on. Others were mounted from outside.
    std::optional<std::string> ownVolume = std::nullopt;
};

/// The facts, and what is derived from them once because every verdict asks for it. Immutable.
class SafetyPolicyContext {
  public:
    /// `choosable`: those of the additional protected roots in which a person may pick single
    /// items, though rules leave them alone: the folders of documents, music, pictures and the
    /// like, and folders that are mounted a second time. JSON does not hold them: a context that
    /// was read back has none, which is the safe side.
    ///
    /// `hidden`: none where all processes are seen. JSON does not hold this either: in a context
    /// that was read back all items count as used by processes that are not seen.
    explicit SafetyPolicyContext(SafetyPolicyFacts facts, std::vector<FileURL> choosable = {},
                                 const std::optional<HiddenProcesses>& hidden = std::nullopt);
    /// What people call the programs that the folders of running applications belong to, by the
    /// paths of those folders. JSON does not hold them.
    using Programs = StringMap<std::string>;
    void setPrograms(const Programs& programs);
    /// What tools keep of a person's work, which nothing but their own rules may reach. Null for
    /// nothing. JSON does not hold it.
    void setToolState(std::shared_ptr<const ToolStateFence> fence) {
        toolState_ = std::move(fence);
    }
    [[nodiscard]] const ToolStateFence* toolState() const { return toolState_.get(); }
    /// The same with other facts.
    [[nodiscard]] SafetyPolicyContext with(SafetyPolicyFacts facts) const;

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
    /// Why what lies in a folder of a running application has to stay, with the program to quit
    /// where it is known.
    [[nodiscard]] SharedText reasonOfActiveApplication(std::string_view path) const;
    [[nodiscard]] const RootPathIndex& additionalProtectedRootIndex() const {
        return additionalProtectedRoots_;
    }

    /// Whether a process that is not seen may be using an item, as far as its place tells.
    [[nodiscard]] bool mayBeUsedByHidden(std::string_view path,
                                         const std::optional<SharedText>& volume) const;
    [[nodiscard]] bool areProcessesHidden() const { return areProcessesHidden_; }

    bool operator==(const SafetyPolicyContext& other) const { return facts_ == other.facts_; }

  private:
    SafetyPolicyFacts facts_;
    std::vector<FileURL> choosableRoots_;
    std::vector<std::string> activeApplicationRootPaths_;
    std::vector<std::string> additionalProtectedRootPaths_;
    RootPathIndex activeApplicationRoots_;
    RootPathIndex additionalProtectedRoots_;
    StringMap<SharedText> reasonsOfPrograms_; ///< by the applications' folders
    bool areProcessesHidden_;
    RootPathIndex hiddenApplicationFolders_;
    std::optional<std::string> ownVolume_;
    std::shared_ptr<const ToolStateFence> toolState_;
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
