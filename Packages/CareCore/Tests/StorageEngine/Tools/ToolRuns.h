#pragma once

#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/wait.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <gtest/gtest.h>

#include "StorageEngine/Tools/BoundedProcess.h"
#include "Support/OtherCircumstances.h"

namespace tidyro::testing {

inline BoundedProcess process(const std::string& program, std::vector<std::string> arguments = {}) {
    return {.executable = FileURL::file(program),
            .arguments = std::move(arguments),
            .environment = BoundedProcess::defaultEnvironment(FileURL::folder("/")),
            .currentDirectory = FileURL::folder("/"),
            .timeout = 30,
            .outputLimit = 1'000'000,
            .terminationGrace = 10};
}

inline BoundedProcess shell(const std::string& script) {
    return process("/bin/sh", {"-c", script});
}

/// Counts what runs leave behind: descriptors of this process, and processes. It adopts what a run
/// would leave, and is told to by nobody but these tests.
class ToolRuns : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!isProcMounted()) GTEST_SKIP() << "needs /proc";
#ifdef __linux__
        ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
#endif
        openBefore_ = openDescriptors();
    }
    void TearDown() override {
        if (!isProcMounted()) return;
        EXPECT_EQ(openDescriptors(), openBefore_);
        EXPECT_TRUE(hasNoChild());
#ifdef __linux__
        ::prctl(PR_SET_CHILD_SUBREAPER, 0);
#endif
    }

    /// Neither one that lives nor one that nobody waited for.
    static bool hasNoChild() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

    static long openDescriptors() {
        const char* folder = std::filesystem::exists("/proc/self/fd") ? "/proc/self/fd" : "/dev/fd";
        return std::distance(std::filesystem::directory_iterator(folder),
                             std::filesystem::directory_iterator());
    }

  private:
    long openBefore_ = 0;
};

} // namespace tidyro::testing
