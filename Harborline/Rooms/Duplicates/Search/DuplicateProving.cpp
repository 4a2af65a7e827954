#include "Rooms/Duplicates/Search/DuplicateProving.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>

#include "Base/Saturating.h"
#include "Rooms/Duplicates/Search/SampleHash.h"

namespace tidyro {

namespace {

/// The files with several names that were met. Threads share one.
class ManyNamed {
  public:
    /// False for a file that was met before.
    bool isFirst(const platform::ItemIdentity& identity) {
        const std::scoped_lock lock(mutex_);
        return met_.insert({identity.device, identity.inode}).second;
    }

  private:
    std::mutex mutex_;
    std::set<std::pair<std::uint64_t, std::uint64_t>> met_;
};

auto order(const LargeFile& file) {
    return std::tie(file.bytes, file.hash, file.identity.device, file.identity.inode, file.file);
}

} // namespace

/// One thread's looks at everything that agrees in its beginning.
class DuplicateProving::FirstReader {
  public:
    FirstReader(const DuplicateListing& listing, SearchProgress& progress, ManyNamed& manyNamed)
        : listing_(listing),
          progress_(progress),
          manyNamed_(manyNamed),
          opener_(listing),
          buffer_(wholeBelow) {}

    void look(std::uint32_t number) {
        const ListedFile& file = listing_.files()[number];
        if (auto opened = opener_.openLooking(file)) look(number, file, *opened);
        const bool isForLater = !large.empty() && large.back().file == number;
        if (!isForLater) {
            progress_.add(1, file.bytes, [&] { return listing_.path(file); });
        }
    }

    std::vector<ProvenFile> files;
    std::vector<LargeFile> large;
    std::vector<FurtherName> furtherNames;

  private:
    void look(std::uint32_t number, const ListedFile& file, ListedFileOpener::Opened& opened) {
        const auto& identity = opened.seen.identity;
        if (opened.seen.linkCount > 1 && !manyNamed_.isFirst(identity)) {
            furtherNames.push_back({.file = number, .identity = identity});
        } else if (file.bytes <= wholeBelow) {
            readWhole(number, opened);
        } else {
            lookAtEnds(number, opened);
        }
    }

    void readWhole(std::uint32_t number, ListedFileOpener::Opened& opened) {
        const auto into = std::span(buffer_).first(static_cast<std::size_t>(opened.seen.byteCount));
        if (opened.contents.read(0, into) != into.size()) return;
        hash_.restart();
        hash_.update(into);
        if (auto proof = proven(number, opened, hash_.finish())) {
            files.push_back(*std::move(proof));
        }
    }

    void lookAtEnds(std::uint32_t number, ListedFileOpener::Opened& opened) {
        LargeFile file{.bytes = opened.seen.byteCount,
                       .hash = 0,
                       .identity = opened.seen.identity,
                       .file = number};
        opened.contents.expectSingleReads();
        const auto into = std::span(buffer_).first(endSize);
        for (const std::uint64_t from : {std::uint64_t{0}, file.bytes - endSize}) {
            if (opened.contents.read(from, into) != into.size()) return;
            file.hash = sampleHash(into, file.hash);
        }
        large.push_back(file);
    }

