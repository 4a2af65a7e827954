#pragma once

#include <string>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"

namespace tidyro {

/// Why part of a root was not measured.
enum class CoverageGapReason {
    unavailable,
    inaccessible,
    symbolicLinkExcluded,
    packageBoundaryExcluded,
    cloudPlaceholderExcluded,
    mountBoundaryExcluded,
    unsupportedFileType,
    metadataUnavailable,
    scanBudgetExceeded,
    privacyProtectedExcluded,
};

constexpr RawValueTable<CoverageGapReason, 10> rawValues(RawValueTag<CoverageGapReason>) {
    using enum CoverageGapReason;
    return {{{{unavailable, "unavailable"},
              {inaccessible, "inaccessible"},
              {symbolicLinkExcluded, "symbolicLinkExcluded"},
              {packageBoundaryExcluded, "packageBoundaryExcluded"},
              {cloudPlaceholderExcluded, "cloudPlaceholderExcluded"},
              {mountBoundaryExcluded, "mountBoundaryExcluded"},
              {unsupportedFileType, "unsupportedFileType"},
              {metadataUnavailable, "metadataUnavailable"},
              {scanBudgetExceeded, "scanBudgetExceeded"},
              {privacyProtectedExcluded, "privacyProtectedExcluded"}}}};
}

/// A part of a root that a scan did not measure.
struct CoverageGap {
    FileURL url;
    CoverageGapReason reason;
    std::string detail;

    static constexpr auto fields() {
        return fieldList<CoverageGap>(field("url", &CoverageGap::url),
                                      field("reason", &CoverageGap::reason),
                                      field("detail", &CoverageGap::detail));
    }
    bool operator==(const CoverageGap&) const = default;
};

} // namespace tidyro
