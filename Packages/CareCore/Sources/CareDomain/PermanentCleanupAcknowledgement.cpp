#include "CareDomain/PermanentCleanupAcknowledgement.h"

#include <fmt/format.h>

namespace tidyro {

std::string PermanentCleanupAcknowledgement::destructiveActionTitle(std::int64_t itemCount,
                                                                    const LocaleText& locale) {
    if (itemCount == 1) return "Permanently delete 1 item";
    const auto bits = static_cast<std::uint64_t>(itemCount);
    return fmt::format("Permanently delete {}{} items", itemCount < 0 ? "-" : "",
                       locale.count(itemCount < 0 ? 0 - bits : bits));
}

} // namespace tidyro
