#include "StorageEngine/SafetyPolicyContext.h"

#include <utility>

namespace tidyro {

namespace {

RootPathIndex indexOf(const std::vector<FileURL>& roots) {
    std::vector<std::string> paths;
    paths.reserve(roots.size());
    for (const FileURL& root : roots) paths.push_back(root.path());
    return RootPathIndex(paths);
}

} // namespace

SafetyPolicyContext::SafetyPolicyContext(SafetyPolicyFacts facts)
    : facts_(std::move(facts)),
      activeApplicationRoots_(indexOf(facts_.activeApplicationRoots)),
      additionalProtectedRoots_(indexOf(facts_.additionalProtectedRoots)) {}

} // namespace tidyro
