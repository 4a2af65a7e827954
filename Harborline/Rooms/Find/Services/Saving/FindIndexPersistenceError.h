#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "Base/SystemError.h"

namespace tidyro {

/// Why an index could not be kept or opened again. Nothing is lost but time: it can be built anew.
struct FindIndexPersistenceError {
    struct UnsupportedVersion {
        std::uint32_t version;
        bool operator==(const UnsupportedVersion&) const = default;
    };
    /// The file is whole, but no index has what it says: "name offsets", "structure", "extra
    /// children" or "sizes".
    struct Inconsistent {
        std::string reason;
        bool operator==(const Inconsistent&) const = default;
    };
    struct WriteFailed {
        SystemError error;
        bool operator==(const WriteFailed&) const = default;
    };
    struct Unreadable {
        bool operator==(const Unreadable&) const = default;
    };
    struct NotAnIndex {
        bool operator==(const NotAnIndex&) const = default;
    };
    /// It ends before it says.
    struct Truncated {
        bool operator==(const Truncated&) const = default;
    };

    std::variant<UnsupportedVersion, Inconsistent, WriteFailed, Unreadable, NotAnIndex, Truncated>
        kind;

    /// One sentence for people.
    [[nodiscard]] std::string description() const;
    bool operator==(const FindIndexPersistenceError&) const = default;
};

} // namespace tidyro
