#include "Rooms/Duplicates/Search/SampleLooks.h"

#include <algorithm>
#include <array>
#include <memory>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "Rooms/Duplicates/Search/ListedFileOpener.h"

namespace tidyro {

/// A file of the listing and a number that its copies share.
struct SampleLooks::Sample {
    std::uint64_t number;
    std::uint32_t file;
};

/// The files whose number another one has as well, ascending by their places in the listing.
std::vector<std::uint32_t> SampleLooks::filesOfSharedNumbers(std::vector<Sample> samples) {
    std::ranges::sort(samples, {}, &Sample::number);
    std::vector<std::uint32_t> files;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const bool isLikeBefore = i > 0 && samples[i - 1].number == samples[i].number;
        const bool isLikeNext =
            i + 1 < samples.size() && samples[i + 1].number == samples[i].number;
        if (isLikeBefore || isLikeNext) files.push_back(samples[i].file);
    }
    std::ranges::sort(files);
    return files;
}

std::uint64_t sampleHash(std::span<const std::byte> bytes, std::uint64_t seed) {
    return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

/// One thread's looks.
class SampleLooks::Reader {
  public:
    explicit Reader(const DuplicateListing& listing) : listing_(listing), opener_(listing) {}

    void look(std::uint32_t fileNumber) {
        const ListedFile& file = listing_.files()[fileNumber];
        auto contents = opener_.open(file);
        if (!contents) return;
        const auto wanted = static_cast<std::size_t>(std::min(file.bytes, beginning));
        if (file.bytes > beginning) contents->expectSingleReads();
        const std::span into(buffer_.data(), wanted);
        if (contents->read(0, into) != wanted) return;
        samples.push_back({.number = sampleHash(into, file.bytes), .file = fileNumber});
    }

    std::vector<Sample> samples;

  private:
    const DuplicateListing& listing_;
    ListedFileOpener opener_;
    std::array<std::byte, beginning> buffer_;
};

std::vector<std::uint32_t> SampleLooks::filesOfSharedSizes() const {
    const auto& files = listing_.files();
    std::vector<Sample> sizes;
    sizes.reserve(files.size());
    for (std::uint32_t i = 0; i < files.size(); ++i) {
        sizes.push_back({.number = files[i].bytes, .file = i});
    }
    return filesOfSharedNumbers(std::move(sizes));
}

std::vector<std::uint32_t> SampleLooks::findAgreeing() {
    const std::vector<std::uint32_t> files = filesOfSharedSizes();
    progress_.begin(DuplicateProgress::Phase::sampling, files.size(), 0);
    const auto readers = threads_.run(
        {.name = "Tidyro sample", .count = files.size(), .part = 64},
        [&] { return std::make_unique<Reader>(listing_); },
        [&](Reader& reader, std::size_t from, std::size_t to) {
            for (std::size_t i = from; i < to; ++i) reader.look(files[i]);
            progress_.add(to - from, 0,
                          [&] { return listing_.path(listing_.files()[files[from]]); });
        });
    std::vector<Sample> samples;
    for (const auto& reader : readers) {
        samples.insert(samples.end(), reader->samples.begin(), reader->samples.end());
    }
    return filesOfSharedNumbers(std::move(samples));
}

} // namespace tidyro
