#include "Platform/RunningProcesses.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/RunningApplications.h"
#include "Support/OtherCircumstances.h"

namespace tidyro::platform {
namespace {

using testing::TemporaryFolder;

/// A process of the test's own, ended with it. `work` may replace the program; when it returns,
/// the process waits.
class OtherProcess {
  public:
    explicit OtherProcess(const std::function<void()>& work) {
        std::array<int, 2> ready{};
        EXPECT_EQ(::pipe(ready.data()), 0);
        EXPECT_EQ(::fcntl(ready[1], F_SETFD, FD_CLOEXEC), 0);
        number_ = ::fork();
        if (number_ == 0) {
            work();
            ::close(ready[1]); // what becomes another program closes it by that
            for (;;) ::pause();
        }
        ::close(ready[1]);
        char none = 0;
        EXPECT_EQ(::read(ready[0], &none, 1), 0);
        ::close(ready[0]);
    }
    ~OtherProcess() {
        ::kill(number_, SIGKILL);
        ::waitpid(number_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    [[nodiscard]] long number() const { return number_; }

  private:
    pid_t number_;
};

const RunningProcess* find(const ProcessActivity& activity, long number) {
    const auto found = std::ranges::find(activity.processes, number, &RunningProcess::number);
    return found == activity.processes.end() ? nullptr : &*found;
}

bool has(const RunningProcess& process, const std::string& path) {
    return std::ranges::find(process.files, path) != process.files.end();
}

void openFor(const TemporaryFolder& place, const char* name) {
    static_cast<void>(::open((place / name).c_str(), O_RDONLY));
}

TEST(RunningProcesses, HaveFilesOpenMappedAndRunning) {
    const TemporaryFolder place;
    for (const char* name : {"open", "two\nlines \\012", "mapped\nfile", "gone", "closed"}) {
        place.file(name, "contents");
    }
    std::filesystem::copy_file("/bin/sleep", place / "program");
    const OtherProcess holder([&] {
        for (const char* name : {"open", "two\nlines \\012", "gone"}) {
            openFor(place, name);
        }
        const int file = ::open((place / "mapped\nfile").c_str(), O_RDONLY);
        static_cast<void>(::mmap(nullptr, 8, PROT_READ, MAP_PRIVATE, file, 0));
        ::close(file);
        ::unlink((place / "gone").c_str());
    });
    const std::string program = place / "program";
    const OtherProcess runner([&] {
        openFor(place, "open");
        ::execl(program.c_str(), program.c_str(), "1000", nullptr);
    });

    const auto activity = LiveRunningProcesses().activity();
    ASSERT_TRUE(activity);
    const RunningProcess* holding = find(*activity, holder.number());
    ASSERT_NE(holding, nullptr);
    for (const char* name : {"open", "two\nlines \\012", "mapped\nfile", "gone"}) {
        EXPECT_TRUE(has(*holding, place / name)) << name;
    }
    EXPECT_FALSE(has(*holding, place / "closed"));
    EXPECT_EQ(std::ranges::adjacent_find(holding->files), holding->files.end());

    const RunningProcess* running = find(*activity, runner.number());
    ASSERT_NE(running, nullptr);
    EXPECT_EQ(running->executable, program);
    EXPECT_TRUE(has(*running, program)) << "a program is mapped as well";
    EXPECT_TRUE(has(*running, place / "open"));
    EXPECT_NE(find(*activity, ::getpid()), nullptr);
}

TEST(RunningApplications, AreToldByExecutableAndName) {
    const TemporaryFolder place;
    const std::string program = place / "editor";
    std::filesystem::copy_file("/bin/sleep", program);
    const OtherProcess runner([&] { ::execl(program.c_str(), program.c_str(), "1000", nullptr); });
    const auto running = LiveRunningApplications().running();
    ASSERT_TRUE(running);
    const auto found = std::ranges::find(*running, program, &RunningApplication::executable);
    ASSERT_NE(found, running->end());
    EXPECT_EQ(found->name, "editor");
    for (const RunningApplication& one : *running) {
        EXPECT_FALSE(one.executable.empty() && one.name.empty());
    }
}

#ifdef __linux__

TEST(RunningProcesses, CountThoseThatMayNotBeRead) {
    if (::getuid() != 0) GTEST_SKIP() << "needs a process of another user's";
    const TemporaryFolder place;
    place.file("file", "x");
    place.permissions("file", 0644);
    const OtherProcess secret([&] { openFor(place, "file"); });
    const std::string told = testing::asOrdinaryUser([&]() -> std::string {
        const auto activity = LiveRunningProcesses().activity();
        if (!activity) return activity.error().description();
        if (activity->unreadable == 0) return "nothing counted";
        if (find(*activity, secret.number()) != nullptr) return "read what may not be read";
        if (find(*activity, ::getpid()) == nullptr) return "not even this one";
        const auto running = LiveRunningApplications().running();
        if (!running) return running.error().description();
        const auto byName = std::ranges::count_if(*running, [](const RunningApplication& one) {
            return one.executable.empty() && !one.name.empty();
        });
        return byName > 0 ? "well" : "no names";
    });
    EXPECT_EQ(told, "well");
}

TEST(RunningProcesses, AreUnknownWithoutATableOfThem) {
    const auto told = testing::inMountNamespace([]() -> std::string {
        if (!testing::succeeds("mount -t tmpfs none /proc")) return "cannot mount";
        const auto activity = LiveRunningProcesses().activity();
        const auto running = LiveRunningApplications().running();
        return activity || running ? "told" : activity.error().description();
    });
    if (!told) GTEST_SKIP() << "this process may not mount";
    EXPECT_EQ(*told, "No such process");
}

#endif

} // namespace
} // namespace tidyro::platform
