#pragma once

#include "Base/Timestamp.h"

namespace tidyro {

/// A moment as a person reads it from a calendar and a clock.
struct DateComponents {
    int year;
    int month;  ///< 1...12
    int day;    ///< 1...31
    int hour;   ///< 0...23
    int minute; ///< 0...59
    int second; ///< 0...60; 60 in a leap second
    bool operator==(const DateComponents&) const = default;
};

/// The Gregorian calendar in one time zone.
class Calendar {
  public:
    /// The zone that the person's system is set to.
    [[nodiscard]] static Calendar current() noexcept { return Calendar(Zone::current); }
    [[nodiscard]] static Calendar utc() noexcept { return Calendar(Zone::utc); }

    [[nodiscard]] DateComponents components(Timestamp moment) const noexcept;

    /// The first moment of a day. It is later than midnight when clocks are set forward at
    /// midnight. A day that the zone left out begins when the next one does.
    [[nodiscard]] Timestamp beginningOfDay(int year, int month, int day) const noexcept;

  private:
    enum class Zone { current, utc };

    explicit Calendar(Zone zone) noexcept : zone_(zone) {}

    Zone zone_;
};

} // namespace tidyro
