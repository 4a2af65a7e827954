#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Failure.h"

/// Disks that write down everything that arrives at them, so that every state in which a crash may
/// leave them can be made afterwards. Needs root; failures are thrown, since no crash can be told
/// of without its disks.
namespace tidyro::crash {

/// The bytes of a disk. Blocks of zeros take no memory.
class DiskImage {
  public:
    explicit DiskImage(std::uint64_t byteCount) : byteCount_(byteCount) {}
    /// Of a file, whose holes are not read.
    [[nodiscard]] static DiskImage read(const std::string& path);

    [[nodiscard]] std::uint64_t byteCount() const { return byteCount_; }
    void read(std::uint64_t offset, std::size_t byteCount, char* into) const;
    void write(std::uint64_t offset, std::string_view bytes);
    /// Makes a file of it, with holes.
    void save(const std::string& path) const;

  private:
    static constexpr std::size_t blockSize = 4096;
    std::uint64_t byteCount_;
    std::map<std::uint64_t, std::string> blocks_ = {};
};

/// A write, or a flush where there are no bytes.
struct DiskRecord {
    std::size_t disk;
    std::uint64_t offset = 0;
    std::string bytes = {};

    [[nodiscard]] bool isFlush() const { return bytes.empty(); }
};

/// Shows each image as one file, which a loop device can stand on: a process of our own answers the
/// kernel's requests for it. Every write and flush goes to one log, in the order in which they
/// arrive, and nothing is kept back by a cache in between.
class LoggedDisks {
  public:
    /// Mounts a file for each image: "disk0", "disk1", ... in the folder.
    LoggedDisks(std::vector<DiskImage> images, const std::string& folder);
    /// Whatever stands on the files has been unmounted before.
    ~LoggedDisks();
    LoggedDisks(const LoggedDisks&) = delete;
    LoggedDisks& operator=(const LoggedDisks&) = delete;

    [[nodiscard]] const std::string& file(std::size_t disk) const { return disks_[disk].file; }
    /// How many records there are by now.
    [[nodiscard]] std::size_t position() const;
    [[nodiscard]] std::vector<DiskRecord> takeLog();

  private:
    struct Disk {
        std::string file;
        int fd;
        DiskImage image;
        bool isThere = true;
    };
    void serve();
    void answer(std::size_t disk, const std::vector<char>& request);

    std::vector<Disk> disks_;
    mutable std::mutex mutex_;
    std::vector<DiskRecord> log_;
    std::thread server_;
};

/// A file that is mounted as a disk, by a loop device that goes with it.
class MountedDisk {
  public:
    MountedDisk(const std::string& file, const std::string& type, const std::string& target);
    ~MountedDisk();
    MountedDisk(const MountedDisk&) = delete;
    MountedDisk& operator=(const MountedDisk&) = delete;

  private:
    std::string target_;
};

} // namespace tidyro::crash
