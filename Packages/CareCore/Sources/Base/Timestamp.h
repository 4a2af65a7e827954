#pragma once

#include <compare>
#include <cstdint>

namespace tidyro {

/// A moment, in seconds since 2001-01-01 00:00 UTC as a double. That is the number that JSON keeps,
/// so a moment read back from a file equals the one that was written. Near the present its
/// resolution is about a tenth of a microsecond.
class Timestamp {
  public:
    /// 2001-01-01 00:00 UTC in seconds since 1970-01-01 00:00 UTC.
    static constexpr double referenceSince1970 = 978'307'200.0;

    constexpr Timestamp() = default;

    [[nodiscard]] static constexpr Timestamp sinceReference(double seconds) noexcept {
        Timestamp moment;
        moment.seconds_ = seconds;
        return moment;
    }
    [[nodiscard]] static constexpr Timestamp since1970(double seconds) noexcept {
        return sinceReference(seconds - referenceSince1970);
    }
    [[nodiscard]] static constexpr Timestamp since1970(std::int64_t seconds,
                                                       std::uint32_t nanoseconds) noexcept {
        return since1970(static_cast<double>(seconds) +
                         static_cast<double>(nanoseconds) / 1'000'000'000.0);
    }
    /// The system's clock, which may be set back: for dates, never for durations.
    [[nodiscard]] static Timestamp now() noexcept;

    [[nodiscard]] constexpr double secondsSinceReference() const noexcept { return seconds_; }
    [[nodiscard]] constexpr double secondsSince1970() const noexcept {
        return seconds_ + referenceSince1970;
    }
    /// Near the present good to a tenth of a microsecond.
    [[nodiscard]] constexpr std::int64_t nanosecondsSince1970() const noexcept {
        return static_cast<std::int64_t>(secondsSince1970() * 1e9);
    }
    [[nodiscard]] constexpr Timestamp adding(double seconds) const noexcept {
        return sinceReference(seconds_ + seconds);
    }

    friend constexpr auto operator<=>(Timestamp, Timestamp) = default;

  private:
    double seconds_ = 0;
};

/// A moment as compact columns keep it: whole seconds since 1970 in 32 unsigned bits, good until
/// 2106. A moment outside that range becomes its nearer end.
[[nodiscard]] std::uint32_t compactSeconds(std::int64_t secondsSince1970) noexcept;

/// A moment as the system tells it, in one number, good from 1678 until 2262. A moment outside that
/// range becomes its nearer end.
[[nodiscard]] std::int64_t nanosecondsSince1970(std::int64_t seconds,
                                                std::int64_t nanoseconds) noexcept;

} // namespace tidyro
