#include "StorageEngine/Tools/BoundedProcess.h"

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <thread>

#include <sys/resource.h>
#include <unistd.h>
#ifdef __linux__
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#endif

#include "Base/Stopwatch.h"
#include "Platform/Processes/ChildProcess.h"
#include "StorageEngine/Tools/ToolRuns.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::process;
using testing::shell;
using testing::TemporaryFolder;
using Output = BoundedProcess::Output;

class BoundedProcessRuns : public testing::ToolRuns {};

constexpr std::int32_t terminated = 128 + SIGTERM;
constexpr std::int32_t killed = 128 + SIGKILL;

TEST_F(BoundedProcessRuns, GiveWhatIsSaidAndNothingElse) {
    const TemporaryFolder place;
    BoundedProcess asked = process("/usr/bin/env");
    asked.environment = {{"A", "b=c"}, {"LINES", "one\ntwo"}, {"EMPTY", ""}, {"X\nY", "=\xFF"}};
    EXPECT_EQ(asked.run(),
              (Output{.standardOutput = "A=b=c\nEMPTY=\nLINES=one\ntwo\nX\nY==\xFF\n"}));

    asked = shell("pwd -P; cat; echo wrong >&2; exit 3");
    asked.currentDirectory = FileURL::folder(place.path());
    asked.standardInput = std::string(300'000, 'i'); // more than a pipe holds
    EXPECT_EQ(asked.run(), (Output{.exitCode = 3,
                                   .standardOutput = place.path() + "\n" + *asked.standardInput,
                                   .standardError = "wrong\n"}));

    EXPECT_EQ(shell("cat; kill -KILL $$").run(), Output{.exitCode = killed});
    // A descriptor that a program of ours would inherit.
    const int inherited = ::dup(STDERR_FILENO);
    EXPECT_EQ(process(TIDYRO_ACTOR, {"descriptors"}).run()->standardOutput, "0 1 2 ");
    ::close(inherited);
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(process(TIDYRO_ACTOR, {"group"}).run(), Output{});
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(BoundedProcessRuns, FailWhenTheProgramCannotStart) {
    const TemporaryFolder place;
    place.file("orphan", "#!/nowhere/interpreter\n");
    place.permissions("orphan", 0700);
    place.file("text", "no program\n");
    place.permissions("text", 0700);
    place.file("plain", "#!/bin/sh\n");
    for (const std::string& path :
         {place / "orphan", place / "text", place / "plain", place / "missing", place.path()}) {
        EXPECT_EQ(process(path).run(), std::nullopt) << path;
    }
    BoundedProcess nowhere = process("/bin/true");
    nowhere.currentDirectory = FileURL::folder(place / "gone");
    EXPECT_EQ(nowhere.run(), std::nullopt);
    EXPECT_EQ(process("/bin/echo", {std::string("a\0b", 3)}).run(), std::nullopt);
    for (const std::string name : {"", "a=b"}) {
        BoundedProcess named = process("/bin/true");
        named.environment[name] = "value";
        EXPECT_EQ(named.run(), std::nullopt) << name;
    }
}

TEST_F(BoundedProcessRuns, FailWithoutDescriptors) {
    if (testing::isSanitized()) GTEST_SKIP() << "a sanitizer opens files to look at memory";
    const TemporaryFolder place;
    const BoundedProcess touch = process("/usr/bin/touch", {place / "ran"});
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    // With each number of them: up to where it works, nothing may run and nothing be left.
    std::optional<Output> output;
    for (rlim_t count = static_cast<rlim_t>(openDescriptors()) - 1; count < 64 && !output;
         ++count) {
        const rlimit few{.rlim_cur = count, .rlim_max = before.rlim_max};
        for (int run = 0; run < 10 && !output; ++run) {
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
            output = touch.run();
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
            ASSERT_TRUE(hasNoChild()) << count;
            ASSERT_EQ(std::filesystem::exists(place / "ran"), output.has_value()) << count;
        }
    }
    EXPECT_EQ(output, Output{});
}

TEST_F(BoundedProcessRuns, FailWithoutProcesses) {
    if (testing::isSanitized()) GTEST_SKIP() << "a sanitizer has a thread of its own";
    const TemporaryFolder place;
    place.permissions("", 0777);
    EXPECT_EQ(testing::asOrdinaryUser([&]() -> std::string {
                  // The limit holds for all processes of the user, who may have others.
                  const BoundedProcess touch = process("/usr/bin/touch", {place / "ran"});
                  rlimit before{};
                  ::getrlimit(RLIMIT_NPROC, &before);
                  int failures = 0;
                  for (rlim_t count = 0; count < 8; ++count) {
                      const rlimit few{.rlim_cur = count, .rlim_max = before.rlim_max};
                      if (::setrlimit(RLIMIT_NPROC, &few) != 0) return "no limit";
                      const bool hasRun = touch.run().has_value();
                      if (!hasNoChild()) return "left a process";
                      if (std::filesystem::exists(place / "ran") != hasRun) return "ran untold";
                      std::filesystem::remove(place / "ran");
                      failures += hasRun ? 0 : 1;
                  }
                  ::setrlimit(RLIMIT_NPROC, &before);
                  if (failures == 0) return "never failed";
                  return touch.run() == Output{} ? "told" : "failed";
              }),
              "told");
}

TEST_F(BoundedProcessRuns, GoOnWhenTheirFolderGoes) {
    const TemporaryFolder place;
    for (const char* replacement : {"", "ln -s / \"$0\"", ": >\"$0\""}) {
        place.folder("work");
        BoundedProcess asked =
            process("/bin/sh", {"-c", std::string("rmdir \"$0\"; ") + replacement + "\ncat; exit 3",
                                place / "work"});
        asked.currentDirectory = FileURL::folder(place / "work");
        asked.standardInput = "in";
        EXPECT_EQ(asked.run(), (Output{.exitCode = 3, .standardOutput = "in"})) << replacement;
        std::filesystem::remove(place / "work");
        EXPECT_EQ(asked.run(), std::nullopt);
    }
}

TEST_F(BoundedProcessRuns, FailWithoutThreads) {
    if (testing::isSanitized()) GTEST_SKIP() << "a sanitizer starts threads of its own";
    EXPECT_EQ(testing::asOrdinaryUser([] {
                  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
                  if (::setrlimit(RLIMIT_NPROC, &none) != 0) return "not limited";
                  return process("/bin/true").run() ? "run" : "not started";
              }),
              "not started");
}

/// What a program that would outstay its run gets.
struct Stuck {
    const char* description;
    BoundedProcess process;
    Output expected;
    double maxSeconds;
};

TEST_F(BoundedProcessRuns, EndWhateverTheProgramDoes) {
    std::vector<Stuck> cases{
        {"prints nothing", shell("exec sleep 100"), {.exitCode = terminated, .timedOut = true}, 1},
        {"ignores SIGTERM",
         shell("trap '' TERM; echo ready; while :; do sleep 100; done"),
         {.exitCode = killed, .standardOutput = "ready\n", .timedOut = true},
         1},
        {"ends politely",
         shell("trap 'echo bye; exit 5' TERM; echo ready; sleep 100 & wait"),
         {.exitCode = 5, .standardOutput = "ready\nbye\n", .timedOut = true},
         1},
        {"stops itself", shell("kill -STOP $$"), {.exitCode = terminated, .timedOut = true}, 1},
        {"closes its output and sleeps",
         shell("exec >&- 2>&-; exec sleep 100"),
         {.exitCode = terminated, .timedOut = true},
         1},
        {"closes its output, works and ends",
         shell("exec >&- 2>&-; sleep 0.1; exit 4"),
         {.exitCode = 4},
         1},
        {"forks for ever",
         process(TIDYRO_ACTOR, {"chain"}),
         {.exitCode = terminated, .timedOut = true},
         1},
        {"forks for ever and leaves",
         process(TIDYRO_ACTOR, {"leaving"}),
         {.exitCode = terminated,
          .timedOut = true,
          .standardOutputTruncated = true,
          .standardErrorTruncated = true},
         1.5},
        {"forks in all directions",
         process(TIDYRO_ACTOR, {"bomb"}),
         {.exitCode = killed, .timedOut = true},
         1},
        {"leaves a process in another session",
         process(TIDYRO_ACTOR, {"leave"}),
         {.exitCode = 7},
         0.5},
        {"leaves one that holds its output",
         shell("sleep 100 & echo done"),
         {.standardOutput = "done\n",
          .standardOutputTruncated = true,
          .standardErrorTruncated = true},
         1},
    };
    for (Stuck& stuck : cases) {
        stuck.process.timeout = 0.3;
        stuck.process.terminationGrace = 0.3;
        const Stopwatch watch;
        EXPECT_EQ(stuck.process.run(), stuck.expected) << stuck.description;
        EXPECT_LT(watch.seconds(), stuck.maxSeconds + 0.5) << stuck.description;
        EXPECT_TRUE(hasNoChild()) << stuck.description;
    }
}

TEST_F(BoundedProcessRuns, EndWhenSomethingElseStillWrites) {
    BoundedProcess asked = process(TIDYRO_ACTOR, {"hold"});
    asked.terminationGrace = 0.2;
    const auto output = asked.run();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->exitCode, 7);
    EXPECT_FALSE(output->timedOut);
    EXPECT_TRUE(output->standardOutputTruncated);
    EXPECT_GT(output->standardOutput.size(), 20);
}

TEST_F(BoundedProcessRuns, EndTheProgramWhenItEndsItsKeeper) {
#ifdef __linux__
    // What it leaves is out of reach then, but nobody may wait for it.
    BoundedProcess asked = process(TIDYRO_ACTOR, {"killparent"});
    asked.terminationGrace = 0.2;
    const Stopwatch watch;
    const auto output = asked.run();
    ASSERT_TRUE(output);
    EXPECT_EQ(output->exitCode, killed);
    EXPECT_LT(watch.seconds(), 2);
    // The test has adopted it.
    siginfo_t left{};
    while (::waitid(P_ALL, 0, &left, WEXITED | WNOHANG) == 0) {
        std::ifstream children("/proc/thread-self/children");
        for (pid_t pid = 0; children >> pid;) ::kill(pid, SIGKILL);
    }
#endif
}

#ifdef __linux__
TEST_F(BoundedProcessRuns, EndAProgramThatStartsTooLate) {
    // Whoever holds a lease on its file holds the start up, as a server that does not answer would.
    const TemporaryFolder place;
    std::filesystem::copy_file("/bin/sh", place / "program");
    std::signal(SIGIO, SIG_IGN);
    const int fd = ::open((place / "program").c_str(), O_RDWR | O_CLOEXEC);
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
        ::close(fd);
        GTEST_SKIP() << "no leases here";
    }
    {
        auto child = platform::ChildProcess::start(
            {.path = place / "program",
             .arguments = {"program", "-c", "sleep 0.3; : >" + (place / "ran")},
             .environment = {"PATH=/bin:/usr/bin"},
             .workingFolder = "/"});
        ASSERT_TRUE(child);
        EXPECT_EQ(child->end(), killed);
    }
    ::close(fd); // and the lease with it
    while (::waitpid(-1, nullptr, 0) > 0) {}
    EXPECT_FALSE(std::filesystem::exists(place / "ran"));
    std::signal(SIGIO, SIG_DFL);
}
#endif

