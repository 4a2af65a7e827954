#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Base/JSONForward.h"
#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"
#include "Rooms/Duplicates/Search/DuplicateReport.h"

namespace tidyro {

/// "Looked at 1,234 files of 1 KB or more."
[[nodiscard]] std::string filesLookedAtText(const DuplicateReport& report);
/// "1 set of copies, 4 MB taken by the extra copies, in 0.50 s."
[[nodiscard]] std::string copiesFoundText(const DuplicateReport& report);

/// Writes a report for people: what was looked at, each set of copies with what is to become of
/// each copy by the model's rule, and the sums. `shown` makes the name of a file fit for the
/// reader, which may be a terminal. `write` receives lines, line breaks included.
void writeText(const DuplicateReport& report, const DuplicatesModel& model,
               const std::function<std::string(const std::string&)>& shown,
               const std::function<void(std::string_view)>& write);

/// The same as one document. To the report's record it adds the state and the URL of each copy, the
/// storages and the waste of each set, and the sums. A path that is no UTF-8 survives as a URL
/// only.
[[nodiscard]] JSON documentOf(const DuplicateReport& report, const DuplicatesModel& model);

} // namespace tidyro
