#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Base/JSON.h"
#include "Rooms/Duplicates/Choosing/DuplicatesModel.h"
#include "Rooms/Duplicates/Report/DuplicateReport.h"

namespace tidyro {

/// "Looked at 1,234 files of 1 KB or more."
[[nodiscard]] std::string filesLookedAtText(const DuplicateReport& report);
/// "1 set of copies, 4 MB taken by the extra copies, in 0.50 s."
[[nodiscard]] std::string copiesFoundText(const DuplicateReport& report);

/// A report for people to read: a line of numbers, each group with its copies and what is to become
/// of them by the model's rule, and the sum. `shown` makes a file's name fit to be seen.
void writeText(const DuplicateReport& report, const DuplicatesModel& model,
               const std::function<std::string(const std::string&)>& shown,
               const std::function<void(std::string_view)>& write);

/// The same as one document: the report's record, and beside it each copy's state and URL (a path
/// that is no Unicode does not survive as text), each group's storages and waste, and the sums.
[[nodiscard]] JSON documentOf(const DuplicateReport& report, const DuplicatesModel& model);

} // namespace tidyro
