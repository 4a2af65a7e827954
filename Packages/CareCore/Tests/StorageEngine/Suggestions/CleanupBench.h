#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Suggestions/SmartCleanupScan.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {

constexpr double secondsOfDay = 86'400;

/// The real processes, as though none could be hidden: tests run in containers, too.
class SeenProcesses final : public platform::RunningProcesses {
  public:
    [[nodiscard]] std::expected<platform::ProcessActivity, SystemError> activity() const override {
        auto seen = platform::LiveRunningProcesses().activity();
        if (seen) seen->areOthersHidden = false;
        return seen;
    }
    [[nodiscard]] std::expected<std::vector<platform::ProcessStart>, SystemError>
    starts() const override {
        return platform::LiveRunningProcesses().starts();
    }
};

/// The machine around a home: real processes unless a test chooses them, chosen volumes and
/// applications.
class CleanupBench {
  public:
    testing::TemporaryFolder place;
    FileURL home = FileURL::folder(place / "home");
    platform::testing::FakeVolumes volumes =
        platform::testing::FakeVolumes::withOneAt(place.path());
    platform::testing::FakeRunningApplications applications;
    SeenProcesses seenProcesses;
    const platform::RunningProcesses* processes = &seenProcesses;
    /// Years ahead: what a test makes was created long ago then, and not unpacked lately.
    Timestamp now = Timestamp::now().adding(3'000 * secondsOfDay);

    CleanupBench() {
        place.folder("home");
        applications.answer = std::vector<platform::RunningApplication>{
            {.bundleIdentifier = {}, .executable = "/opt/Cursor/cursor", .name = "cursor"}};
    }
    void file(const std::string& name, double daysOld, std::size_t bytes,
              const std::string& beginning = {}) const {
        place.file("home/" + name, beginning + std::string(bytes - beginning.size(), 'x'));
        const auto then =
            static_cast<std::int64_t>(now.secondsSince1970() - daysOld * secondsOfDay) - 60;
        place.times("home/" + name, then, then);
    }
    std::expected<SmartCleanupReport, SmartCleanupScan::ScanError>
    scan(SmartCleanupScan::Options options, const CancelToken& cancel = {},
         const SmartCleanupScan::ProgressHandler& progress = nullptr) const {
        LocalRuntimeSafetyContextProvider contexts(
            home, {.volumes = volumes, .processes = *processes, .applications = applications}, {});
        options.secondsBetweenLooks = 0;
        options.clock = [this] { return now; };
        return SmartCleanupScan(home, contexts, volumes, std::move(options)).run(progress, cancel);
    }
    [[nodiscard]] std::string below(const FileURL& url) const {
        return std::string(path::below(url.path(), home.path()));
    }
};

} // namespace tidyro
