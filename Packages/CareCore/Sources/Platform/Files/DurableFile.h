#pragma once

#include <cstddef>
#include <expected>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SystemError.h"
#include "Platform/Files/ChangeGate.h"

/// Files that matter: settings, an index, a journal. A crash or a full disk at any moment leaves
/// either the old file or the new one, whole.
namespace tidyro::platform {

/// Replaces the file at `path`: writes a temporary sibling (made exclusively, mode 0600), flushes
/// it to the disk, renames it over the path and flushes the folder. On failure the old file stands
/// and the sibling is gone. The one exception is the flush of the folder: when that fails, the new
/// file is in its place but may not outlast a crash.
struct DurableOptions {
    /// Another path for the sibling, in the same folder. One that a crash left there is
    /// overwritten. Empty: the path with a random ending that nobody else has.
    std::string sibling = {};
    ChangeGate* gate = &ChangeGate::open();
};
[[nodiscard]] std::expected<void, SystemError>
writeDurably(const std::string& path, std::string_view bytes, const DurableOptions& options = {});

/// Makes a file that must not be there yet, whole and flushed, with mode 0600. EEXIST when it is:
/// of several who make one file, one succeeds, and the others find it complete.
[[nodiscard]] std::expected<void, SystemError>
makeDurably(const std::string& path, std::string_view bytes, ChangeGate& gate = ChangeGate::open());

/// The same piece by piece, for files that are too large to be held in memory twice.
///
///     auto writer = DurableWriter::open(path, DurableWriter::Sibling::shared);
///     writer->append(bytes) ...
///     writer->commit()
///
/// A writer that goes without `commit` leaves the old file and removes the sibling. Used by one
/// thread.
class DurableWriter {
  public:
    enum class Sibling {
        unique, ///< a name that nobody else has: of several writers the last to end wins
        /// `path` and ".partial", so that the next writer overwrites what a crash left. Whoever has
        /// it locks it; others wait, and give up with EWOULDBLOCK after `maxWait` seconds. Fails
        /// where the file system has no locks.
        shared,
    };
    static constexpr int maxWait = 10;

    /// The gate must outlive the writer.
    [[nodiscard]] static std::expected<DurableWriter, SystemError>
    open(const std::string& path, Sibling sibling, ChangeGate& gate = ChangeGate::open());
    DurableWriter(DurableWriter&& other) noexcept;
    DurableWriter& operator=(DurableWriter&&) = delete;
    ~DurableWriter();

    /// Small pieces are gathered, large ones written as they are.
    [[nodiscard]] std::expected<void, SystemError> append(std::span<const std::byte> bytes);
    /// Called once, at the end. Fails as `writeDurably` does.
    [[nodiscard]] std::expected<void, SystemError> commit();

  private:
    friend std::expected<void, SystemError>
    writeDurablyInPieces(const std::string&,
                         const std::function<std::expected<void, SystemError>(DurableWriter&)>&,
                         const DurableOptions&);
    friend std::expected<void, SystemError> makeDurably(const std::string&, std::string_view,
                                                        ChangeGate&);
    DurableWriter(std::string path, std::string sibling, int fd, ChangeGate& gate);
    [[nodiscard]] static std::expected<DurableWriter, SystemError>
    openAlone(const std::string& path, const DurableOptions& options);
    /// Brings the bytes of the sibling to the disk.
    [[nodiscard]] std::expected<void, SystemError> flushBytes();

    std::string path_;
    std::string sibling_;
    int fd_; ///< negative: there is no sibling (any more)
    ChangeGate* gate_;
    std::vector<std::byte> gathered_;
};

/// `writeDurably` for a file that `write` appends piece by piece. It leaves `commit` out.
[[nodiscard]] std::expected<void, SystemError>
writeDurablyInPieces(const std::string& path,
                     const std::function<std::expected<void, SystemError>(DurableWriter&)>& write,
                     const DurableOptions& options);

/// Makes a folder and those above it that are missing, each with mode 0700, and flushes them.
/// Folders that exist stay as they are.
[[nodiscard]] std::expected<void, SystemError>
makePrivateFolder(const std::string& path, ChangeGate& gate = ChangeGate::open());

/// The whole file; EFBIG when it holds more than `maxByteCount` bytes, EINVAL when it is no regular
/// file.
[[nodiscard]] std::expected<std::string, SystemError> readWholeFile(const std::string& path,
                                                                    std::size_t maxByteCount);

} // namespace tidyro::platform
