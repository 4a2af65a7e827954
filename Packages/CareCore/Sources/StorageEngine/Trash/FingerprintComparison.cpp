#include "StorageEngine/Trash/FingerprintComparison.h"

#include <charconv>
#include <memory>
#include <string>
#include <string_view>

namespace tidyro {

namespace {

/// The UUID in a volume's identifier. Where two disks with one UUID were mounted it is followed by
/// the device; where there is no UUID, the identifier is made of numbers that hold until the
/// machine starts again. Those have a colon.
std::string_view uuidIn(std::string_view identifier) {
    if (identifier.find(':') != identifier.npos) return {};
    return identifier.substr(0, identifier.find('@'));
}

std::optional<std::uint64_t> wholeNumber(std::string_view text) {
    std::uint64_t value = 0;
    const char* const end = std::to_address(text.end());
    const auto read = std::from_chars(std::to_address(text.begin()), end, value);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    return value;
}

} // namespace

std::optional<platform::ItemIdentity> identityIn(const FileFingerprint& fingerprint) {
    if (!fingerprint.fileResourceIdentifier) return std::nullopt;
    const std::string_view text = *fingerprint.fileResourceIdentifier;
    const std::size_t colon = text.find(':');
    if (colon == text.npos) return std::nullopt;
    const auto device = wholeNumber(text.substr(0, colon));
    const auto inode = wholeNumber(text.substr(colon + 1));
    if (!device || !inode) return std::nullopt;
    return platform::ItemIdentity{.device = *device, .inode = *inode};
}

FingerprintComparison::FingerprintComparison(const platform::Volumes& volumes, Volume volume)
    : volumes_(volumes.mounted().value_or(std::vector<platform::Volume>{})), volume_(volume) {}

bool FingerprintComparison::isItem(const platform::FileMetadata& seen,
                                   const FileFingerprint& planned) const {
    const auto identity = identityIn(planned);
    return identity && identity->inode == seen.identity.inode && planned.modificationDate &&
           seen.modified == planned.modificationDate &&
           (seen.kind == platform::ItemKind::folder || seen.byteCount == planned.byteCount) &&
           isOnItsVolume(seen, planned);
}

bool FingerprintComparison::isOnItsVolume(const platform::FileMetadata& seen,
                                          const FileFingerprint& planned) const {
    const std::string_view known =
        planned.volumeIdentifier ? std::string_view(*planned.volumeIdentifier) : std::string_view();
    const std::string_view uuid = uuidIn(known);
    if (volume_ == Volume::byUUIDIfKnown && uuid.empty()) return true;
    const platform::Volume* const volume = platform::volumeOf(seen, volumes_);
    if (volume == nullptr) return false;
    if (volume_ != Volume::byNumber && !uuid.empty()) return uuidIn(volume->identifier) == uuid;
    const auto identity = identityIn(planned);
    return volume->identifier == known && identity && identity->device == seen.identity.device;
}

} // namespace tidyro
