#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace tidyro {

/// Knows the places below a root that a walk skips or does not enter. It is asked one component at
/// a time as the walk goes down. The walk carries the branch that it stands on, and almost
/// everywhere there is none. So places cost nothing where none are near, and no path is built to
/// look one up.
class PlaceTree {
  public:
    enum class Mark { none, skipped, contentsSkipped, mountPoint };

    /// Adds places by their paths relative to the root. Of two marks on one place the later counts.
    void add(const std::set<std::string>& relativePaths, Mark mark);
    /// Adds those of the absolute paths that lie below `root`.
    void addBelow(std::string_view root, const std::set<std::string>& paths, Mark mark);

    struct Branch {
        Mark mark = Mark::none;
        std::map<std::string, std::unique_ptr<Branch>, std::less<>> below;

        /// The branch of a child; none when no place is there or below it.
        [[nodiscard]] const Branch* child(std::string_view name) const;
    };

    /// The root's branch; none when no place lies below the root. Lives as long as the tree.
    [[nodiscard]] const Branch* top() const { return top_.below.empty() ? nullptr : &top_; }

  private:
    Branch top_;
};

} // namespace tidyro
