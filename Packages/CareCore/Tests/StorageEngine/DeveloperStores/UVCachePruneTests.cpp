#include "StorageEngine/DeveloperStores/UVCachePrune.h"

#include <array>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/mount.h>
#endif

#include "Base/JSONCoding.h"
#include "Base/Stopwatch.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "StorageEngine/DeveloperStores/UVCacheFolder.h"
#include "StorageEngine/Tools/ToolExecutableLocator.h"
#include "StorageEngine/Tools/ToolRuns.h"
#include "Support/AllSeenProcesses.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using namespace uv_prune_status;
using platform::testing::FakeRunningProcesses;
using testing::TemporaryFolder;
using Status = UVCachePruneOutcome::Status;

constexpr const char* notConfirmedText =
    "This confirmation does not match the command on screen, or it is more than ten minutes old. "
    "Nothing was run.";
constexpr const char* programText =
    "The uv program changed after it was checked, so Tidyro did not run it.";
constexpr const char* cacheText =
    "The uv cache folder changed after it was measured, so Tidyro did not run uv.";
constexpr const char* foreignText =
    "That folder now holds something uv did not put there, so Tidyro did not run uv on it.";
constexpr const char* notRecordedText =
    "Tidyro could not record what it was about to run, so it did not run it.";

/// Does something in the moment between the two checks of what is about to run.
class ProcessesWithAction final : public platform::RunningProcesses {
  public:
    explicit ProcessesWithAction(std::function<void()> action) : action_(std::move(action)) {}
    [[nodiscard]] std::expected<platform::ProcessActivity, SystemError> activity() const override {
        action_();
        return platform::ProcessActivity{};
    }
    [[nodiscard]] std::expected<std::vector<platform::ProcessStart>, SystemError>
    starts() const override {
        return std::vector<platform::ProcessStart>{};
    }

  private:
    std::function<void()> action_;
};

/// A home with a program that plays uv, and two caches; the second one is where a variable says.
class UVCachePrunes : public testing::ToolRuns {
  protected:
    void SetUp() override {
        ToolRuns::SetUp();
        if (IsSkipped()) return;
        place_.file("version", "uv 1.2.3\n");
        installUV();
        for (const char* cache : {".cache/uv", "moved"}) makeCache(cache);
    }

