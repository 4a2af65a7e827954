#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/FindIndexStorage.h"

namespace tidyro {

/// How a text has to stand in a name or path.
enum class FindTextMode : std::uint8_t {
    contains, ///< anywhere
    word,     ///< as a whole word, between separators or changes of case
    exact,    ///< all of it
    glob,     ///< all of it, "*" any text and "?" one character
    regex,    ///< somewhere in it, as RE2 reads it
};

/// One condition of a query on the text of an entry.
struct FindTextTerm {
    std::string text;   ///< as it was typed
    std::string folded; ///< as the folded names are; unused for regular expressions
    FindTextMode mode = FindTextMode::contains;
    bool matchesCase = false;
    bool inPath = false; ///< in the whole path below the root rather than in the name
};

/// A query that was read: a tree of conditions. `FindQueryParser` makes it, `FindQueryMatcher`
/// says of one entry at a time whether it holds.
struct FindQueryNode {
    enum class Kind : std::uint8_t {
        all,    ///< of the children; without any: everything
        any,    ///< of the children
        none,   ///< of its one child
        text,   ///< `text`
        ext,    ///< one of `names`, folded extensions
        kind,   ///< one of `categories`, or file or folder
        size,   ///< from `least` to `most` bytes, both included
        date,   ///< modified from `least` to `most`, seconds since 1970, both included
        depth,  ///< below the root, from `least` to `most`
        empty,  ///< a file of 0 bytes or a folder without entries
        hidden, ///< hidden, by itself or by where it lies
        system, ///< of the operating system
        folder, ///< in the folder whose path is `names[0]`, or ends with it; at any depth
        parent, ///< directly in that folder
    };
    Kind kind;
    std::vector<FindQueryNode> children = {};
    FindTextTerm text = {};
    std::vector<std::string> names = {};
    std::vector<FindCategory> categories = {};
    bool takesFiles = false;
    bool takesFolders = false;
    std::uint64_t least = 0;
    std::uint64_t most = UINT64_MAX;
};

struct FindQuery {
    FindQueryNode root; ///< `all` of what stands side by side
    /// Why part of it was taken for plain words; one sentence for people.
    std::optional<std::string> problem = std::nullopt;
};

/// Reads the language that people know from desktop search. Never fails: what cannot be read as it
/// is meant is taken for words.
///
///     parsedFindQuery("report (pdf | docx) -draft size:>1mb dm:thisweek", now)
///
/// Dates are those of the person's own calendar and time zone. `now` says when today is.
[[nodiscard]] FindQuery parsedFindQuery(std::string_view text, Timestamp now);

} // namespace tidyro
