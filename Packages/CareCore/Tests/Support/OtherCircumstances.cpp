#include "Support/OtherCircumstances.h"

#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#endif

#include <gtest/gtest.h>

namespace tidyro::testing {

namespace {

constexpr int notAllowed = 77;

struct Ended {
    int status;
    std::string text;
};

Ended run(const std::function<bool()>& prepare, const std::function<std::string()>& work) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        if (!prepare()) ::_exit(notAllowed);
        const std::string text = work();
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t step = ::write(ends[1], text.data() + written, text.size() - written);
            if (step <= 0) ::_exit(1);
            written += static_cast<std::size_t>(step);
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    Ended ended{.status = 0, .text = {}};
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
        ended.text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    ::close(ends[0]);
    EXPECT_EQ(::waitpid(child, &ended.status, 0), child);
    return ended;
}

} // namespace

std::string inChild(const std::function<std::string()>& work) {
    const Ended ended = run([] { return true; }, work);
    EXPECT_EQ(ended.status, 0);
    return ended.text;
}

std::string asOrdinaryUser(const std::function<std::string()>& work) {
    constexpr uid_t nobody = 65'534;
    const Ended ended = run(
        [] {
            return ::getuid() != 0 ||
                   (::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0);
        },
        work);
    EXPECT_EQ(ended.status, 0);
    return ended.text;
}

bool isSanitized() {
#ifdef __has_feature
    return __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
    return false;
#endif
}

bool leaveOpenFiles(unsigned count) {
    rlim_t numbers = 0; // the limit is on descriptors' numbers, and some below it are taken
    for (; count > 0; ++numbers) {
        if (::fcntl(static_cast<int>(numbers), F_GETFD) < 0) --count;
    }
    const rlimit limit{.rlim_cur = numbers, .rlim_max = numbers};
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

#ifdef __linux__
bool isProcMounted() { return ::access("/proc/self/mountinfo", R_OK) == 0; }

std::optional<std::string> inMountNamespace(const std::function<std::string()>& work) {
    if (!isProcMounted()) return std::nullopt;
    const Ended ended = run(
        [] {
            return ::unshare(CLONE_NEWNS) == 0 &&
                   ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        },
        work);
    if (WIFEXITED(ended.status) && WEXITSTATUS(ended.status) == notAllowed) return std::nullopt;
    EXPECT_EQ(ended.status, 0);
    return ended.text;
}

bool bindMount(const std::string& source, const std::string& target) {
    return ::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}
#else
bool isProcMounted() { return true; }
std::optional<std::string> inMountNamespace(const std::function<std::string()>&) {
    return std::nullopt;
}
bool bindMount(const std::string&, const std::string&) { return false; }
#endif

bool runQuietly(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0; // NOLINT
}

std::unique_ptr<MountedImage> MountedImage::make(const std::string& type) {
    if (::getuid() != 0 || !isProcMounted()) return nullptr;
    std::unique_ptr<MountedImage> image(new MountedImage);
    image->place_.hole("image", 400'000'000);
    image->place_.folder("mounted");
    const std::string file = image->place_ / "image";
    const std::string target = image->place_ / "mounted";
    if (!runQuietly("mkfs." + type + " -q '" + file + "'") ||
        !runQuietly("mount -o loop '" + file + "' '" + target + "'")) {
        return nullptr;
    }
    image->mounted_ = std::make_unique<TemporaryFolder>(target);
    return image;
}

MountedImage::~MountedImage() {
    if (mounted_) static_cast<void>(runQuietly("umount '" + mounted_->path() + "'"));
}

} // namespace tidyro::testing
