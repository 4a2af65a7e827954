#include "Rooms/Duplicates/Search/DuplicateProving.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>

#include "Base/Saturating.h"
#include "Rooms/Duplicates/Search/SampleLooks.h"

namespace tidyro {

namespace {

/// Files that agree stand together in this order, and so do the names of one file.
auto orderOfLargeFiles(const LargeFile& file) {
    return std::tie(file.bytes, file.hash, file.identity, file.file);
}

} // namespace

/// The files with several names that were met. Threads share one.
class DuplicateProving::ManyNamed {
  public:
    /// False when the file was met before.
    [[nodiscard]] bool meet(const platform::ItemIdentity& identity) {
        const std::scoped_lock lock(mutex_);
        return met_.insert(identity).second;
    }

  private:
    std::mutex mutex_;
    std::set<platform::ItemIdentity> met_;
};

/// One thread's first look at files that agree in their beginning.
class DuplicateProving::FirstReader {
  public:
    FirstReader(const DuplicateListing& listing, SearchProgress& progress, ManyNamed& manyNamed)
        : listing_(listing),
          progress_(progress),
          manyNamed_(manyNamed),
          opener_(listing),
          buffer_(maxSmallFile) {}

    void look(std::uint32_t number) {
        const ListedFile& file = listing_.files()[number];
        if (auto opened = opener_.openAndLook(file)) look(number, file, *opened);
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
        if (opened.seen.linkCount > 1 && !manyNamed_.meet(identity)) {
            furtherNames.push_back({.file = number, .identity = identity});
        } else if (file.bytes <= maxSmallFile) {
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
        if (auto proof = prove(number, opened, hash_.finish())) {
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

DuplicateProving::AgreeingSets DuplicateProving::lookAtAll(const std::vector<std::uint32_t>& files,
                                                           ReaderThreads& threads, Result& result) {
    std::uint64_t bytes = 0;
    for (const std::uint32_t file : files) {
        bytes = saturatingAdd(bytes, listing_.files()[file].bytes);
    }
    progress_.begin(DuplicateProgress::Phase::verifying, files.size(), bytes);
    ManyNamed manyNamed;
    const auto readers = threads.run(
        {.name = "Tidyro compare", .count = files.size(), .part = 16},
        [&] { return std::make_unique<FirstReader>(listing_, progress_, manyNamed); },
        [&](FirstReader& reader, std::size_t from, std::size_t to) {
            for (std::size_t i = from; i < to; ++i) reader.look(files[i]);
        });
    std::vector<LargeFile> large;
    for (const auto& reader : readers) {
        result.files.insert(result.files.end(), reader->files.begin(), reader->files.end());
        result.furtherNames.insert(result.furtherNames.end(), reader->furtherNames.begin(),
                                   reader->furtherNames.end());
        large.insert(large.end(), reader->large.begin(), reader->large.end());
    }
    return agreeingSets(std::move(large), result);
}

/// Large files that agree with one another, each by one of its names. Several mounts or roots may
/// lead to a file that has one name by its link count, so names of one file are looked for again.
DuplicateProving::AgreeingSets DuplicateProving::agreeingSets(std::vector<LargeFile> files,
                                                              Result& result) {
    std::ranges::sort(files, {}, orderOfLargeFiles);
    const auto drop = [&](const LargeFile& file) {
        progress_.add(1, file.bytes, [&] { return listing_.path(listing_.files()[file.file]); });
    };
    AgreeingSets sets;
    for (const LargeFile& file : files) {
        const bool agrees = !sets.empty() && sets.back().back().agreesWith(file);
        if (agrees && sets.back().back().identity == file.identity) {
            result.furtherNames.push_back({.file = file.file, .identity = file.identity});
            drop(file);
        } else if (agrees) {
            sets.back().push_back(file);
        } else {
            sets.push_back({file});
        }
    }
    std::erase_if(sets, [&](const auto& set) {
        if (set.size() == 1) drop(set.front());
        return set.size() == 1;
    });
    return sets;
}

/// Returns the files that have to be read by themselves.
std::vector<LargeFile> DuplicateProving::readSideBySide(const AgreeingSets& sets,
                                                        LargeFileReader::Time time,
                                                        ReaderThreads& threads, Result& result) {
    const LargeFileReader::Shared shared{
        .listing = listing_, .progress = progress_, .turns = turns_, .cancel = cancel_};
    const auto readers = threads.run(
        {.name = "Tidyro verify", .count = sets.size(), .part = 1},
        [&] { return std::make_unique<LargeFileReader>(shared); },
        [&](LargeFileReader& reader, std::size_t from, std::size_t) {
            reader.read(sets[from], time);
        });
    std::vector<LargeFile> different;
    for (const auto& reader : readers) {
        result.files.insert(result.files.end(), reader->proven.begin(), reader->proven.end());
        different.insert(different.end(), reader->different.begin(), reader->different.end());
    }
    return different;
}

void DuplicateProving::readWhole(const AgreeingSets& sets, ReaderThreads& threads, Result& result) {
    // All threads together may hold only so many files open as the process may.
    const std::size_t maxOpen = std::clamp<std::size_t>(
        platform::openFolderBudget() / threads.maxThreads(), 1, LargeFileReader::maxSideBySide);
    AgreeingSets parts;
    for (const auto& set : sets) {
        for (std::size_t from = 0; from < set.size(); from += maxOpen) {
            const auto begin = set.begin() + static_cast<std::ptrdiff_t>(from);
            const auto size = std::min(set.size() - from, maxOpen);
            parts.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
        }
    }
    // The largest first, so that no thread is left alone with one at the end.
    std::ranges::sort(parts, [](const auto& a, const auto& b) {
        const std::uint64_t left = saturatingMultiply(a.front().bytes, a.size());
        const std::uint64_t right = saturatingMultiply(b.front().bytes, b.size());
        return left != right ? left > right
                             : orderOfLargeFiles(a.front()) < orderOfLargeFiles(b.front());
    });
    using enum LargeFileReader::Time;
    AgreeingSets single;
    for (const LargeFile& file : readSideBySide(parts, first, threads, result)) {
        single.push_back({file});
    }
    // A file that is read by itself differs from no other, so none is returned here.
    static_cast<void>(readSideBySide(single, second, threads, result));
}

void DuplicateProving::confirm(ReaderThreads& threads, Result& result) {
    std::ranges::sort(result.files, {}, &ProvenFile::file); // one folder after another
    std::vector<char> isConfirmed(result.files.size());
    threads.run(
        {.name = "Tidyro confirm", .count = result.files.size(), .part = 64},
        [&] { return std::make_unique<ListedFileOpener>(listing_); },
        [&](ListedFileOpener& opener, std::size_t from, std::size_t to) {
            for (std::size_t i = from; i < to; ++i) {
                const ProvenFile& file = result.files[i];
                const auto seen = opener.look(listing_.files()[file.file]);
                isConfirmed[i] = seen && isUnchanged(file, *seen) ? 1 : 0;
            }
        });
    std::erase_if(result.files, [&](const ProvenFile& file) {
        return isConfirmed[static_cast<std::size_t>(&file - result.files.data())] == 0;
    });
}

DuplicateProving::Result DuplicateProving::run(const std::vector<std::uint32_t>& files,
                                               const Threads& threads) {
    Result result;
    readWhole(lookAtAll(files, threads.small, result), threads.large, result);
    confirm(threads.small, result);
    return result;
}

} // namespace tidyro
