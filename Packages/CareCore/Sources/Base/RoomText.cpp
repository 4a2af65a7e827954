#include "Base/RoomText.h"

#include <array>

#include <fmt/format.h>

namespace tidyro {

namespace {

struct Unit {
    std::string_view name;
    std::uint64_t size;
    int decimals;
};

constexpr std::array<Unit, 6> units{{{"KB", 1'000, 0},
                                     {"MB", 1'000'000, 1},
                                     {"GB", 1'000'000'000, 2},
                                     {"TB", 1'000'000'000'000, 2},
                                     {"PB", 1'000'000'000'000'000, 2},
                                     {"EB", 1'000'000'000'000'000'000, 2}}};

constexpr std::uint64_t powerOfTen(int exponent) {
    std::uint64_t power = 1;
    for (int i = 0; i < exponent; ++i) power *= 10;
    return power;
}

/// `count` in steps of the unit's last decimal, rounded half up.
std::uint64_t inSteps(std::uint64_t count, const Unit& unit) {
    const std::uint64_t step = unit.size / powerOfTen(unit.decimals);
    const std::uint64_t rest = count % step;
    return count / step + (rest >= step - rest ? 1 : 0);
}

} // namespace

std::string RoomText::bytes(std::uint64_t count, const LocaleText& locale) {
    if (count == 0) return "Zero KB";
    if (count < units.front().size)
        return fmt::format("{} {}", count, count == 1 ? "byte" : "bytes");

    std::size_t chosen = 0;
    while (chosen + 1 < units.size() &&
           inSteps(count, units[chosen]) >= 1'000 * powerOfTen(units[chosen].decimals)) {
        ++chosen;
    }
    const Unit& unit = units[chosen];
    const std::uint64_t steps = inSteps(count, unit);
    const std::uint64_t perUnit = powerOfTen(unit.decimals);
    std::string text = locale.count(steps / perUnit);
    std::string decimals = fmt::format("{:0{}}", steps % perUnit, unit.decimals);
    while (decimals.ends_with('0')) decimals.pop_back();
    if (!decimals.empty()) text += locale.rules().decimalPoint + decimals;
    return fmt::format("{} {}", text, unit.name);
}

std::string RoomText::counted(std::uint64_t count, std::string_view one, std::string_view many,
                              const LocaleText& locale) {
    return fmt::format("{} {}", locale.count(count), count == 1 ? one : many);
}

} // namespace tidyro
