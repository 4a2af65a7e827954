#include "StorageEngine/SafetyPolicyContext.h"

namespace tidyro {

RootFolders::RootFolders(std::vector<FileURL> urls) : urls_(std::move(urls)) {
    paths_.reserve(urls_.size());
    for (const FileURL& url : urls_) paths_.push_back(url.path());
    index_ = RootPathIndex(paths_);
}

} // namespace tidyro
