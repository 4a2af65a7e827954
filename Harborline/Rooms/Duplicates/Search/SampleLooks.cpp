#include "Rooms/Duplicates/Search/SampleLooks.h"

#include <algorithm>
#include <array>
#include <memory>

#include "Rooms/Duplicates/Search/AgreeingFiles.h"
#include "Rooms/Duplicates/Search/ListedFileOpener.h"
#include "Rooms/Duplicates/Search/SampleHash.h"

namespace tidyro {

/// One thread's looks.
class SampleLooks::Reader {
  public:
    explicit Reader(const DuplicateListing& listing) : listing_(listing), opener_(listing) {}

    void look(std::uint32_t number) {
        const ListedFile& file = listing_.files()[number];
        auto contents = opener_.open(file);
        if (!contents) return;
        const auto wanted = static_cast<std::size_t>(std::min(file.bytes, beginning));
        if (file.bytes > beginning) contents->expectSingleReads();
        const std::span into(buffer_.data(), wanted);
        if (contents->read(0, into) != wanted) return;
        samples.push_back({.hash = sampleHash(into, file.bytes), .file = number});
    }

    std::vector<SampledFile> samples;

  private:
    const DuplicateListing& listing_;
    ListedFileOpener opener_;
    std::array<std::byte, beginning> buffer_;
};

std::vector<std::uint32_t> SampleLooks::ofSharedSizes() const {
    const auto& files = listing_.files();
    std::vector<SampledFile> sizes;
    sizes.reserve(files.size());
    for (std::uint32_t i = 0; i < files.size(); ++i) {
        sizes.push_back({.hash = files[i].bytes, .file = i});
    }
    return agreeingFiles(std::move(sizes));
}

std::vector<std::uint32_t> SampleLooks::agreeing() {
    const std::vector<std::uint32_t> files = ofSharedSizes();
    progress_.begin(DuplicateProgress::Phase::sampling, files.size(), 0);
    std::vector<std::unique_ptr<Reader>> readers(threads_.most());
    threads_.run("Tidyro sample", files.size(), 64,
                 [&](std::size_t reader, std::size_t from, std::size_t to) {
                     auto& mine = readers[reader];
                     if (!mine) mine = std::make_unique<Reader>(listing_);
                     for (std::size_t i = from; i < to; ++i) mine->look(files[i]);
                     progress_.add(to - from, 0,
                                   [&] { return listing_.path(listing_.files()[files[from]]); });
                 });
    std::vector<SampledFile> samples;
    for (const auto& reader : readers) {
        if (!reader) continue;
        samples.insert(samples.end(), reader->samples.begin(), reader->samples.end());
    }
    return agreeingFiles(std::move(samples));
}

} // namespace tidyro
