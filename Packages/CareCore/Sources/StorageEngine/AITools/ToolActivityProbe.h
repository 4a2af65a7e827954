#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "Base/Timestamp.h"
#include "Platform/Processes/RunningProcesses.h"

namespace tidyro {

/// What the processes of the person had in use at one moment. Absolute paths.
struct ToolActivitySnapshot {
    using Paths = std::set<std::string, std::less<>>;

    Paths openFilePaths = {}; ///< open or mapped
    Paths workingDirectories = {};
    Paths executablePaths = {};
    std::size_t unreadableProcessCount = 0;
    /// Some processes may not be seen at all, or none could be read. Then nothing is known to be
    /// free.
    bool isIncomplete = false;

    /// Whether anything is in use at the path or below it.
    [[nodiscard]] bool isActive(std::string_view inside) const;
    /// Whether a process works in the folder or below it.
    [[nodiscard]] bool isWorkedIn(std::string_view folder) const;
    /// Only what lies at or below the roots.
    [[nodiscard]] ToolActivitySnapshot restricted(std::span<const std::string> to) const;
    /// Tells of what lies below the real path of a folder by its written path as well: processes
    /// have their files by real paths, and a home may lie behind a link.
    void addWritten(const std::string& folder);
    /// Whether a program runs whose path holds one of the markers.
    [[nodiscard]] bool isRunning(std::span<const std::string> markers) const;

    bool operator==(const ToolActivitySnapshot&) const = default;
};

/// Says what is in use. Any thread may ask.
class ToolActivityProviding {
  public:
    virtual ~ToolActivityProviding() = default;
    [[nodiscard]] virtual ToolActivitySnapshot snapshot() = 0;
};

/// Asks the processes of the system, each time anew.
class LiveToolActivityProvider final : public ToolActivityProviding {
  public:
    explicit LiveToolActivityProvider(const platform::RunningProcesses& processes)
        : processes_(processes) {}
    [[nodiscard]] ToolActivitySnapshot snapshot() override { return capture(); }
    [[nodiscard]] ToolActivitySnapshot capture() const;

  private:
    const platform::RunningProcesses& processes_;
};

/// Always says the same, for tests and previews.
class StaticToolActivityProvider final : public ToolActivityProviding {
  public:
    explicit StaticToolActivityProvider(ToolActivitySnapshot fixed) : value(std::move(fixed)) {}
    [[nodiscard]] ToolActivitySnapshot snapshot() override { return value; }

    ToolActivitySnapshot value;
};

/// Lets audits that follow each other share one look at the processes. A second call waits for one
/// that is under way.
class CachedToolActivityProvider final : public ToolActivityProviding {
  public:
    static constexpr double maxAge = 2; ///< seconds

    explicit CachedToolActivityProvider(ToolActivityProviding& base,
                                        std::function<Timestamp()> now = Timestamp::now)
        : base_(base), now_(std::move(now)) {}
    [[nodiscard]] ToolActivitySnapshot snapshot() override;

  private:
    ToolActivityProviding& base_;
    const std::function<Timestamp()> now_;
    std::mutex mutex_;
    ToolActivitySnapshot cached_;
    std::optional<Timestamp> cachedAt_; ///< none before the first look
};

} // namespace tidyro