    const DuplicateListing& listing_;
    SearchProgress& progress_;
    ManyNamed& manyNamed_;
    ListedFileOpener opener_;
    platform::SHA256 hash_;
    std::vector<std::byte> buffer_;
};

DuplicateProving::Groups DuplicateProving::lookAtAll(const std::vector<std::uint32_t>& files,
                                                     ReaderThreads& threads, Result& result) {
    std::uint64_t bytes = 0;
    for (const std::uint32_t file : files) {
        bytes = saturatingAdd(bytes, listing_.files()[file].bytes);
    }
    progress_.begin(DuplicateProgress::Phase::verifying, files.size(), bytes);
    ManyNamed manyNamed;
    std::vector<std::unique_ptr<FirstReader>> readers(threads.most());
    threads.run("Tidyro compare", files.size(), 16,
                [&](std::size_t reader, std::size_t from, std::size_t to) {
                    auto& mine = readers[reader];
                    if (!mine) mine = std::make_unique<FirstReader>(listing_, progress_, manyNamed);
                    for (std::size_t i = from; i < to; ++i) mine->look(files[i]);
                });
    std::vector<LargeFile> large;
    for (const auto& reader : readers) {
        if (!reader) continue;
        result.files.insert(result.files.end(), reader->files.begin(), reader->files.end());
        result.furtherNames.insert(result.furtherNames.end(), reader->furtherNames.begin(),
                                   reader->furtherNames.end());
        large.insert(large.end(), reader->large.begin(), reader->large.end());
    }
    return agreeing(std::move(large), result);
}

/// Large files that agree with one another, each once. That two names are one file shows only here
/// when the file says that it has one name: mounts and roots lead to it in several ways.
DuplicateProving::Groups DuplicateProving::agreeing(std::vector<LargeFile> files, Result& result) {
    std::ranges::sort(files, {}, order);
    const auto drop = [&](const LargeFile& file) {
        progress_.add(1, file.bytes, [&] { return listing_.path(listing_.files()[file.file]); });
    };
    Groups groups;
    for (const LargeFile& file : files) {
        const bool isNext = !groups.empty() && groups.back().back().agreesWith(file);
        if (isNext && groups.back().back().identity == file.identity) {
            result.furtherNames.push_back({.file = file.file, .identity = file.identity});
            drop(file);
        } else if (isNext) {
            groups.back().push_back(file);
        } else {
            groups.push_back({file});
        }
    }
    std::erase_if(groups, [&](const auto& group) {
        if (group.size() == 1) drop(group.front());
        return group.size() == 1;
    });
    return groups;
}

/// Returns those that have to be read by themselves.
std::vector<LargeFile> DuplicateProving::readSideBySide(const Groups& groups, bool counts,
                                                        ReaderThreads& threads, Result& result) {
    std::vector<std::unique_ptr<LargeFiles>> readers(threads.most());
    const LargeFiles::Surroundings around{
        .listing = listing_, .progress = progress_, .turns = turns_, .cancel = cancel_};
    threads.run("Tidyro verify", groups.size(), 1,
                [&](std::size_t reader, std::size_t from, std::size_t) {
                    auto& mine = readers[reader];
                    if (!mine) mine = std::make_unique<LargeFiles>(around);
                    mine->read(groups[from], counts);
                });
    std::vector<LargeFile> different;
    for (const auto& reader : readers) {
        if (!reader) continue;
        result.files.insert(result.files.end(), reader->proven.begin(), reader->proven.end());
        different.insert(different.end(), reader->different.begin(), reader->different.end());
    }
    return different;
}

void DuplicateProving::readWhole(const Groups& groups, ReaderThreads& threads, Result& result) {
    // A process may hold few files open, and each thread opens so many.
    const std::size_t most =
        std::clamp<std::size_t>(platform::openFolderBudget() / threads.most(), 1, LargeFiles::most);
    Groups parts;
    for (const auto& group : groups) {
        for (std::size_t from = 0; from < group.size(); from += most) {
            const auto begin = group.begin() + static_cast<std::ptrdiff_t>(from);
            const auto size = std::min(group.size() - from, most);
            parts.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
        }
    }
    // The largest first, so that no thread is left alone with one at the end.
    std::ranges::sort(parts, [](const auto& a, const auto& b) {
        const std::uint64_t left = saturatingMultiply(a.front().bytes, a.size());
        const std::uint64_t right = saturatingMultiply(b.front().bytes, b.size());
        return left != right ? left > right : order(a.front()) < order(b.front());
    });
    Groups single;
    for (const LargeFile& file : readSideBySide(parts, true, threads, result)) {
        single.push_back({file});
    }
    // Nobody is compared with anybody here, so nothing is left over.
    static_cast<void>(readSideBySide(single, false, threads, result));
}

void DuplicateProving::confirm(ReaderThreads& threads, Result& result) {
    std::ranges::sort(result.files, {}, &ProvenFile::file); // one folder after another
    std::vector<char> isThere(result.files.size());
    std::vector<std::unique_ptr<ListedFileOpener>> openers(threads.most());
    threads.run("Tidyro confirm", result.files.size(), 64,
                [&](std::size_t reader, std::size_t from, std::size_t to) {
                    auto& mine = openers[reader];
                    if (!mine) mine = std::make_unique<ListedFileOpener>(listing_);
                    for (std::size_t i = from; i < to; ++i) {
                        const ProvenFile& file = result.files[i];
                        const auto seen = mine->look(listing_.files()[file.file]);
                        isThere[i] = seen && isUnchanged(file, *seen) ? 1 : 0;
                    }
                });
    std::erase_if(result.files, [&](const ProvenFile& file) {
        return isThere[static_cast<std::size_t>(&file - result.files.data())] == 0;
    });
}

DuplicateProving::Result DuplicateProving::run(const std::vector<std::uint32_t>& files,
                                               ReaderThreads& forSmall, ReaderThreads& forLarge) {
    Result result;
    readWhole(lookAtAll(files, forSmall, result), forLarge, result);
    confirm(forSmall, result);
    return result;
}

} // namespace tidyro
