#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tidyro::testing {

/// A folder of its own for one test, gone with all that is in it when the test ends. Everything in
/// it is made relative to it; a failure to make something fails the test.
class TemporaryFolder {
  public:
    TemporaryFolder();
    /// Takes over a folder that exists, without removing it at the end.
    explicit TemporaryFolder(std::string path) : path_(std::move(path)), isOwned_(false) {}
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    /// The absolute path of a name in it.
    [[nodiscard]] std::string operator/(std::string_view name) const;

    /// Folders above it are made as well.
    void folder(std::string_view name) const;
    void file(std::string_view name, std::string_view contents = {}) const;
    /// A file of pseudo-random bytes that no file system can compress or share.
    void noise(std::string_view name, std::size_t bytes, std::uint32_t seed = 1) const;
    /// A file of this length without a block on disk.
    void hole(std::string_view name, std::uint64_t bytes) const;
    void link(std::string_view name, std::string_view target) const; ///< symbolic
    void hardLink(std::string_view name, std::string_view existing) const;
    void pipe(std::string_view name) const;
    void socket(std::string_view name) const;
    void permissions(std::string_view name, unsigned mode) const;
    /// Seconds since 1970.
    void times(std::string_view name, std::int64_t accessed, std::int64_t modified) const;

  private:
    std::string path_;
    bool isOwned_ = true;
};

} // namespace tidyro::testing
