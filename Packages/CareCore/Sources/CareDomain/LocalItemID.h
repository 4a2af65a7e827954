#pragma once

#include <compare>
#include <string>

#include "Base/Record.h"

namespace tidyro {

/// The name by which one report, its plans and its receipts speak of one item. Opaque: nothing may
/// be read from it but whether two are the same. The text is UTF-8, so that it survives JSON; who
/// makes it from a path takes the URL's text, not the path's bytes.
struct LocalItemID {
    std::string rawValue;

    static constexpr auto fields() {
        return fieldList<LocalItemID>(field("rawValue", &LocalItemID::rawValue));
    }
    auto operator<=>(const LocalItemID&) const = default;
};

} // namespace tidyro
