#include "StorageEngine/SafetyPolicyContext.h"

#include <utility>

namespace tidyro {

namespace {

std::vector<std::string> pathsOf(const std::vector<FileURL>& roots) {
    std::vector<std::string> paths;
    paths.reserve(roots.size());
    for (const FileURL& root : roots) paths.push_back(root.path());
    return paths;
}

} // namespace

SafetyPolicyContext::SafetyPolicyContext(SafetyPolicyFacts facts)
    : facts_(std::move(facts)),
      activeApplicationRootPaths_(pathsOf(facts_.activeApplicationRoots)),
      additionalProtectedRootPaths_(pathsOf(facts_.additionalProtectedRoots)),
      activeApplicationRoots_(activeApplicationRootPaths_),
      additionalProtectedRoots_(additionalProtectedRootPaths_) {}

} // namespace tidyro
