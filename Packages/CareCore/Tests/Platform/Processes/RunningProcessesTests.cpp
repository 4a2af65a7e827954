#include "Platform/Processes/RunningProcesses.h"

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

#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#endif

#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Processes/RunningApplications.h"
#ifdef __linux__
#include "Platform/Linux/Processes/KernelFiles.h"
#include "Platform/Linux/Processes/ProcessNamespace.h"
#endif
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
        pid_ = ::fork();
        if (pid_ == 0) {
            work();
            const char done = 1; // nothing is written by what becomes another program, or gives up
            if (::write(ready[1], &done, 1) != 1) ::_exit(1);
            for (;;) ::pause();
        }
        ::close(ready[1]);
        char done = 0;
        hasReturned_ = ::read(ready[0], &done, 1) == 1;
        ::close(ready[0]);
    }
    ~OtherProcess() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    [[nodiscard]] long pid() const { return pid_; }
    /// Whether `work` ended the process; not asked where it replaces the program. The system cannot
    /// be asked: a process closes its files some time before it counts as ended.
    [[nodiscard]] bool hasGivenUp() const { return !hasReturned_; }

  private:
    pid_t pid_;
    bool hasReturned_ = false;
};

const RunningProcess* find(const ProcessActivity& activity, long number) {
    const auto found = std::ranges::find(activity.processes, number, &RunningProcess::pid);
    return found == activity.processes.end() ? nullptr : &*found;
}

bool has(const RunningProcess& process, const std::string& path) {
    return std::ranges::find(process.files, path) != process.files.end();
}

void openFor(const TemporaryFolder& place, const char* name) {
    static_cast<void>(::open((place / name).c_str(), O_RDONLY));
}

TEST(RunningProcesses, HaveFilesOpenMappedAndRunning) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
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
    const RunningProcess* holding = find(*activity, holder.pid());
    ASSERT_NE(holding, nullptr);
    for (const char* name : {"open", "two\nlines \\012", "mapped\nfile", "gone"}) {
        EXPECT_TRUE(has(*holding, place / name)) << name;
    }
    EXPECT_FALSE(has(*holding, place / "closed"));
    EXPECT_EQ(std::ranges::adjacent_find(holding->files), holding->files.end());

    const RunningProcess* running = find(*activity, runner.pid());
    ASSERT_NE(running, nullptr);
    EXPECT_EQ(running->executable, program);
    EXPECT_TRUE(has(*running, program)) << "a program is mapped as well";
    EXPECT_TRUE(has(*running, place / "open"));
    EXPECT_NE(find(*activity, ::getpid()), nullptr);
}

TEST(RunningProcesses, TellHowTheyWereStarted) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    const OtherProcess other([&] {
        std::array<std::string, 2> variables{"A=b=c", "EMPTY="};
        const std::array<char*, 3> environment{variables[0].data(), variables[1].data(), nullptr};
        if (::chdir(place.path().c_str()) != 0) ::_exit(1);
        ::execle("/bin/sleep", "renamed", "1000", "1.0", nullptr, environment.data());
    });
    const auto starts = LiveRunningProcesses().starts();
    ASSERT_TRUE(starts);
    const auto found = std::ranges::find(*starts, other.pid(), &ProcessStart::pid);
    ASSERT_NE(found, starts->end());
    EXPECT_EQ(found->arguments, (std::vector<std::string>{"renamed", "1000", "1.0"}));
    EXPECT_EQ(found->environment, (std::vector<std::string>{"A=b=c", "EMPTY="}));
    EXPECT_EQ(found->workingFolder, place.path());
    EXPECT_NE(std::ranges::find(*starts, currentProcessID(), &ProcessStart::pid), starts->end());
}

TEST(RunningApplications, AreToldByExecutableAndName) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
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

