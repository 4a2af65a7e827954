#include "Rooms/Duplicates/Search/ProvenFile.h"

#include <utility>

namespace tidyro {

namespace {

bool isSameState(const platform::FileMetadata& before, const platform::FileMetadata& after) {
    return after.kind == before.kind && after.identity == before.identity &&
           after.byteCount == before.byteCount && after.modified == before.modified &&
           after.changed == before.changed;
}

} // namespace

bool isUnchanged(const ProvenFile& file, const platform::FileMetadata& seen) {
    return seen.kind == platform::ItemKind::regularFile && seen.identity == file.identity &&
           seen.byteCount == file.bytes && seen.modified == file.modified &&
           seen.changed == file.changed;
}

std::optional<ProvenFile> prove(std::uint32_t file, const ListedFileOpener::Opened& opened,
                                const platform::SHA256::Digest& digest) {
    const auto after = opened.contents.metadata();
    if (!after || !isSameState(opened.seen, *after)) return std::nullopt;
    const std::optional<Timestamp> modified = after->modified;
    if (!modified) return std::nullopt;
    std::optional<platform::FileBlocks> blocks;
    if (opened.mayShareBlocks) blocks = opened.contents.blocks(*after);
    return ProvenFile{.file = file,
                      .bytes = after->byteCount,
                      .allocatedBytes = after->allocatedBytes,
                      .identity = after->identity,
                      .digest = digest,
                      .modified = *modified,
                      .changed = after->changed,
                      .created = after->created,
                      .linkCount = after->linkCount,
                      .blocks = std::move(blocks)};
}

} // namespace tidyro
