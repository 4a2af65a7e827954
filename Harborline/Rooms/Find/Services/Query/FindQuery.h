#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Index/FindKinds.h"
#include "Rooms/Find/Services/Query/FindRegex.h"

namespace tidyro {

/// The place behind a set of characters that begins at `at` in a glob, as "[a-z]" or "[!a-z]"; 0
/// when none does. "]" as the first of a set is a member of it.
[[nodiscard]] std::size_t globSetEnd(std::string_view pattern, std::size_t at);
/// Whether a set of nothing but ranges stands in a text, as "[0-9a-f]". A text with other brackets
/// may be a name: "a[1].txt", "[2026-11] notes".
[[nodiscard]] bool hasGlobRange(std::string_view text);

/// How a text has to stand in a name or path.
enum class FindTextMode : std::uint8_t {
    contains, ///< anywhere
    word,     ///< as whole words, from one boundary of `FindWordBoundaries` to another
    exact,    ///< as the whole of it
    glob,     ///< as the whole of it; "*" stands for any text and "?" for one character
    regex,    ///< an expression, in the syntax of RE2, that matches somewhere in it
};

/// One condition of a query on the text of an entry.
struct FindTextTerm {
    std::string text;        ///< as it was typed
    std::string folded = {}; ///< as the folded names are; unused for regular expressions
    FindTextMode mode = FindTextMode::contains;
    bool isCaseSensitive = false; ///< compares `text` with the bytes of the name
    bool isInPath = false;        ///< in the whole path below the root rather than in the name
    /// The text may stand in the name of a folder above instead, because other words of the same
    /// `all` stand in the name. Only plain words beside other words have it.
    bool mayBeInFolder = false;
    bool hasSets = false; ///< of a glob: "[a-z]" stands for one of these characters
    std::shared_ptr<const FindRegex> regex = nullptr; ///< there when the mode is `regex`
};

/// A node of a query's tree of conditions. `FindQueryMatcher` finds the entries that meet them.
struct FindQueryNode {
    enum class Kind : std::uint8_t {
        all,    ///< meets all children; without children every entry does
        any,    ///< meets at least one child; there are two or more
        none,   ///< does not meet the one child
        text,   ///< meets `text`
        ext,    ///< has an extension among `names`: folded, without the stop, sorted, each once
        kind,   ///< is in `categories`, or a folder if `mayBeFolder`, or no folder if `mayBeFile`
        size,   ///< has from `min` to `max` bytes
        date,   ///< was modified between `min` and `max`, in seconds since 1970
        depth,  ///< lies from `min` to `max` below the root; 255 stands for deeper as well
        empty,  ///< is a file of 0 bytes, or a folder that was read and has no entries
        hidden, ///< is hidden, by itself or by a folder above
        system, ///< belongs to the operating system
        folder, ///< lies in a folder whose path is `names[0]` or ends with it, at any depth
        parent, ///< lies directly in such a folder
    };
    Kind kind;
    std::vector<FindQueryNode> children = {};
    FindTextTerm text = {};
    std::vector<std::string> names = {};
    std::vector<FindCategory> categories = {};
    bool mayBeFile = false;
    bool mayBeFolder = false;
    /// Of an `all`: one of the texts that may be in a folder has to be in the name, because nothing
    /// else asks for the name.
    bool needsWordInName = false;
    std::uint64_t min = 0; ///< both ends are included; above `max` when nothing can match
    std::uint64_t max = UINT64_MAX;
};

/// A query that was read.
struct FindQuery {
    /// Its kind is `all`. No `all` stands directly in an `all`, no `any` in an `any`, and the tree
    /// is at most a few hundred nodes deep.
    FindQueryNode root;
    /// Why a part of the query was taken for plain words; one sentence for people.
    std::optional<std::string> problem = std::nullopt;
};

/// Reads the language that people know from desktop search. It never fails: what cannot be read as
/// it was meant is taken for words, and `problem` says why.
///
///     const FindQuery query = parsedFindQuery("report (pdf | docx) -draft size:>1mb", now);
///
/// - Words side by side all have to match, in any order; "AND" between them changes nothing. "OR"
///   or "|" between words binds weaker. "NOT", "-" or "!" before a word or bracket denies it and
///   binds strongest. "AND", "OR" and "NOT" are operators in capitals only. "|" and brackets end a
///   word; "-" and "!" inside a word belong to it.
/// - Of several words side by side one has to match the name; each other one matches the name or
///   that of a folder above. So "bin bash" finds "/usr/bin/bash". Words within quotes, words with
///   wildcards and denied words match the name and nothing else.
/// - Quotes keep blanks, brackets, operators and colons in a word. "*" and "?" mean the same within
///   quotes; after `exact:` and `word:` they stand for themselves.
/// - A word with "*" or "?" is a glob. Outside of quotes "[a-z]" and "[!a-z]" in it stand for one
///   character, and such a range makes a glob of a word by itself. "main.{c,h}" means "main.c" and
///   "main.h". A word with "/" is looked for in paths. A quote in a name is written as \".
/// - `case:`, `word:`, `exact:`, `regex:` and `path:` say how a text matches and may be combined:
///   "case:path:Src". The value of `regex:` ends at a blank outside quotes, or at a bracket that
///   closes one before the field.
/// - `ext:` and `kind:`, which is also called `type:`, take lists separated by ";" or ",". `size:`,
///   `dm:` and `depth:` take a value, a comparison (">", ">=", "<", "<=", "=", or "+" and "-"
///   behind the value) or a range ("1gb..2gb", "..5kb"). `dm:` takes ages as well: "7d". `in:` and
///   `parent:` take a folder; "~" at its beginning is the person's home. `empty:`, `hidden:` and
///   `system:` stand alone or take yes, no, true or false. So do `file:` and `folder:`, which also
///   take a text for the name. A word with any other field is an ordinary word, and `problem` says
///   so.
/// - An operator with nothing to join is a word when it is made of letters, and is ignored when it
///   is a sign. Missing brackets and quotes are added. Brackets that close nothing, and those more
///   than 64 deep, are ignored.
///
/// Dates are those of the person's own calendar and time zone; `now` says which day is today.
[[nodiscard]] FindQuery parsedFindQuery(std::string_view text, Timestamp now);

} // namespace tidyro
