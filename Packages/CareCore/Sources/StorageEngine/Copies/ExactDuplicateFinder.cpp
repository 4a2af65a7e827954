#include "StorageEngine/Copies/ExactDuplicateFinder.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <thread>
#include <utility>

#include <fmt/format.h>

#include "Base/Saturating.h"
#include "Platform/Files/FileContents.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Machine/SHA256.h"

namespace tidyro {

namespace {

using Digest = platform::SHA256::Digest;
using Error = ExactDuplicateFinder::Error;

struct Describe {
    std::string operator()(const CancellationError&) const {
        return "The search for duplicates was cancelled.";
    }
    std::string operator()(const ExactDuplicateFinder::Unreadable& unreadable) const {
        return fmt::format("Tidyro could not read {} ({}).", unreadable.file.path(),
                           unreadable.error.description());
    }
};

/// Digests files one after another through one buffer.
class FileDigester {
  public:
    FileDigester(std::size_t chunkSize, const CancelToken& cancel)
        : chunk_(std::make_unique_for_overwrite<std::byte[]>(chunkSize)),
          chunkSize_(chunkSize),
          cancel_(cancel) {}

    /// After an error it is not used again.
    [[nodiscard]] std::expected<Digest, Error> digestFile(const FileURL& url) {
        using Unreadable = ExactDuplicateFinder::Unreadable;
        auto file = platform::FileContents::open(url.path());
        if (!file) return std::unexpected(Unreadable{url, file.error()});
        std::uint64_t offset = 0;
        while (true) {
            if (cancel_.stop_requested()) return std::unexpected(CancellationError{});
            const auto count = file->read(offset, {chunk_.get(), chunkSize_});
            if (!count) return std::unexpected(Unreadable{url, count.error()});
            hash_.update({chunk_.get(), *count});
            if (*count < chunkSize_) return hash_.finish();
            offset += *count;
        }
    }

  private:
    std::unique_ptr<std::byte[]> chunk_;
    std::size_t chunkSize_;
    const CancelToken& cancel_;
    platform::SHA256 hash_;
};

bool mayBeRead(const FileObservation& file) {
    return file.kind == FileKind::regularFile && file.isReadable && !file.isCloudPlaceholder &&
           !platform::PrivateFolder::isInOne(file.url.path());
}

ExactDuplicateGroup groupOf(const Digest& digest, ExactDuplicateFinder::SizeBucket members) {
    // Observations with the same path stay in the order in which they were handed in.
    std::ranges::sort(members, [](const FileObservation* a, const FileObservation* b) {
        const auto order = a->url.path() <=> b->url.path();
        return order != 0 ? order < 0 : a < b;
    });
    ExactDuplicateGroup made{.contentDigest = platform::hexText(digest),
                             .byteCountPerItem = members.front()->byteCount,
                             .members = {}};
    made.members.reserve(members.size());
    for (const FileObservation* member : members) made.members.push_back(*member);
    return made;
}

} // namespace

std::string ExactDuplicateFinder::description(const Error& error) {
    return std::visit(Describe{}, error);
}

ExactDuplicateFinder::ExactDuplicateFinder(std::int64_t readChunkSize)
    : readChunkSize_(std::max(readChunkSize, smallestReadChunkSize)) {}

std::vector<ExactDuplicateFinder::SizeBucket>
ExactDuplicateFinder::sharedSizes(std::span<const FileObservation> observations,
                                  std::uint64_t minimumByteCount) {
    // Most sizes belong to one file only, so sorting references costs less than a table of sizes.
    SizeBucket kept;
    for (const FileObservation& file : observations) {
        if (mayBeRead(file) && file.byteCount >= minimumByteCount) kept.push_back(&file);
    }
    std::ranges::sort(kept, [](const FileObservation* a, const FileObservation* b) {
        return a->byteCount != b->byteCount ? a->byteCount > b->byteCount : a < b;
    });
    std::vector<SizeBucket> shared;
    for (auto first = kept.begin(); first != kept.end();) {
        const auto last = std::find_if(first, kept.end(), [&](const FileObservation* file) {
            return file->byteCount != (*first)->byteCount;
        });
        if (last - first > 1) shared.emplace_back(first, last);
        first = last;
    }
    return shared;
}

std::expected<std::vector<ExactDuplicateGroup>, Error>
ExactDuplicateFinder::findGroups(std::span<const FileObservation> observations,
                                 const CancelToken& cancel) const {
    std::vector<ExactDuplicateGroup> groups;
    const std::vector<SizeBucket> buckets = sharedSizes(observations, 1);
    if (buckets.empty()) return groups;

    // The buffer is never larger than the largest file. One byte more shows a file's end in the
    // same read.
    const std::uint64_t largest = saturatingAdd(buckets.front().front()->byteCount, 1);
    FileDigester digester(
        std::min<std::uint64_t>(static_cast<std::uint64_t>(readChunkSize_), largest), cancel);
    for (const SizeBucket& bucket : buckets) {
        if (cancel.stop_requested()) return std::unexpected(CancellationError{});
        std::map<Digest, SizeBucket> byDigest;
        for (const FileObservation* file : bucket) {
            if (cancel.stop_requested()) return std::unexpected(CancellationError{});
            auto digest = digester.digestFile(file->url);
            if (!digest) return std::unexpected(std::move(digest.error()));
            byDigest[*digest].push_back(file);
            std::this_thread::yield();
        }
        for (auto& [digest, members] : byDigest) {
            if (members.size() > 1) groups.push_back(groupOf(digest, std::move(members)));
        }
    }
    std::ranges::sort(groups, [](const ExactDuplicateGroup& a, const ExactDuplicateGroup& b) {
        const std::uint64_t freedByA = a.potentiallyReclaimableByteCount();
        const std::uint64_t freedByB = b.potentiallyReclaimableByteCount();
        return freedByA != freedByB ? freedByA > freedByB : a.contentDigest < b.contentDigest;
    });
    return groups;
}

} // namespace tidyro
