#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Base/Cancellation.h"
#include "Base/FileURL.h"
#include "Platform/Processes/ChildProcess.h"
#include "Platform/Processes/OpenProgram.h"

/// Running outside programs under bounds that no stuck, swapped or chatty one can break.
///
///     const auto uv = ToolExecutableLocator::findUV(home);
///     const auto program = uv ? uv->open() : nullptr;   // none: it is not what was checked
///     if (program == nullptr) return std::nullopt;
///     const BoundedProcess version{.executable = uv->url,
///                                  .arguments = {"--version"},
///                                  .environment = BoundedProcess::defaultEnvironment(home),
///                                  .currentDirectory = scratch.url(),
///                                  .timeout = 5,
///                                  .outputLimit = 4'096,
///                                  .terminationGrace = 5,
///                                  .program = program};
///     const auto output = version.run(token);
namespace tidyro {

/// One run of a program, as a value. The program gets nothing of this process but what is said
/// here: no variable, no descriptor, no terminal. When the run returns, no descriptor of ours is
/// left, and neither the program nor anything that it started. `ChildProcess` tells what no system
/// lets us end.
///
/// A run is bounded by `timeout` and `terminationGrace` together, and some moments for the system
/// to end what has to be ended.
struct BoundedProcess {
    FileURL executable; ///< also the first argument that the program sees
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment; ///< all of it
    FileURL currentDirectory;
    /// The bytes that the program reads; without any it reads "/dev/null".
    std::optional<std::string> standardInput = std::nullopt;
    double timeout;          ///< seconds until the program is asked to end
    std::size_t outputLimit; ///< bytes kept of each of the two streams; the others are dropped
    double terminationGrace; ///< seconds between that and its end by force
    /// The file that was checked. When it is given, it runs, whatever lies at `executable` by now.
    std::shared_ptr<const platform::OpenProgram> program = nullptr;

    struct Output {
        /// As the program gave it, or 128 and the number of the signal that ended it.
        std::int32_t exitCode = 0;
        std::string standardOutput = {};
        std::string standardError = {};
        bool timedOut = false;
        bool cancelled = false;
        /// More came than was kept. Also when the program had ended, and something that it had
        /// started kept the stream open for longer than `terminationGrace`.
        bool standardOutputTruncated = false;
        bool standardErrorTruncated = false;

        bool operator==(const Output&) const = default;
    };

    /// Set by whoever cancels a run, read by the run. Any thread may use it.
    class StopFlag {
      public:
        StopFlag();
        void set();
        [[nodiscard]] bool value() const;
        /// Ends the run's wait at once. None when the system has no descriptor left for it; then
        /// the flag has to be asked from time to time.
        [[nodiscard]] const platform::WakeSignal* wake() const { return wake_ ? &*wake_ : nullptr; }

      private:
        mutable std::mutex lock_;
        bool value_ = false;
        std::optional<platform::WakeSignal> wake_;
    };

    /// Keeps the first bytes of a stream. Any thread may use it.
    class BoundedCapture {
      public:
        explicit BoundedCapture(std::size_t limit) : limit_(limit) {}
        void append(std::span<const std::byte> bytes);
        [[nodiscard]] bool dropped() const;
        [[nodiscard]] std::string takeData();

      private:
        mutable std::mutex lock_;
        std::size_t limit_;
        std::string data_;
        bool dropped_ = false;
    };

    /// Runs on a thread of its own, named "Tidyro.BoundedProcess", and returns when the run is
    /// over. None when the program could not be started. A token that asks already starts nothing.
    [[nodiscard]] std::optional<Output> run(const CancelToken& token = {}) const;

    /// The same on the calling thread. `isCancelled` is asked at least twenty times a second.
    [[nodiscard]] std::optional<Output>
    runSynchronously(const std::function<bool()>& isCancelled = {}) const;

    /// The variables for programs that need none in particular.
    [[nodiscard]] static std::map<std::string, std::string> defaultEnvironment(const FileURL& home);
};

} // namespace tidyro