TEST(RunningApplications, TellTheScriptOfAnInterpreter) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    place.file("applet");
    place.link("link", "applet");
    const std::string applet = place / "applet";
    struct Case {
        std::string program;
        std::vector<std::string> words;
        bool isTold;
    };
    for (const Case& one : std::vector<Case>{{"python3.11", {applet}, true},
                                             {"pypy", {"-Es", "-O", place / "link", "-x"}, true},
                                             {"python3", {"-W", applet}, false},
                                             {"python3", {"-c", applet}, false},
                                             {"python3", {"-m", "x", applet}, false},
                                             {"python3", {"applet"}, false},
                                             {"python3", {place / "gone"}, false},
                                             {"python3", {}, false},
                                             {"pythonista", {applet}, false}}) {
        const std::string program = place / one.program;
        std::filesystem::copy_file("/bin/true", program,
                                   std::filesystem::copy_options::overwrite_existing);
        const OtherProcess runner([&] {
            std::vector<std::string> words = one.words;
            words.insert(words.begin(), program);
            std::vector<char*> arguments;
            for (std::string& word : words) arguments.push_back(word.data());
            arguments.push_back(nullptr);
            // It stops before its first instruction.
            if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
            ::execv(program.c_str(), arguments.data());
        });
        const auto running = LiveRunningApplications().running();
        ASSERT_TRUE(running);
        const auto found = std::ranges::find(*running, program, &RunningApplication::executable);
        if (found == running->end()) GTEST_SKIP() << "processes cannot be stopped here";
        EXPECT_EQ(found->script, one.isTold ? *realPath(applet) : "")
            << one.program << " " << ::testing::PrintToString(one.words);
    }
}

TEST(RunningProcesses, CountThoseThatMayNotBeRead) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    if (::getuid() != 0) GTEST_SKIP() << "needs a process of another user's";
    const TemporaryFolder place;
    place.file("file", "x");
    place.permissions("file", 0644);
    const OtherProcess secret([&] { openFor(place, "file"); });
    const std::string told = testing::asOrdinaryUser([&]() -> std::string {
        const auto activity = LiveRunningProcesses().activity();
        if (!activity) return activity.error().description();
        if (activity->unreadable == 0) return "nothing counted";
        if (find(*activity, secret.pid()) != nullptr) return "read what may not be read";
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
        if (!testing::runQuietly("mount -t tmpfs none /proc")) return "cannot mount";
        const auto activity = LiveRunningProcesses().activity();
        const auto running = LiveRunningApplications().running();
        return activity || running ? "told" : activity.error().description();
    });
    if (!told) GTEST_SKIP() << "this process may not mount";
    EXPECT_EQ(*told, "No such process");
}

/// Mounts of the caller's own; an ordinary user may have them where he may play root.
bool leaveMountNamespace() {
    if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    ::prctl(PR_SET_DUMPABLE, 1); // who plays root may not be read otherwise
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TEST(RunningProcesses, NameFilesAsTheyAreNamedHere) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    for (const char* name : {"home/held", "home/gone", "home/before", "home/closed"}) {
        place.file(name, "x");
    }
    place.folder("container/data");
    for (const bool isShutIn : {false, true}) {
        place.file("home/gone", "x");
        const OtherProcess holder([&] {
            openFor(place, "home/before");
            if (!leaveMountNamespace()) ::_exit(1);
            if (!testing::bindMount(place / "home", place / "container/data")) ::_exit(1);
            if (isShutIn && ::chroot((place / "container").c_str()) != 0) ::_exit(1);
            const std::string folder = isShutIn ? "/data/" : place / "container/data/";
            for (const char* name : {"held", "gone"}) {
                static_cast<void>(::open((folder + name).c_str(), O_RDONLY));
            }
            ::unlink((folder + "gone").c_str());
        });
        if (holder.hasGivenUp()) GTEST_SKIP() << "this process may not mount";
        const auto activity = LiveRunningProcesses().activity();
        ASSERT_TRUE(activity);
        const RunningProcess* holding = find(*activity, holder.pid());
        ASSERT_NE(holding, nullptr);
        for (const char* name : {"home/held", "home/gone", "home/before", "container/data/held"}) {
            EXPECT_TRUE(has(*holding, place / name)) << name << ", shut in: " << isShutIn;
        }
        EXPECT_FALSE(has(*holding, place / "home/closed"));
        EXPECT_EQ(std::ranges::adjacent_find(holding->files), holding->files.end());
    }
}

TEST(RunningProcesses, NameFilesByEveryMountOfTheirFolder) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    place.file("home/one", "x");
    place.file("home/two", "x");
    place.folder("alias");
    std::filesystem::copy_file("/bin/sleep", place / "home/program");
    const auto missing = testing::inMountNamespace([&]() -> std::string {
        if (!testing::bindMount(place / "home", place / "alias")) return "the mount";
        openFor(place, "alias/one");
        openFor(place, "home/two");
        const std::string program = place / "alias/program";
        const OtherProcess runner(
            [&] { ::execl(program.c_str(), program.c_str(), "1000", nullptr); });
        const auto activity = LiveRunningProcesses().activity();
        if (!activity) return activity.error().description();
        const RunningProcess* self = find(*activity, ::getpid());
        const RunningProcess* running = find(*activity, runner.pid());
        if (self == nullptr || running == nullptr) return "the processes";
        for (const char* name : {"home/one", "alias/one", "home/two", "alias/two"}) {
            if (!has(*self, place / name)) return name;
        }
        return has(*running, place / "home/program") ? "nothing" : "the program";
    });
    if (!missing) GTEST_SKIP() << "this process may not mount";
    EXPECT_EQ(*missing, "nothing");
}

