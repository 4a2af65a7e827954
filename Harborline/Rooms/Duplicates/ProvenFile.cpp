#include "Rooms/Duplicates/ProvenFile.h"

namespace tidyro {

std::optional<ProvenFile> proven(std::uint32_t file, const ListedFileOpener::Opened& opened,
                                 const platform::SHA256::Digest& digest) {
    const auto after = opened.contents.metadata();
    if (!after || after->byteCount != opened.seen.byteCount) return std::nullopt;
    const std::optional<Timestamp> modified = after->modified;
    if (!modified || modified != opened.seen.modified) return std::nullopt;
    std::optional<platform::FileExtent> extent;
    if (opened.mayShareBlocks) {
        extent = opened.contents.extent(after->byteCount, opened.seen.identity.device);
    }
    return ProvenFile{.file = file,
                      .bytes = after->byteCount,
                      .identity = opened.seen.identity,
                      .digest = digest,
                      .modified = *modified,
                      .created = after->created,
                      .linkCount = after->linkCount,
                      .extent = extent};
}

} // namespace tidyro
