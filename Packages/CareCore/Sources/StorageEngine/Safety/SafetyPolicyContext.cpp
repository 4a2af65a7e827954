#include "StorageEngine/Safety/SafetyPolicyContext.h"

#include <utility>

#include <fmt/format.h>

#include "Base/JSONCoding.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

constexpr std::string_view ofActiveApplication =
    "Data belonging to an active application remains protected.";

std::vector<std::string> pathsOf(const std::vector<FileURL>& roots) {
    std::vector<std::string> paths;
    paths.reserve(roots.size());
    for (const FileURL& root : roots) paths.push_back(root.path());
    return paths;
}

SafetyPolicyFacts::PathSet written(const SafetyPolicyFacts::PathSet& paths) {
    SafetyPolicyFacts::PathSet all;
    for (const std::string& path : paths) {
        all.insert(repairedUTF8(path) == path ? path : FileURL::file(path).text());
    }
    return all;
}

SafetyPolicyFacts::PathSet readBack(const SafetyPolicyFacts::PathSet& paths) {
    SafetyPolicyFacts::PathSet all;
    for (const std::string& path : paths) {
        const auto url = path.starts_with('/') ? std::nullopt : FileURL::fromText(path);
        all.insert(url ? url->path() : path);
    }
    return all;
}

} // namespace

SafetyPolicyContext::SafetyPolicyContext(SafetyPolicyFacts facts, std::vector<FileURL> choosable,
                                         const std::optional<HiddenProcesses>& hidden)
    : facts_(std::move(facts)),
      choosableRoots_(std::move(choosable)),
      activeApplicationRootPaths_(pathsOf(facts_.activeApplicationRoots)),
      additionalProtectedRootPaths_(pathsOf(facts_.additionalProtectedRoots)),
      activeApplicationRoots_(activeApplicationRootPaths_),
      additionalProtectedRoots_(additionalProtectedRootPaths_),
      areProcessesHidden_(hidden.has_value()) {
    if (!hidden) return;
    hiddenApplicationFolders_ = RootPathIndex(pathsOf(hidden->applicationFolders));
    ownVolume_ = hidden->ownVolume;
}

SafetyPolicyContext SafetyPolicyContext::with(SafetyPolicyFacts facts) const {
    SafetyPolicyContext changed(std::move(facts), choosableRoots_);
    changed.reasonsOfPrograms_ = reasonsOfPrograms_;
    changed.areProcessesHidden_ = areProcessesHidden_;
    changed.hiddenApplicationFolders_ = hiddenApplicationFolders_;
    changed.ownVolume_ = ownVolume_;
    changed.toolState_ = toolState_;
    return changed;
}

void SafetyPolicyContext::setPrograms(const Programs& programs) {
    for (const auto& [folder, program] : programs) {
        reasonsOfPrograms_[folder] =
            SharedText::made(fmt::format("{} Quit {} first.", ofActiveApplication, program));
    }
}

SharedText SafetyPolicyContext::reasonOfActiveApplication(std::string_view path) const {
    for (; path.size() > 1; path = path::parent(path)) {
        const auto found = reasonsOfPrograms_.find(path);
        if (found != reasonsOfPrograms_.end()) return found->second;
    }
    return SharedText::lasting(ofActiveApplication);
}

bool SafetyPolicyContext::mayBeUsedByHidden(std::string_view path,
                                            const std::optional<SharedText>& volume) const {
    if (!areProcessesHidden_) return false;
    return !ownVolume_ || !volume || volume->text() != *ownVolume_ ||
           hiddenApplicationFolders_.contains(path);
}

JSON JSONCoder<SafetyPolicyContext>::encode(const SafetyPolicyContext& context) {
    SafetyPolicyFacts facts = context.facts();
    facts.activelyGrowingPaths = written(facts.activelyGrowingPaths);
    facts.openByProcessPaths = written(facts.openByProcessPaths);
    return toJSON(facts);
}

Decoded<SafetyPolicyContext> JSONCoder<SafetyPolicyContext>::decode(const JSON& json) {
    auto facts = fromJSON<SafetyPolicyFacts>(json);
    if (!facts) return std::unexpected(std::move(facts.error()));
    facts->activelyGrowingPaths = readBack(facts->activelyGrowingPaths);
    facts->openByProcessPaths = readBack(facts->openByProcessPaths);
    return SafetyPolicyContext(*std::move(facts), {}, HiddenProcesses{.applicationFolders = {}});
}

} // namespace tidyro