TEST(RunningProcesses, TellWhatTheKernelHasInUse) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    EXPECT_EQ(swapFiles("Filename\t\t\tType\t\tSize\t\tUsed\t\tPriority\n"
                        "/dev/dm-1                partition\t1000\t\t0\t\t-2\n"
                        "/var/my\\040swap\\134 file\t\t1000\t\t0\t\t-3\n"),
              (std::vector<std::string>{"/dev/dm-1", "/var/my swap\\"}));
    const TemporaryFolder place;
    place.hole("disk image", 20'000'000);
    place.folder("mounted");
    const auto told = testing::inMountNamespace([&]() -> std::string {
        const std::string image = place / "disk image";
        if (!testing::runQuietly("mkfs.ext4 -q -F '" + image + "' && mount -o loop '" + image +
                                 "' '" + (place / "mounted") + "'")) {
            return "no image";
        }
        const auto activity = LiveRunningProcesses().activity();
        if (!activity) return activity.error().description();
        const RunningProcess* kernel = find(*activity, 0);
        return kernel != nullptr && has(*kernel, image) ? "told" : "not told";
    });
    if (!told || *told == "no image") GTEST_SKIP() << "images cannot be mounted here";
    EXPECT_EQ(*told, "told");
}

TEST(RunningProcesses, AreToldAsFarAsTheTableIsOpen) {
    for (const std::string hiding : {"0", "1", "2"}) {
        const auto told = testing::inMountNamespace([&]() -> std::string {
            if (!testing::runQuietly("mount -t proc -o hidepid=" + hiding + " proc /proc")) {
                return "well"; // an older kernel
            }
            return testing::asOrdinaryUser([]() -> std::string {
                const auto activity = LiveRunningProcesses().activity();
                if (!activity) return activity.error().description();
                const auto running = LiveRunningApplications().running();
                if (!running) return running.error().description();
                const bool isHere = find(*activity, ::getpid()) != nullptr;
                return isHere && !running->empty() ? "well" : "not even this one";
            });
        });
        if (!told) GTEST_SKIP() << "this process may not mount";
        EXPECT_EQ(*told, "well") << hiding;
    }
}

#endif

#ifdef __linux__
TEST(RunningProcesses, KnowWhereOthersAreHidden) {
    const std::string first = "pid:[4026531836]";
    const std::string other = "pid:[4026532281]";
    const std::string windows = "5.15.167.4-microsoft-standard-WSL2";
    struct Case {
        ProcessNamespaceSigns signs;
        bool areHidden;
        const char* what;
    };
    for (const auto& [signs, areHidden, what] : std::vector<Case>{
             {{first, "6.1.0", "systemd", "", false}, false, "an ordinary system"},
             {{first, "6.1.0", "bash", "docker", true}, false, "a container that sees its host"},
             {{other, "6.1.0", "bash", "", false}, true, "unshare"},
             {{other, "6.1.0", "bwrap", "", false}, true, "Flatpak"},
             {{other, "6.1.0", "systemd", "", false}, true, "an init system of nobody knows what"},
             {{other, "6.1.0", "systemd", "docker", true}, true, "a container with a service"},
             {{other, "6.1.0", "systemd", "lxc", false}, false, "LXC"},
             {{other, "6.1.0", "bash", "lxc", false}, true, "a namespace inside LXC"},
             {{other, windows, "init(Debian)", "", false}, false, "WSL"},
             {{other, windows, "systemd", "wsl", false}, false, "WSL with services"},
             {{other, windows, "init", "", true}, true, "a container inside WSL"},
             {{"", "", "", "", false}, true, "nothing is told"}}) {
        EXPECT_EQ(areOthersHidden(signs), areHidden) << what;
    }
    const std::string told = testing::inChild([] {
        if (::unshare(CLONE_NEWPID) != 0) return std::string("not allowed");
        return testing::inChild([] { return std::string(areOthersHidden() ? "hidden" : "seen"); });
    });
    EXPECT_TRUE(told == "hidden" || told == "not allowed") << told;
}
#endif

} // namespace
} // namespace tidyro::platform
