// The least that reading a folder can cost on Linux: getdents64, one statx an entry, the folders
// shared among threads, and nothing kept. What Tidyro takes beyond it is Tidyro's own.
//
//     BareWalker FOLDER [THREADS]
//
// Without THREADS it takes as many as the disk scanner would. Stays on the folder's volume.

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Folder {
    int descriptor;
    explicit Folder(int opened) : descriptor(opened) {}
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { ::close(descriptor); }
};

struct Job {
    std::shared_ptr<Folder> parent;
    std::string name;
};

struct Sums {
    std::uint64_t entries = 0;
    std::uint64_t folders = 0;
    std::uint64_t blocks = 0;
};

struct KernelEntry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t length;
    unsigned char type;
    char name[1];
};

class Walk {
  public:
    explicit Walk(const char* root) { jobs_.push_back({nullptr, root}); }

    void work() {
        const auto buffer = std::make_unique<Buffer>();
        std::vector<Job> found;
        std::unique_lock lock(mutex_);
        for (;;) {
            ready_.wait(lock, [&] { return !jobs_.empty() || pending_ == 0; });
            if (jobs_.empty()) return ready_.notify_all();
            Job job = std::move(jobs_.back());
            jobs_.pop_back();
            ++pending_;
            lock.unlock();
            Sums sums;
            read(job, *buffer, found, sums);
            lock.lock();
            --pending_;
            sums_.entries += sums.entries;
            sums_.folders += sums.folders;
            sums_.blocks += sums.blocks;
            for (Job& next : found) {
                jobs_.push_back(std::move(next));
                ready_.notify_one();
            }
            found.clear();
        }
    }

    [[nodiscard]] const Sums& sums() const { return sums_; }

  private:
    struct Buffer {
        alignas(KernelEntry) std::array<std::byte, 262'144> bytes;
    };

    void read(const Job& job, Buffer& buffer, std::vector<Job>& found, Sums& sums) {
        const int parent = job.parent ? job.parent->descriptor : AT_FDCWD;
        const int opened =
            ::openat(parent, job.name.c_str(),
                     O_RDONLY | O_DIRECTORY | O_CLOEXEC | (job.parent ? O_NOFOLLOW : 0));
        if (opened < 0) return;
        const auto folder = std::make_shared<Folder>(opened);
        for (;;) {
            const long got =
                ::syscall(SYS_getdents64, opened, buffer.bytes.data(), buffer.bytes.size());
            if (got <= 0) return;
            for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
                const auto& entry = *reinterpret_cast<const KernelEntry*>(buffer.bytes.data() + at);
                at += entry.length;
                const std::string_view name = entry.name;
                if (name == "." || name == "..") continue;
                struct statx status;
                if (::statx(opened, entry.name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC,
                            STATX_BASIC_STATS, &status) != 0) {
                    continue;
                }
                ++sums.entries;
                sums.blocks += status.stx_blocks;
                if (S_ISDIR(status.stx_mode)) {
                    ++sums.folders;
                    if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0) {
                        found.push_back({folder, std::string(name)});
                    }
                }
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Job> jobs_;
    std::size_t pending_ = 0;
    Sums sums_;
};

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("BareWalker FOLDER [THREADS]\n", stderr);
        return 64;
    }
    const unsigned threads = count > 2
                                 ? static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10))
                                 : std::clamp(std::thread::hardware_concurrency(), 4U, 12U);
    Walk walk(arguments[1]);
    {
        std::vector<std::jthread> workers;
        for (unsigned i = 0; i < std::max(threads, 1U); ++i) {
            workers.emplace_back([&walk] { walk.work(); });
        }
    }
    const Sums& sums = walk.sums();
    std::printf("%ju entries, %ju folders, %ju bytes on disk\n", std::uintmax_t{sums.entries},
                std::uintmax_t{sums.folders}, std::uintmax_t{sums.blocks} * 512);
    return 0;
}