TEST_F(BoundedProcessRuns, CutOutputAtTheLimit) {
    for (const std::size_t limit : {0UL, 1UL, 65'536UL, 199'999UL, 200'000UL, 200'001UL}) {
        BoundedProcess asked =
            shell("head -c 200000 /dev/zero; head -c 70000 /dev/zero >&2; exit 9");
        asked.outputLimit = limit;
        const auto output = asked.run();
        ASSERT_TRUE(output);
        EXPECT_EQ(output->exitCode, 9); // it ran to its end
        EXPECT_EQ(output->standardOutput.size(), std::min(limit, 200'000UL));
        EXPECT_EQ(output->standardError.size(), std::min(limit, 70'000UL));
        EXPECT_EQ(output->standardOutputTruncated, limit < 200'000);
        EXPECT_EQ(output->standardErrorTruncated, limit < 70'000);
    }
    BoundedProcess endless = shell("exec yes");
    endless.timeout = 0.2;
    endless.outputLimit = 100;
    const auto output = endless.run();
    ASSERT_TRUE(output);
    EXPECT_TRUE(output->timedOut && output->standardOutputTruncated);
    EXPECT_EQ(output->standardOutput.size(), 100);
}

TEST_F(BoundedProcessRuns, LastAsLongAsTheyMay) {
    for (const double seconds : {0.0, -1.0, std::nan("")}) {
        BoundedProcess asked = shell("exec sleep 100");
        asked.timeout = seconds;
        asked.terminationGrace = seconds;
        EXPECT_TRUE(asked.run()->timedOut) << seconds;
    }
    BoundedProcess asked = process("/bin/true");
    asked.timeout = std::numeric_limits<double>::infinity();
    asked.terminationGrace = std::numeric_limits<double>::infinity();
    EXPECT_EQ(asked.run(), Output{});
}

TEST_F(BoundedProcessRuns, DoNotHangOnInputThatNobodyReads) {
    BoundedProcess asked = shell("exec sleep 0.1");
    asked.standardInput = std::string(1'000'000, 'x');
    EXPECT_EQ(asked.run(), Output{});
    asked = shell("exec <&-; sleep 0.1; exit 2"); // writing to it raises a signal
    asked.standardInput = std::string(1'000'000, 'x');
    EXPECT_EQ(asked.run(), Output{.exitCode = 2});
    asked = shell("cat; echo end");
    asked.standardInput = "";
    EXPECT_EQ(asked.run(), Output{.standardOutput = "end\n"});
}

TEST_F(BoundedProcessRuns, AreCancelled) {
    std::stop_source source;
    const std::jthread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        source.request_stop();
    });
    const Stopwatch watch;
    const Output expected{.exitCode = terminated, .cancelled = true};
    EXPECT_EQ(shell("exec sleep 100").run(source.get_token()), expected);
    EXPECT_LT(watch.seconds(), 1);
    // Now it starts nothing.
    const TemporaryFolder place;
    EXPECT_EQ(shell("touch '" + (place / "ran") + "'").run(source.get_token()), expected);
    EXPECT_FALSE(std::filesystem::exists(place / "ran"));
    int questions = 0;
    EXPECT_EQ(shell("exec sleep 100").runSynchronously([&] { return ++questions > 3; }), expected);
}

TEST_F(BoundedProcessRuns, CostNothingWhenTheyAreCancelledAfterTheirTime) {
    const auto usedSeconds = [] {
        rusage used{};
        ::getrusage(RUSAGE_SELF, &used);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(used.ru_utime) + seconds(used.ru_stime);
    };
    BoundedProcess asked = shell("trap '' TERM; while :; do sleep 100; done");
    asked.timeout = 0.05;
    asked.terminationGrace = 0.5;
    std::stop_source source;
    const std::jthread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        source.request_stop();
    });
    const double before = usedSeconds();
    const auto output = asked.run(source.get_token());
    ASSERT_TRUE(output);
    EXPECT_TRUE(output->timedOut && !output->cancelled);
    EXPECT_LT(usedSeconds() - before, 0.1); // the rest of the grace is waited for
}

TEST_F(BoundedProcessRuns, AreCleanWheneverTheyAreCancelled) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> microseconds(0, 6'000);
    const std::array programs{process("/bin/true"), shell("(sleep 100 & sleep 0.002); echo"),
                              process(TIDYRO_ACTOR, {"leave"}), shell("exec yes")};
    int cancelled = 0;
    constexpr int runs = 1'000;
    for (int run = 0; run < runs; ++run) {
        std::stop_source source;
        const std::jthread canceller([&, time = microseconds(random)] {
            std::this_thread::sleep_for(std::chrono::microseconds(time));
            source.request_stop();
        });
        BoundedProcess asked = programs.at(static_cast<std::size_t>(run) % programs.size());
        asked.outputLimit = 1'000;
        asked.terminationGrace = 0.005;
        const auto output = asked.run(source.get_token());
        ASSERT_TRUE(output);
        EXPECT_FALSE(output->timedOut);
        cancelled += output->cancelled ? 1 : 0;
        ASSERT_TRUE(hasNoChild()) << run;
    }
    EXPECT_GT(cancelled, runs / 10);
    EXPECT_LT(cancelled, runs);
}

TEST_F(BoundedProcessRuns, KeepNothingOfEachOther) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            for (int run = 0; run < 25; ++run) {
                const std::string text = std::to_string(thread * 100 + run);
                BoundedProcess asked = shell("cat; setsid sleep 100 >/dev/null 2>&1 &");
                asked.standardInput = text;
                EXPECT_EQ(asked.run(), Output{.standardOutput = text});
            }
        });
    }
}

