#pragma once

#include <string>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/UUID.h"

namespace tidyro {

/// A folder that a scan was asked to read.
struct ScanRoot {
    UUID id;
    FileURL url;
    std::string label; ///< shown to people

    static constexpr auto fields() {
        return fieldList<ScanRoot>(field("id", &ScanRoot::id), field("url", &ScanRoot::url),
                                   field("label", &ScanRoot::label));
    }
    bool operator==(const ScanRoot&) const = default;
};

} // namespace tidyro
