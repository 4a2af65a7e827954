// The whole way of homes of two tools, one of which runs: found, audited, cleaned and put back by
// an ordinary user on the running system, and killed on the way.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <csignal>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/AllSeenProcesses.h"
#include "Support/OtherCircumstances.h"
#include "ToolHomes.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using testing::ToolHomes;
using Mode = CleanupExecutionMode;

/// A program that runs for as long as this lives.
class StandIn {
  public:
    explicit StandIn(const std::string& program) : pid_(::fork()) {
        if (pid_ == 0) {
            ::execl(program.c_str(), program.c_str(), "600", nullptr);
            ::_exit(127);
        }
        std::error_code none;
        const std::string link = "/proc/" + std::to_string(pid_) + "/exe";
        for (int i = 0; i < 1'000 && fs::read_symlink(link, none) != program; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~StandIn() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

  private:
    pid_t pid_;
};

struct Way {
    testing::AllSeenProcesses processes;
    ToolHomes made;
    std::map<std::string, std::string> before;

    explicit Way(int scratchFiles) {
        made.processes = &processes;
        made.steadySeconds = nullptr; // as the program has it
        for (int i = 0; i < scratchFiles; ++i) {
            made.place.file(ToolHomes::scratch + "objects/" + std::to_string(i % 16) + "/" +
                                std::to_string(i),
                            "scratch " + std::to_string(i));
        }
        for (int i = 0; i < scratchFiles / 4; ++i) {
            made.place.file("home/.config/Cursor/Crashpad/completed/" + std::to_string(i) + ".dmp",
                            "crash " + std::to_string(i));
        }
        made.place.folder("bin");
        fs::copy_file("/bin/sleep", made.place / "bin/cursor");
        before = homeFiles();
    }
    /// Without what Tidyro itself keeps.
    [[nodiscard]] std::map<std::string, std::string> homeFiles() const {
        std::map<std::string, std::string> all = made.files("home");
        std::erase_if(all, [](const auto& file) { return file.first.starts_with(".local/"); });
        return all;
    }

    /// From discovery to the receipts. One text a home.
    std::string clean(Mode mode) {
        std::string told;
        ToolHomes::Program program(made);
        std::vector<AIToolAuditReport> reports;
        for (std::size_t i = 0; i < program.homes.size(); ++i) {
            reports.push_back(program.report(i, made.now));
        }
        const auto batch = AIToolCleanupBatch::recommended(
            {.reports = reports, .selections = {}, .mode = mode, .now = made.now});
        for (const AIToolCleanupManifest& manifest : batch.manifests) {
            const auto outcome = program.execute(manifest, made.now);
            told += std::string(rawValue(manifest.tool)) + ": ";
            if (!outcome) {
                told += std::string(description(outcome.error())) + "\n";
                continue;
            }
            told += std::to_string(outcome->completedCount()) + " of " +
                    std::to_string(outcome->lines.size()) + ", " +
                    std::to_string(outcome->removedEmptyFolderCount) + " folders" +
                    outcome->stopReason.value_or("") + "\n";
        }
        return told;
    }

    /// Until a cleanup is written down as begun.
    void awaitJournal(double maxSeconds) const {
        const std::string intents = made.place / "home/.local/share/Harborline/intents";
        std::error_code none;
        for (double waited = 0; waited < maxSeconds; waited += 0.001) {
            for (const auto& each : fs::directory_iterator(intents, none)) {
                if (each.path().extension() == ".json") return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    /// Puts everything back that any receipt tells of.
    std::string putBack() {
        ToolHomes::Program program(made);
        const auto receipts = program.session.receipts();
        if (!receipts) return receipts.error().description();
        for (const CleanupReceipt& receipt : *receipts) {
            const auto back = program.session.putBack(receipt.id);
            if (!back) return back.error().description();
            for (const auto& item : *back) {
                if (!item.done) return item.url.path() + ": " + item.done.error().description();
            }
        }
        return {};
    }

    /// What was removed for good by any receipt.
    [[nodiscard]] std::set<std::string> removed() {
        std::set<std::string> all;
        ToolHomes::Program program(made);
        const auto receipts = program.session.receipts();
        if (!receipts) return all;
        for (const CleanupReceipt& receipt : *receipts) {
            for (const CleanupReceiptEntry& entry : receipt.entries) {
                if (entry.disposition == CleanupMoveDisposition::permanentlyRemoved) {
                    all.insert(entry.originalURL.path().substr((made.place / "home/").size()));
                }
            }
        }
        return all;
    }

    /// Settles what a killed run left, and tells what is not accounted for.
    std::string settle(int& interrupted) {
        ToolHomes::Program program(made);
        const auto settled = program.session.settle();
        if (!settled) return "settling: " + settled.error().description();
        interrupted += settled->cleanups.empty() ? 0 : 1;
        for (const SettledCleanup& cleanup : settled->cleanups) {
            if (!cleanup.isAccountedFor) return "not every item is accounted for";
        }
        const auto rest = program.session.interrupted();
        if (!rest) return "interrupted: " + rest.error().description();
        return rest->cleanups.empty() ? "" : "a cleanup is still open";
    }
};

/// What is wrong after a run that was killed; empty for nothing.
std::string faultsAfterKill(Way& way, Mode mode, int& interrupted) {
    if (std::string fault = way.settle(interrupted); !fault.empty()) return fault;
    if (std::string fault = way.putBack(); !fault.empty()) return "put back: " + fault;
    auto after = way.homeFiles();
    const std::set<std::string> removed = way.removed();
    if (mode != Mode::permanent && !removed.empty()) return "something was removed for good";
    for (const auto& [name, contents] : way.before) {
        const auto found = after.find(name);
        if (found == after.end()) {
            if (!removed.contains(name)) return "lost: " + name;
            continue;
        }
        if (found->second != contents) return "changed: " + name;
        after.erase(found);
    }
    return after.empty() ? "" : "left over: " + after.begin()->first;
}

int killCount() {
    const char* wanted = std::getenv("TIDYRO_TOOL_KILLS"); // NOLINT
    return wanted != nullptr ? std::atoi(wanted) : 2;      // NOLINT
}

TEST(AIToolCleanupWay, LeadsFromHomesToReceiptsAndBackWhileAToolRuns) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const std::string told = testing::asOrdinaryUser([] {
        Way way(32);
        const StandIn cursor(way.made.place / "bin/cursor");
        std::string text = way.clean(Mode::recoverable);
        // The crash reports may go while it runs, its web cache may not.
        for (const std::string name :
             {".config/Cursor/Cache/Cache_Data/0123456789abcdef_0", ".codex/auth.json",
              ".codex/sessions/2026/rollout.jsonl", ".codex/generated_images/thread/cat.png",
              ".config/Cursor/User/settings.json"}) {
            if (way.made.contents("home/" + name) != way.before[name]) text += "gone: " + name;
        }
        text += std::to_string(way.before.size() - way.homeFiles().size()) + " gone\n";
        text += way.putBack();
        return text + (way.homeFiles() == way.before ? "all back" : "not all back");
    });
    EXPECT_EQ(told, "codex: 36 of 36, 21 folders\ncursor: 9 of 9, 0 folders\n45 gone\nall back");
}

TEST(AIToolCleanupWay, LosesNothingWhenItIsKilledAtAnyMoment) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const std::string told = testing::asOrdinaryUser([] {
        std::mt19937 random(std::random_device{}()); // NOLINT
        double longest = 0;                          // of a run that nobody killed, in seconds
        int killed = 0;
        int interrupted = 0; ///< while a cleanup was open
        const int wanted = killCount();
        for (int run = 0; killed < wanted; ++run) {
            if (run > 4 * wanted + 8) return std::string("runs end before they are killed");
            const Mode mode = run % 2 == 0 ? Mode::recoverable : Mode::permanent;
            Way way(wanted > 10 ? 96 : 32); // a test that is asked for may take its time
            const StandIn cursor(way.made.place / "bin/cursor");
            const auto begun = std::chrono::steady_clock::now();
            const pid_t child = ::fork();
            if (child == 0) {
                static_cast<void>(way.clean(mode));
                ::_exit(0);
            }
            if (run >= 2) { // the first two tell how long one takes
                // Most of the time goes into looking, so two of three die while items go.
                if (run % 3 != 0) way.awaitJournal(longest);
                std::uniform_real_distribution<double> moments(0, run % 3 != 0 ? 0.1 : longest);
                std::this_thread::sleep_for(std::chrono::duration<double>(moments(random)));
                ::kill(child, SIGKILL);
            }
            int status = 0;
            ::waitpid(child, &status, 0);
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
            if (run < 2) longest = std::max(longest, took.count());
            if (WIFSIGNALED(status)) ++killed;
            const std::string fault = faultsAfterKill(way, mode, interrupted);
            if (!fault.empty()) {
                return std::string(rawValue(mode)) + " after " + std::to_string(took.count()) +
                       " s: " + fault;
            }
        }
        return "nothing is lost; " + std::to_string(killed) + " killed, " +
               std::to_string(interrupted) + " of them within a cleanup";
    });
    EXPECT_TRUE(told.starts_with("nothing is lost")) << told;
    RecordProperty("kills", told);
}

} // namespace
} // namespace tidyro