TEST_F(BoundedProcessRuns, WorkForAnOrdinaryUser) {
    EXPECT_EQ(testing::asOrdinaryUser([] {
                  const auto output = process(TIDYRO_ACTOR, {"leave"}).run();
                  return output && hasNoChild() ? std::to_string(output->exitCode) : "failed";
              }),
              "7");
}

TEST_F(BoundedProcessRuns, RefuseAMountThatForbidsPrograms) {
#ifdef __linux__
    const TemporaryFolder place;
    place.folder("mounted");
    const auto told = testing::inMountNamespace([&]() -> std::string {
        const std::string folder = place / "mounted";
        if (::mount("none", folder.c_str(), "tmpfs", MS_NOEXEC, nullptr) != 0) return "unmounted";
        std::filesystem::copy_file("/bin/true", folder + "/program");
        if (process(folder + "/program").run()) return "ran";
        auto opened = platform::OpenProgram::open(folder + "/program");
        BoundedProcess byDescriptor = process(folder + "/program");
        byDescriptor.program = std::make_shared<const platform::OpenProgram>(std::move(*opened));
        return byDescriptor.run() ? "ran by its descriptor" : "refused";
    });
    if (!told) GTEST_SKIP() << "may not mount";
    EXPECT_EQ(told, "refused");
#endif
}

} // namespace
} // namespace tidyro
