#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/AITools/Cleanup/AIToolCleanupRunner.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::testing {

/// Made homes of two tools, seen a year later, and all that cleans them.
struct ToolHomes {
    TemporaryFolder place;
    platform::testing::FakeVolumes volumes;
    platform::testing::FakeRunningProcesses fakeProcesses;
    platform::testing::FakeRunningApplications applications;
    const platform::RunningProcesses* processes = &fakeProcesses;
    Timestamp now = Timestamp::now().adding(365 * 86'400.0);
    /// What is in use is asked anew for each item, so that a test need not wait for that.
    std::function<double()> steadySeconds = [seconds = 0.0]() mutable { return seconds += 10; };
    AIToolLastLook::Veto veto = AIToolVeto::reason;

    static inline const std::string scratch = "home/.codex/.tmp/git-aBcDeF/";

    ToolHomes() : volumes(platform::testing::FakeVolumes::withOneAt(place.path())) {
        place.file("home/.codex/config.toml", "model = 1");
        place.file("home/.codex/auth.json", "{\"token\":1}");
        place.file("home/.codex/sessions/2026/rollout.jsonl", "{\"role\":\"user\"}");
        place.file(scratch + "objects/aa/one", "first scratch");
        place.file(scratch + "objects/bb/two", "second scratch");
        place.file(scratch + "head", "third scratch");
        place.file("home/.codex/cache/codex_apps_tools/list.json", "{\"tools\":[]}");
        place.file("home/.codex/generated_images/thread/cat.png", "an image");
        place.file("home/.config/Cursor/Preferences", "{}");
        place.file("home/.config/Cursor/User/settings.json", "{}");
        place.file("home/.config/Cursor/Cache/Cache_Data/0123456789abcdef_0", "a page");
        place.file("home/.config/Cursor/Crashpad/completed/report.dmp", "a crash");
        place.folder("home/.local/share");
    }

    [[nodiscard]] FileURL userHome() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] std::string contents(const std::string& name) const {
        std::ifstream file(place / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// The contents of every file below a folder by their paths in it.
    [[nodiscard]] std::map<std::string, std::string> files(const std::string& folder) const {
        std::map<std::string, std::string> all;
        std::error_code none;
        const std::string root = place / folder;
        for (const auto& each : std::filesystem::recursive_directory_iterator(root, none)) {
            if (!each.is_regular_file()) continue;
            const std::string name = each.path().string().substr(root.size() + 1);
            all[name] = contents(folder + "/" + name);
        }
        return all;
    }
    [[nodiscard]] std::vector<AIToolHome> homes() const {
        std::vector<AIToolHome> all;
        const AIToolHomeDiscovery discovery{.userHome = userHome()};
        for (const auto& found : discovery.discover(allCases<AIToolID>())) {
            if (found.result) all.push_back(*found.result);
        }
        return all;
    }

    /// What one run of the program has.
    struct Program {
        std::vector<AIToolHome> homes;
        LiveToolActivityProvider activity;
        LocalRuntimeSafetyContextProvider contexts;
        AIToolAuditor auditor;
        AIToolCleanupChecks checks;
        CleanupSession session;
        AIToolCleanupRunner runner;

        explicit Program(ToolHomes& made)
            : homes(made.homes()),
              activity(*made.processes),
              contexts(made.userHome(),
                       {.volumes = made.volumes,
                        .processes = *made.processes,
                        .applications = made.applications,
                        .clock = [&made] { return made.now; }},
                       {}),
              auditor({.activityProvider = activity,
                       .volumes = made.volumes,
                       .freshContext = [this] { return contexts.freshContext(); }}),
              checks({.homes = homes,
                      .activityProvider = activity,
                      .volumes = made.volumes,
                      .freshContext = [this] { return contexts.freshContext(); },
                      .veto = made.veto,
                      .clock = [&made] { return made.now; },
                      .steadySeconds = made.steadySeconds}),
              session(sessionOptions(made)),
              runner({.auditor = auditor,
                      .checks = checks,
                      .carryOut = AIToolCleanupRunner::through(session)}) {}

        [[nodiscard]] CleanupSession::Options sessionOptions(ToolHomes& made) {
            CleanupSession::Options options;
            options.home = made.userHome();
            options.support = FileURL::folder(made.place / "home/.local/share/Harborline");
            options.aiToolRules = &checks;
            options.aiTools = &checks;
            options.machine.volumes = &made.volumes;
            options.machine.processes = made.processes;
            options.machine.applications = &made.applications;
            options.machine.clock = [&made] { return made.now; };
            options.machine.trashHome = FileURL::folder(made.place / "home/.local/share/Trash");
            return options;
        }
        [[nodiscard]] AIToolAuditReport report(std::size_t home, Timestamp at) const {
            return auditor.audit(homes.at(home), at).value(); // a failure fails the test
        }
        [[nodiscard]] std::expected<AIToolCleanupOutcome, AIToolCleanupError>
        execute(const AIToolCleanupManifest& manifest, Timestamp at) {
            const auto approval = AIToolCleanupApproval::approve(manifest, manifest.createdAt);
            return runner.execute(
                {.manifest = manifest, .approval = approval, .toolBytesBefore = 1'000, .at = at});
        }
    };
};

} // namespace tidyro::testing
