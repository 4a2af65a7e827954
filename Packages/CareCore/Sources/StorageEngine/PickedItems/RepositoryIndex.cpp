#include "StorageEngine/PickedItems/RepositoryIndex.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro {

namespace {

/// A hundred times the index of the largest projects that are known.
constexpr std::size_t maxIndexBytes = 2'000'000'000;
constexpr std::size_t maxPointerBytes = 65'536;

/// Histories that are kept in another form, which nobody here reads.
constexpr std::array<std::string_view, 4> otherHistories{".hg", ".svn", ".bzr", "_darcs"};

/// Goes through the bytes of an index:
///
///     "DIRC", version, number of entries
///     entries: 40 bytes of facts, among them the mode at 24; the hash; flags; the path
///     extensions: four letters, length, bytes; a small first letter for one that matters
///     the hash of all that
///
/// Numbers have four bytes, the highest first. The length of hashes is not written anywhere: the
/// right one is the one with which everything ends where it should.
class IndexReader {
  public:
    IndexReader(std::string_view bytes, std::size_t hashLength, std::string folder)
        : bytes_(bytes), hashLength_(hashLength), folder_(std::move(folder)) {}

    [[nodiscard]] std::optional<bool> isListed() {
        constexpr std::size_t headerLength = 12;
        if (bytes_.size() < headerLength + hashLength_ || !bytes_.starts_with("DIRC")) {
            return std::nullopt;
        }
        version_ = number(4);
        if (version_ < 2 || version_ > 4) return std::nullopt;
        const std::size_t count = number(8);
        end_ = bytes_.size() - hashLength_;
        at_ = headerLength;
        for (std::size_t i = 0; i < count; ++i) {
            if (!takeEntry()) return std::nullopt;
        }
        if (!takeExtensions()) return std::nullopt;
        return isListed_;
    }

  private:
    static constexpr std::size_t factsLength = 40;
    static constexpr std::size_t modeAt = 24;

    [[nodiscard]] std::uint32_t number(std::size_t at) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            value = value << 8U | static_cast<unsigned char>(bytes_[at + i]);
        }
        return value;
    }

    bool takeEntry() {
        const std::size_t begin = at_;
        std::size_t length = factsLength + hashLength_ + 2;
        if (end_ - begin < length) return false;
        const std::size_t flagsAt = begin + factsLength + hashLength_;
        const unsigned high = static_cast<unsigned char>(bytes_[flagsAt]);
        const unsigned low = static_cast<unsigned char>(bytes_[flagsAt + 1]);
        const unsigned flags = high << 8U | low;
        constexpr unsigned isExtended = 0x4000;
        if ((flags & isExtended) != 0) {
            if (version_ < 3) return false;
            length += 2;
            if (end_ - begin < length) return false;
        }
        at_ = begin + length;
        if (version_ == 4 && !takeStripped()) return false;
        const std::size_t zero = bytes_.find('\0', at_);
        if (zero == std::string_view::npos || zero >= end_) return false;
        path_.append(bytes_.substr(at_, zero - at_));
        at_ = zero + 1;
        // The flags tell the length of the path as well, as far as it fits. With hashes of the
        // other length they would have to agree by chance, in each entry.
        constexpr unsigned maxLength = 0xFFF;
        if (path_.empty() ||
            (flags & maxLength) != std::min<std::size_t>(path_.size(), maxLength)) {
            return false;
        }
        if (version_ < 4) {
            // Zeros bring each entry to a multiple of eight bytes.
            for (; (at_ - begin) % 8 != 0; ++at_) {
                if (at_ >= end_ || bytes_[at_] != '\0') return false;
            }
        }
        note(number(begin + modeAt));
        if (version_ < 4) path_.clear();
        return true;
    }

    /// In version 4 an entry says how many bytes of the path before it do not stay.
    bool takeStripped() {
        std::uint64_t stripped = 0;
        for (bool isFirst = true;; isFirst = false) {
            if (at_ >= end_ || stripped > bytes_.size()) return false;
            const auto byte = static_cast<unsigned char>(bytes_[at_++]);
            if (!isFirst) ++stripped;
            stripped = stripped << 7U | (byte & 0x7FU);
            if ((byte & 0x80U) == 0) break;
        }
        if (stripped > path_.size()) return false;
        path_.resize(path_.size() - stripped);
        return true;
    }

    void note(std::uint32_t mode) {
        if (isListed_) return;
        std::string listed = folded(path_);
        constexpr std::uint32_t folderMode = 0040000;
        // A sparse folder stands for everything in it, the folder that is asked for among it.
        const bool isSparse = mode == folderMode;
        if (isSparse && listed.ends_with('/')) listed.pop_back();
        isListed_ = path::isInsideOrEqual(listed, folder_) ||
                    (isSparse && path::isInsideOrEqual(folder_, listed));
    }

    bool takeExtensions() {
        while (at_ < end_) {
            constexpr std::size_t headLength = 8;
            if (end_ - at_ < headLength) return false;
            const std::string_view name = bytes_.substr(at_, 4);
            const bool isOptional = name.front() >= 'A' && name.front() <= 'Z';
            if (!isOptional && name != "sdir") return false; // "sdir": there are sparse folders
            const std::size_t length = number(at_ + 4);
            if (end_ - at_ - headLength < length) return false;
            at_ += headLength + length;
        }
        return true;
    }

    std::string_view bytes_;
    std::size_t hashLength_;
    std::string folder_; ///< folded
    std::uint32_t version_ = 0;
    std::size_t end_ = 0; ///< of what is read: the hash of it all follows
    std::size_t at_ = 0;
    std::string path_;
    bool isListed_ = false;
};

