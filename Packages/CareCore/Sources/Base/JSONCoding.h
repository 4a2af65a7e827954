#pragma once

/// Records to JSON and back, driven by their field lists.
///
///     jsonText(toJSON(goal))                    // {"byteCount":1000000}
///     fromJSONText<ReclaimGoal>(text)           // the goal, or a DecodingError with its key path
///
/// How values are coded:
///
/// - a date as seconds since 2001-01-01 00:00 UTC;
/// - a URL, a UUID and a text enumeration as their text;
/// - a set as an ascending list;
/// - an enumeration with associated values as an object with exactly one key, the name of the case;
///   its value is the object of the associated values.
///
/// An absent optional is left out. A missing required key fails the whole record, and a key that no
/// field has is passed over. Text that is not UTF-8 is repaired when it is written. Paths travel as
/// URLs, whose escapes keep every byte.
#include "Base/JSON.h"        // IWYU pragma: export
#include "Base/JSONRecords.h" // IWYU pragma: export
#include "Base/JSONValues.h"  // IWYU pragma: export
