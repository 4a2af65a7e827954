#include "LoggedDisks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <linux/fuse.h>
#include <linux/loop.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tidyro::crash {

// Images --------------------------------------------------------------------------------------

DiskImage DiskImage::read(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) failWithReason(path);
    DiskImage image(static_cast<std::uint64_t>(::lseek(fd, 0, SEEK_END)));
    std::string bytes(1U << 20U, '\0');
    for (off_t at = 0; (at = ::lseek(fd, at, SEEK_DATA)) >= 0;) {
        const off_t end = ::lseek(fd, at, SEEK_HOLE);
        while (at < end) {
            const auto wanted =
                std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(end - at));
            const ssize_t got = ::pread(fd, bytes.data(), wanted, at);
            if (got <= 0) failWithReason(path);
            image.write(static_cast<std::uint64_t>(at),
                        std::string_view(bytes.data(), static_cast<std::size_t>(got)));
            at += got;
        }
    }
    ::close(fd);
    return image;
}

void DiskImage::read(std::uint64_t offset, std::size_t byteCount, char* into) const {
    while (byteCount > 0) {
        const std::size_t within = offset % blockSize;
        const std::size_t step = std::min(byteCount, blockSize - within);
        const auto block = blocks_.find(offset / blockSize);
        if (block == blocks_.end()) {
            std::memset(into, 0, step);
        } else {
            std::memcpy(into, block->second.data() + within, step);
        }
        into += step;
        offset += step;
        byteCount -= step;
    }
}

void DiskImage::write(std::uint64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t within = offset % blockSize;
        const std::string_view piece = bytes.substr(0, std::min(bytes.size(), blockSize - within));
        const std::uint64_t number = offset / blockSize;
        if (piece.find_first_not_of('\0') != std::string_view::npos || blocks_.contains(number)) {
            std::string& block = blocks_[number];
            block.resize(blockSize, '\0');
            block.replace(within, piece.size(), piece);
            if (block.find_first_not_of('\0') == std::string::npos) blocks_.erase(number);
        }
        bytes.remove_prefix(piece.size());
        offset += piece.size();
    }
}

void DiskImage::save(const std::string& path) const {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(byteCount_)) != 0) failWithReason(path);
    for (const auto& [number, block] : blocks_) {
        const auto at = static_cast<off_t>(number * blockSize);
        if (::pwrite(fd, block.data(), block.size(), at) != static_cast<ssize_t>(block.size())) {
            failWithReason(path);
        }
    }
    ::close(fd);
}

// Answering the kernel ------------------------------------------------------------------------

namespace {

constexpr std::size_t maxBytesOfWrite = 1U << 20U;
constexpr std::size_t requestRoom = maxBytesOfWrite + 8192;

template <class T>
const T& argument(const std::vector<char>& request) {
    return *reinterpret_cast<const T*>(request.data() + sizeof(fuse_in_header));
}

void reply(int fd, std::uint64_t unique, int error, std::string_view body = {}) {
    fuse_out_header header{};
    header.len = static_cast<std::uint32_t>(sizeof header + body.size());
    header.error = -error;
    header.unique = unique;
    std::string whole(reinterpret_cast<const char*>(&header), sizeof header);
    whole += body;
    static_cast<void>(::write(fd, whole.data(), whole.size())); // a request may be given up
}

template <class T>
void reply(int fd, std::uint64_t unique, const T& body) {
    reply(fd, unique, 0, std::string_view(reinterpret_cast<const char*>(&body), sizeof body));
}

} // namespace