using Tracking = RepositoryIndex::Tracking;

Tracking trackingBy(const std::string& repository, std::string_view folder) {
    const auto index = platform::readWholeFile(repository + "/index", maxIndexBytes);
    if (!index) {
        // A repository without an index has no file yet, when it is one.
        const bool isNone = platform::hasVanished(index.error()) &&
                            platform::fileMetadata(repository + "/HEAD").has_value() &&
                            !platform::fileMetadata(repository + "/index");
        return isNone ? Tracking::untracked : Tracking::unknown;
    }
    const auto isListed = RepositoryIndex::isListed(*index, folder);
    if (!isListed) return Tracking::unknown;
    return *isListed ? Tracking::tracked : Tracking::untracked;
}

/// The repository that a ".git" stands for: itself, or the one that it names when it is a file
/// ("gitdir: ../.git/worktrees/this"). None when that cannot be told.
std::optional<std::string> repositoryAt(const std::string& git, std::string_view top) {
    const auto real = platform::realPath(git);
    if (!real) return std::nullopt;
    const auto seen = platform::fileMetadata(*real);
    if (!seen) return std::nullopt;
    if (seen->kind == platform::ItemKind::folder) return *real;
    if (seen->kind != platform::ItemKind::regularFile) return std::nullopt;
    const auto text = platform::readWholeFile(*real, maxPointerBytes);
    constexpr std::string_view key = "gitdir: ";
    if (!text || !text->starts_with(key)) return std::nullopt;
    std::string named = text->substr(key.size());
    while (named.ends_with('\n') || named.ends_with('\r')) named.pop_back();
    if (named.empty()) return std::nullopt;
    return named.starts_with('/') ? named : path::joined(top, named);
}

/// What one folder above the asked one knows of it.
Tracking trackingAt(std::string_view top, const std::string& folder) {
    const auto isThere = [&](std::string_view name) {
        const auto seen = platform::fileMetadata(path::joined(top, name));
        return seen.has_value() || !platform::hasVanished(seen.error());
    };
    if (std::ranges::any_of(otherHistories, isThere)) return Tracking::unknown;
    if (!isThere(".git")) return Tracking::untracked;
    const auto repository = repositoryAt(path::joined(top, ".git"), top);
    return repository ? trackingBy(*repository, path::below(folder, top)) : Tracking::unknown;
}

} // namespace

std::optional<bool> RepositoryIndex::isListed(std::string_view index, std::string_view folder) {
    std::optional<bool> answer;
    for (const std::size_t hashLength : {20U, 32U}) {
        const auto found = IndexReader(index, hashLength, folded(folder)).isListed();
        if (found) answer = answer.value_or(false) || *found;
    }
    return answer;
}

Tracking RepositoryIndex::tracking(const std::string& folder) {
    Tracking found = Tracking::untracked;
    for (std::string_view top = path::parent(folder);; top = path::parent(top)) {
        const Tracking here = trackingAt(top, folder);
        if (here == Tracking::tracked) return here;
        found = std::max(found, here);
        if (top == "/") return found;
    }
}

} // namespace tidyro
