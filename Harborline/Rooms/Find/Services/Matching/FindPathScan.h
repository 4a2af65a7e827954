#pragma once

#include <span>
#include <string_view>

#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"

namespace tidyro {

/// Looks for a text in all paths at once without writing a single path. A path is the path below
/// the root with a "/" before each component.
///
/// The text is cut at each "/". For "lib/python" it looks for names that begin with "python" and
/// lie in a folder whose name ends with "lib". All that lies in such an entry has the text in its
/// path as well.
class FindPathScan {
  public:
    using Entry = FindIndexStorage::Entry;

    struct Options {
        bool isFromRoot = false; ///< the path has to begin with the text, whose first byte is "/"
        bool isCaseSensitive = false; ///< the bytes of the names are meant, not the folded names
    };
    /// Storage and names have to outlive it.
    FindPathScan(const FindIndexStorage& storage, const FindNameScan& names, const Options& options)
        : storage_(storage), names_(names), options_(options) {}

    /// The entries whose path holds the text, which must not be empty.
    [[nodiscard]] FindEntrySet holding(std::string_view text) const;

  private:
    [[nodiscard]] std::string_view component(Entry entry) const {
        return options_.isCaseSensitive ? storage_.name(entry) : storage_.foldedName(entry);
    }
    [[nodiscard]] FindEntrySet candidates(std::string_view text) const;
    [[nodiscard]] FindEntrySet inNames(std::string_view text) const;
    [[nodiscard]] FindEntrySet withoutLetters() const;
    [[nodiscard]] FindEntrySet insideFolders(std::span<const std::string_view> above) const;
    [[nodiscard]] bool hasPathEnding(Entry folder, std::span<const std::string_view> above) const;
    void addContents(FindEntrySet& found) const;

    const FindIndexStorage& storage_;
    const FindNameScan& names_;
    Options options_;
};

} // namespace tidyro