LoggedDisks::LoggedDisks(std::vector<DiskImage> images, const std::string& folder) {
    for (DiskImage& image : images) {
        const std::string file = folder + "/disk" + std::to_string(disks_.size());
        const int made = ::open(file.c_str(), O_CREAT | O_CLOEXEC, 0600);
        if (made < 0) failWithReason(file);
        ::close(made);
        const int fd = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
        if (fd < 0) failWithReason("/dev/fuse");
        // The top of what is mounted is a file itself: nobody has to look up anything in it.
        const std::string options =
            "fd=" + std::to_string(fd) + ",rootmode=100600,user_id=0,group_id=0";
        if (::mount("disk", file.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
            failWithReason("mounting " + file);
        }
        disks_.push_back({.file = file, .fd = fd, .image = std::move(image)});
    }
    server_ = std::thread([this] { serve(); });
}

LoggedDisks::~LoggedDisks() {
    for (const Disk& disk : disks_) {
        if (::umount2(disk.file.c_str(), 0) != 0) ::umount2(disk.file.c_str(), MNT_DETACH);
    }
    server_.join();
    for (const Disk& disk : disks_) ::close(disk.fd);
}

std::size_t LoggedDisks::position() const {
    const std::scoped_lock guard(mutex_);
    return log_.size();
}

std::vector<DiskRecord> LoggedDisks::takeLog() {
    const std::scoped_lock guard(mutex_);
    return std::exchange(log_, {});
}

void LoggedDisks::serve() {
    std::vector<pollfd> waiting;
    for (const Disk& disk : disks_)
        waiting.push_back({.fd = disk.fd, .events = POLLIN, .revents = 0});
    std::vector<char> request;
    while (std::ranges::any_of(disks_, &Disk::isThere)) {
        if (::poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) return;
        for (std::size_t i = 0; i < disks_.size(); ++i) {
            if (!disks_[i].isThere || waiting[i].revents == 0) continue;
            request.resize(requestRoom);
            const ssize_t got = ::read(disks_[i].fd, request.data(), request.size());
            if (got < 0 && errno == ENODEV) {
                disks_[i].isThere = false; // unmounted
                waiting[i].fd = -1;
            }
            if (got <= 0) continue;
            request.resize(static_cast<std::size_t>(got));
            answer(i, request);
        }
    }
}

void LoggedDisks::answer(std::size_t number, const std::vector<char>& request) {
    Disk& disk = disks_[number];
    const auto& header = *reinterpret_cast<const fuse_in_header*>(request.data());
    switch (header.opcode) {
    case FUSE_INIT: {
        fuse_init_out told{};
        told.major = FUSE_KERNEL_VERSION;
        told.minor = FUSE_KERNEL_MINOR_VERSION;
        told.max_write = maxBytesOfWrite;
        told.max_pages = maxBytesOfWrite / 4096;
        told.flags = FUSE_BIG_WRITES | FUSE_MAX_PAGES;
        return reply(disk.fd, header.unique, told);
    }
    case FUSE_GETATTR: {
        fuse_attr_out told{};
        told.attr_valid = 3600;
        told.attr.ino = header.nodeid;
        told.attr.mode = S_IFREG | 0600;
        told.attr.nlink = 1;
        told.attr.size = disk.image.byteCount();
        told.attr.blksize = 4096;
        return reply(disk.fd, header.unique, told);
    }
    case FUSE_OPEN: {
        fuse_open_out told{};
        told.open_flags = FOPEN_DIRECT_IO; // no page of it is kept in memory
        return reply(disk.fd, header.unique, told);
    }
    case FUSE_READ: {
        const auto& wanted = argument<fuse_read_in>(request);
        const std::uint64_t rest =
            disk.image.byteCount() - std::min(disk.image.byteCount(), wanted.offset);
        std::string bytes(std::min<std::uint64_t>(wanted.size, rest), '\0');
        disk.image.read(wanted.offset, bytes.size(), bytes.data());
        return reply(disk.fd, header.unique, 0, bytes);
    }
    case FUSE_WRITE: {
        const auto& wanted = argument<fuse_write_in>(request);
        const std::string_view bytes(request.data() + sizeof header + sizeof wanted, wanted.size);
        disk.image.write(wanted.offset, bytes);
        {
            const std::scoped_lock guard(mutex_);
            log_.push_back({.disk = number, .offset = wanted.offset, .bytes = std::string(bytes)});
        }
        fuse_write_out told{};
        told.size = wanted.size;
        return reply(disk.fd, header.unique, told);
    }
    case FUSE_FSYNC: {
        {
            const std::scoped_lock guard(mutex_);
            log_.push_back({.disk = number});
        }
        return reply(disk.fd, header.unique, 0);
    }
    case FUSE_RELEASE: return reply(disk.fd, header.unique, 0);
    case FUSE_FORGET:
    case FUSE_BATCH_FORGET:
    case FUSE_INTERRUPT: return; // nobody waits for an answer
    default: return reply(disk.fd, header.unique, ENOSYS);
    }
}

// Mounting ------------------------------------------------------------------------------------

MountedDisk::MountedDisk(const std::string& file, const std::string& type,
                         const std::string& target)
    : target_(target) {
    const int backing = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    if (backing < 0) failWithReason(file);
    const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    if (control < 0) failWithReason("/dev/loop-control");
    loop_config config{};
    config.fd = static_cast<std::uint32_t>(backing);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR | LO_FLAGS_DIRECT_IO;
    int loop = -1;
    std::string device;
    for (int attempt = 0; attempt < 100 && loop < 0; ++attempt) {
        const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
        device = "/dev/loop" + std::to_string(number);
        const int opened = number < 0 ? -1 : ::open(device.c_str(), O_RDWR | O_CLOEXEC);
        if (opened >= 0 && ::ioctl(opened, LOOP_CONFIGURE, &config) == 0) {
            loop = opened;
        } else if (opened >= 0) { // somebody else was faster
            ::close(opened);
        }
    }
    ::close(control);
    ::close(backing);
    if (loop < 0) failWithReason("no loop device for " + file);
    // Copies of a disk have one identity, and several of them are mounted at a time.
    const char* options = type == "xfs" ? "nouuid" : "";
    const int answer = ::mount(device.c_str(), target.c_str(), type.c_str(), 0, options);
    const int error = errno;
    ::close(loop); // what is mounted keeps it
    errno = error;
    if (answer != 0) failWithReason("mounting " + type + " of " + file);
}

MountedDisk::~MountedDisk() {
    if (::umount2(target_.c_str(), 0) != 0) ::umount2(target_.c_str(), MNT_DETACH);
}

} // namespace tidyro::crash