    void installUV() const {
        std::filesystem::remove(place_ / "uv");
        std::filesystem::copy_file(TIDYRO_ACTOR, place_ / "uv");
        place_.permissions("uv", 0755);
    }
    /// With all that uv puts there.
    void makeCache(const std::string& name) const {
        for (const char* bucket :
             {"wheels-v5", "archive-v0", "simple-v16", "sdists-v9", "git-v0", "builds-v0",
              "interpreter-v4", "environments-v2", "flat-index-v2", "python-v0", "binaries-v0",
              "built-wheels-v3", "wheel-metadata-v10", ".tmpA1b2", "archive-v0/dangling"}) {
            place_.folder(name + "/" + bucket);
        }
        for (const char* file : {"CACHEDIR.TAG", ".gitignore", ".lock", ".tmpFile"}) {
            place_.file(name + "/" + file);
        }
        place_.noise(name + "/archive-v0/dangling/module.so", 300'000);
        place_.noise(name + "/archive-v0/used/module.so", 100'000);
    }
    [[nodiscard]] FileURL home() const { return FileURL::folder(place_.path()); }
    [[nodiscard]] UVCachePruneProposal propose() const {
        const DeveloperStoreInventory inventory{.userHome = home(),
                                                .environment = {{"UV_CACHE_DIR", place_ / "moved"}},
                                                .systemRoot = home()};
        const auto uv =
            ToolExecutableLocator::validateUV(FileURL::file(place_ / "uv"), true, home());
        return UVCachePruneProposal::make(inventory, uv.value()).value();
    }
    [[nodiscard]] UVCachePruneRunner runner() const {
        return {.timeout = 30,
                .log = {FileURL::folder(place_ / "log")},
                .userHome = home(),
                .processes = &nothingRuns_};
    }
    static UVCachePruneApproval approve(const UVCachePruneProposal& proposal) {
        return {.proposalID = proposal.id, .approvedAt = Timestamp::now()};
    }
    [[nodiscard]] UVCachePruneOutcome run(const UVCachePruneProposal& proposal,
                                          const CancelToken& cancel = {}) const {
        return runner().run(proposal, approve(proposal), cancel);
    }
    void behave(const char* behaviour) const { place_.file("behaviour", behaviour); }
    [[nodiscard]] bool hasRun() const { return std::filesystem::exists(place_ / "seen"); }
    [[nodiscard]] std::string text(const std::string& name) const {
        std::ifstream file(place_ / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// The only record in the log.
    [[nodiscard]] ToolCommandLog::Record record() const {
        std::vector<std::string> names;
        for (const auto& one : std::filesystem::directory_iterator(place_ / "log")) {
            names.push_back(one.path().filename());
        }
        EXPECT_EQ(names.size(), 1U);
        return fromJSONText<ToolCommandLog::Record>(text("log/" + names.at(0))).value();
    }

    const TemporaryFolder place_;
    const FakeRunningProcesses nothingRuns_;
};

TEST_F(UVCachePrunes, RunInTheCacheThatWasMeasured) {
    for (const char* behaviour : {"", "chatty"}) {
        behave(behaviour);
        makeCache("moved");
        const UVCachePruneProposal proposal = propose();
        EXPECT_EQ(proposal.displayCommand(), "uv cache prune");
        EXPECT_EQ(proposal.expiresAt, proposal.createdAt.adding(600));
        const UVCachePruneOutcome outcome = run(proposal);
        EXPECT_EQ(outcome.status, Status{Completed{}});
        EXPECT_EQ(outcome.cacheAllocatedBytesBefore, proposal.cacheAllocatedBytesBefore);
        ASSERT_TRUE(outcome.cacheAllocatedBytesAfter);
        EXPECT_GE(outcome.cacheAllocatedBytesBefore, *outcome.cacheAllocatedBytesAfter + 300'000);
        EXPECT_GE(*outcome.cacheAllocatedBytesAfter, 100'000U);
        EXPECT_GT(outcome.duration, 0);
        EXPECT_TRUE(std::filesystem::exists(place_ / ".cache/uv/archive-v0/dangling"));
        EXPECT_EQ(text("seen"), "/\nHOME=" + place_.path() +
                                    "\nLANG=en_US.UTF-8\nNO_COLOR=1\nPATH=/usr/bin:/bin\n"
                                    "UV_CACHE_DIR=" +
                                    place_ / "moved\n");
        const ToolCommandLog::Record written = record();
        EXPECT_EQ(written.command, "uv cache prune");
        EXPECT_EQ(written.executablePath, proposal.executable.url.path());
        EXPECT_EQ(written.result, "completed");
        EXPECT_TRUE(written.finishedAt && *written.finishedAt >= written.startedAt);
        std::filesystem::remove_all(place_ / "log");
    }
}

TEST_F(UVCachePrunes, AreNotProposedWithoutWhatTheyNeed) {
    const auto uv =
        ToolExecutableLocator::validateUV(FileURL::file(place_ / "uv"), true, home()).value();
    const DeveloperStoreInventory inventory{.userHome = home(), .systemRoot = home()};
    ASSERT_TRUE(UVCachePruneProposal::make(inventory, uv));
    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(UVCachePruneProposal::make(inventory, uv, stopped.get_token()).error(),
              UVCachePruneObstacle::cancelled);
    place_.file(".cache/uv/notes.txt");
    EXPECT_EQ(UVCachePruneProposal::make(inventory, uv).error(),
              UVCachePruneObstacle::foreignContents);
    std::filesystem::remove_all(place_ / ".cache");
    EXPECT_EQ(UVCachePruneProposal::make(inventory, uv).error(),
              UVCachePruneObstacle::cacheNotFound);
    // The machine may have a uv; a file in a temporary place is never taken for it.
    place_.folder(".local/bin");
    std::filesystem::rename(place_ / "uv", place_ / ".local/bin/uv");
    const auto found = UVCachePruneProposal::make(inventory);
    EXPECT_TRUE(found == std::unexpected(UVCachePruneObstacle::uvNotFound) ||
                found == std::unexpected(UVCachePruneObstacle::cacheNotFound));
}

TEST_F(UVCachePrunes, RefuseWhatIsNotWhatWasConfirmed) {
    const std::string uv = place_ / "uv";
    struct Case {
        const char* description;
        std::function<void(UVCachePruneProposal&, UVCachePruneApproval&)> change;
        const char* expected;
    };
    const auto makeOlder = [](UVCachePruneProposal& proposal, double seconds) {
        proposal.createdAt = proposal.createdAt.adding(-seconds);
        proposal.expiresAt = proposal.expiresAt.adding(-seconds);
    };
    const std::vector<Case> cases{
        {"another proposal", [](auto&, auto& approval) { approval.proposalID = UUID(); },
         notConfirmedText},
        {"too old", [&](auto& proposal, auto&) { makeOlder(proposal, 601); }, notConfirmedText},
        {"said to expire later",
         [&](auto& proposal, auto&) {
             makeOlder(proposal, 601);
             proposal.expiresAt = proposal.expiresAt.adding(1'000);
         },
         notConfirmedText},
        {"from the future", [&](auto& proposal, auto&) { makeOlder(proposal, -100); },
         notConfirmedText},
        {"approved before it was proposed",
         [](auto&, auto& approval) { approval.approvedAt = approval.approvedAt.adding(-100); },
         notConfirmedText},
        {"another uv", [&](auto&, auto&) { place_.times("uv", 1'000'000'000, 1'000'000'000); },
         programText},
        {"no uv", [&](auto&, auto&) { std::filesystem::remove(uv); }, programText},
        {"a uv that others may change", [&](auto&, auto&) { place_.permissions("uv", 0777); },
         programText},
        {"a script",
         [&](auto& proposal, auto&) {
             place_.file("uv", "#!/bin/sh\necho uv 1.2.3; touch " + place_ / "seen\n");
             place_.permissions("uv", 0755);
             proposal.executable =
                 ValidatedExecutable::validated(
                     FileURL::file(uv), {.environment = BoundedProcess::defaultEnvironment(home()),
                                         .allowTemporaryLocation = true,
                                         .version = ToolExecutableLocator::uvVersionIn})
                     .value();
             std::filesystem::remove(place_ / "seen");
         },
         programText},
        {"the same cache anew",
         [&](auto&, auto&) {
             std::filesystem::rename(place_ / "moved", place_ / "aside");
             std::filesystem::copy(place_ / "aside", place_ / "moved",
                                   std::filesystem::copy_options::recursive);
         },
         cacheText},
        {"no cache", [&](auto&, auto&) { std::filesystem::remove_all(place_ / "moved"); },
         cacheText},
        {"a file of somebody", [&](auto&, auto&) { place_.file("moved/notes.txt"); }, foreignText},
        {"a folder of somebody", [&](auto&, auto&) { place_.folder("moved/project"); },
         foreignText},
        {"a folder without a version", [&](auto&, auto&) { place_.folder("moved/wheels-v"); },
         foreignText},
        {"a folder with a like name", [&](auto&, auto&) { place_.folder("moved/my-wheels-v5"); },
         foreignText},
        {"a link to a bucket", [&](auto&, auto&) { place_.link("moved/wheels-v6", "wheels-v5"); },
         foreignText},
        {"a file like a bucket", [&](auto&, auto&) { place_.file("moved/git-v1"); }, foreignText},
        {"a folder like a file", [&](auto&, auto&) { place_.folder("moved/CACHEDIR.TAG-v1"); },
         foreignText},
        {"a log that cannot be written", [&](auto&, auto&) { place_.file("log"); },
         notRecordedText},
    };
    for (const Case& one : cases) {
        UVCachePruneProposal proposal = propose();
        UVCachePruneApproval approval = approve(proposal);
        one.change(proposal, approval);
        const UVCachePruneOutcome outcome = runner().run(proposal, approval);
        EXPECT_EQ(outcome.status, Status{Refused{one.expected}}) << one.description;
        EXPECT_EQ(outcome.cacheAllocatedBytesAfter, std::nullopt);
        EXPECT_FALSE(hasRun()) << one.description;
        EXPECT_FALSE(std::filesystem::is_directory(place_ / "log")) << one.description;
        for (const char* name : {"moved", "aside", "log"}) {
            std::filesystem::remove_all(place_ / name);
        }
        installUV();
        makeCache("moved");
    }
}

TEST_F(UVCachePrunes, RefuseWhatChangesAtTheLastMoment) {
    const std::vector<std::pair<std::function<void()>, const char*>> changes{
        {[&] { installUV(); }, programText},
        {[&] { std::filesystem::rename(place_ / "moved", place_ / "aside"); }, cacheText},
        {[&] { place_.file("moved/notes.txt"); }, foreignText},
    };
    for (const auto& [change, expected] : changes) {
        const ProcessesWithAction processes(change);
        UVCachePruneRunner runner = this->runner();
        runner.processes = &processes;
        const UVCachePruneProposal proposal = propose();
        EXPECT_EQ(runner.run(proposal, approve(proposal)).status, Status{Refused{expected}});
        EXPECT_FALSE(hasRun());
        EXPECT_EQ(record().result, "refused: " + std::string(expected));
        std::filesystem::remove_all(place_ / "log");
        makeCache("moved");
    }
}

TEST_F(UVCachePrunes, RefuseACacheInUse) {
    const std::string cache = place_ / "moved";
    place_.link("link", "moved");
    struct Case {
        const char* description;
        platform::RunningProcess process;
        platform::ProcessStart start;
        bool isUse = true;
    };
    const std::vector<Case> cases{
        {"runs from it",
         {.pid = 7, .executable = cache + "/archive-v0/x/bin/tool", .files = {}},
         {}},
        {"has a file of it", {.pid = 7, .executable = "", .files = {cache + "/git-v0/x"}}, {}},
        {"was started with it", {}, {.pid = 7, .arguments = {"python", cache + "/x/bin/tool"}}},
        {"was started with it by another path",
         {},
         {.pid = 7, .arguments = {"python", "--script=" + place_ / "link/x"}}},
        {"its environment of Python",
         {},
         {.pid = 7, .environment = {"VIRTUAL_ENV=" + cache + "/environments-v2/x"}}},
        {"its search path", {}, {.pid = 7, .environment = {"PATH=/bin:" + cache + "/x/bin"}}},
        {"works in it", {}, {.pid = 7, .workingFolder = cache + "/archive-v0"}},
        {"looks at it", {}, {.pid = 7, .arguments = {"ls", cache, cache + "/"}}, false},
        {"where uv's cache is", {}, {.pid = 7, .environment = {"UV_CACHE_DIR=" + cache}}, false},
        {"another folder", {.pid = 7, .executable = cache + "2/tool", .files = {cache}}, {}, false},
        {"this process",
         {.pid = platform::currentProcessID(), .executable = cache + "/x", .files = {}},
         {},
         false},
    };
    for (const Case& one : cases) {
        FakeRunningProcesses processes;
        processes.answer->processes = {one.process};
        processes.started = {one.start};
        const auto user = UVCacheFolder::userOf(place_ / "link", cache, processes);
        ASSERT_TRUE(user) << one.description;
        EXPECT_EQ(user->has_value(), one.isUse) << one.description;
    }

    const UVCachePruneProposal proposal = propose();
    const auto statusWith = [&](const platform::RunningProcesses& processes) {
        UVCachePruneRunner runner = this->runner();
        runner.processes = &processes;
        return runner.run(proposal, approve(proposal)).status;
    };
    FakeRunningProcesses processes;
    processes.answer->processes = {cases[0].process};
    EXPECT_EQ(statusWith(processes),
              Status{Refused{"A program runs from the uv cache or has something in it open (tool, "
                             "process 7). uv could remove what it still needs, so Tidyro did not "
                             "run uv."}});
    const Status unknown{
        Refused{"Tidyro could not tell whether this cache is in use, so it did not run uv."}};
    processes.answer = std::unexpected(SystemError{EACCES});
    EXPECT_EQ(statusWith(processes), unknown);

    // uv's own lock, as one uv has it alone or several have it together.
    for (const int kind : {LOCK_EX, LOCK_SH}) {
        const int lock = ::open((cache + "/.lock").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::flock(lock, kind), 0);
        const Stopwatch watch;
        EXPECT_EQ(run(proposal).status,
                  Status{Refused{"Another uv is using this cache at the moment, so Tidyro did not "
                                 "run uv. Try again when it has finished."}});
        EXPECT_LT(watch.seconds(), 1);
        ::close(lock);
    }
    std::filesystem::remove(cache + "/.lock");
    place_.folder("moved/.lock"); // no file that can be locked
    EXPECT_NE(run(proposal).status, Status{Completed{}});
    EXPECT_FALSE(hasRun());
    std::filesystem::remove(cache + "/.lock");
    EXPECT_EQ(run(proposal).status, Status{Completed{}});
}

TEST_F(UVCachePrunes, SeeWhatRunsFromTheCache) {
    const testing::AllSeenProcesses processes;
    const std::string cache = place_ / "moved";
    const auto isUsed = [&] { return UVCacheFolder::userOf(cache, cache, processes)->has_value(); };
    EXPECT_FALSE(isUsed());
    // As uv starts tools: their script lies in the cache, their interpreter elsewhere.
    place_.file("moved/archive-v0/used/tool", "#!/bin/sh\nread line\n");
    place_.permissions("moved/archive-v0/used/tool", 0755);
    const std::string tool = cache + "/archive-v0/used/tool";
    std::array<int, 2> input{};
    ASSERT_EQ(::pipe(input.data()), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(input[0], STDIN_FILENO);
        ::execl(tool.c_str(), "tool", nullptr);
        ::_exit(1);
    }
    for (const Stopwatch watch; !isUsed() && watch.seconds() < 5;) ::usleep(10'000);
    EXPECT_TRUE(isUsed());
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    ::close(input[0]);
    ::close(input[1]);
    EXPECT_FALSE(isUsed());
}

TEST_F(UVCachePrunes, TellHowUvEnded) {
    behave("failing");
    UVCachePruneProposal proposal = propose();
    UVCachePruneOutcome outcome = run(proposal);
    EXPECT_EQ(outcome.status, Status{Failed{"uv exited with status 2"}});
    EXPECT_EQ(outcome.cacheAllocatedBytesAfter, outcome.cacheAllocatedBytesBefore);
    EXPECT_EQ(record().result, "failed: uv exited with status 2: error: the cache is broken\n");
    std::filesystem::remove_all(place_ / "log");

    behave("slow");
    UVCachePruneRunner impatient = runner();
    impatient.timeout = 0.2;
    outcome = impatient.run(proposal, approve(proposal));
    EXPECT_EQ(outcome.status, Status{TimedOut{}});
    EXPECT_EQ(outcome.cacheAllocatedBytesAfter, outcome.cacheAllocatedBytesBefore);
    EXPECT_GE(outcome.duration, 0.2);
    EXPECT_EQ(record().result, "timedOut");
    std::filesystem::remove_all(place_ / "log");

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(run(proposal, stopped.get_token()).status, Status{Cancelled{}});
    EXPECT_FALSE(std::filesystem::exists(place_ / "log"));

    // What was a program when it was checked.
    place_.file("uv", "\x7F"
                      "ELF, and nothing behind it");
    place_.permissions("uv", 0755);
    const auto seen = platform::fileMetadata(place_ / "uv").value();
    proposal.executable.inode = seen.identity.inode;
    proposal.executable.byteCount = seen.byteCount;
    proposal.executable.modificationSeconds =
        static_cast<std::int64_t>(std::floor(seen.modified->secondsSince1970()));
    outcome = run(proposal);
    EXPECT_EQ(outcome.status, Status{Failed{"uv could not be started."}});
    EXPECT_EQ(outcome.cacheAllocatedBytesAfter, std::nullopt);
    EXPECT_EQ(record().result, "failed: uv could not be started.");
}

TEST_F(UVCachePrunes, RefuseAMountThatForbidsPrograms) {
#ifdef __linux__
    place_.folder("mounted");
    const auto told = testing::inMountNamespace([&]() -> std::string {
        const std::string folder = place_ / "mounted";
        if (::mount("none", folder.c_str(), "tmpfs", 0, nullptr) != 0) return "unmounted";
        std::filesystem::copy_file(TIDYRO_ACTOR, folder + "/uv");
        const auto validate = [&] {
            return ToolExecutableLocator::validateUV(FileURL::file(folder + "/uv"), true, home());
        };
        UVCachePruneProposal proposal = propose();
        proposal.executable = validate().value();
        if (::mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_NOEXEC, nullptr) != 0) {
            return "not remounted";
        }
        if (validate()) return "was taken for a program";
        const Status status = run(proposal).status;
        return status == Status{Failed{"uv could not be started."}} ? "refused" : "ran";
    });
    if (!told) GTEST_SKIP() << "may not mount";
    EXPECT_EQ(told, "refused");
    EXPECT_FALSE(hasRun());
#endif
}

TEST_F(UVCachePrunes, AreCancelledAtAnyMoment) {
    behave("slow");
    std::mt19937 random(12);
    std::uniform_int_distribution<int> microseconds(0, 15'000);
    constexpr int rounds = 20;
    for (int round = 0; round < rounds; ++round) {
        const UVCachePruneProposal proposal = propose();
        std::stop_source cancel;
        const int wait = microseconds(random);
        std::jthread canceller([&cancel, wait] {
            ::usleep(static_cast<useconds_t>(wait));
            cancel.request_stop();
        });
        EXPECT_EQ(run(proposal, cancel.get_token()).status, Status{Cancelled{}});
        canceller.join();
        EXPECT_TRUE(runner().log.interrupted().empty());
        EXPECT_TRUE(hasNoChild());
    }
}

TEST_F(UVCachePrunes, AreToldWhenTidyroWasEndedMeanwhile) {
    behave("slow");
    const UVCachePruneProposal proposal = propose();
    const pid_t tidyro = ::fork();
    if (tidyro == 0) {
        static_cast<void>(run(proposal));
        ::_exit(1);
    }
    for (const Stopwatch watch; !hasRun() && watch.seconds() < 10;) ::usleep(5'000);
    ASSERT_TRUE(hasRun());
    EXPECT_TRUE(runner().log.interrupted().empty()) << "it still runs";
    ::kill(tidyro, SIGKILL);
    ::waitpid(tidyro, nullptr, 0);
    const auto interrupted = runner().log.interrupted();
    ASSERT_EQ(interrupted.size(), 1U);
    EXPECT_EQ(interrupted[0].command, "uv cache prune");
    EXPECT_LT(Timestamp::now().secondsSince1970() - interrupted[0].startedAt.secondsSince1970(),
              60);
    // uv is ended without Tidyro as well.
    for (const Stopwatch watch; !hasNoChild() && watch.seconds() < 10;) ::usleep(5'000);
}

} // namespace
} // namespace tidyro
