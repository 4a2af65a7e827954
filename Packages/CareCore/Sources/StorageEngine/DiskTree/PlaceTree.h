#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace tidyro {

/// A set of places below a root, asked one component at a time as a walk goes down. A walk carries
/// the branch it stands on, which is none almost everywhere, so places cost nothing where none are
/// near and no path is ever built to look one up.
class PlaceTree {
  public:
    enum class Mark { none, skipped, contentsSkipped };

    /// The places that lie below `root`; both are absolute, standardised paths.
    PlaceTree(std::string_view root, const std::set<std::string>& skipped,
              const std::set<std::string>& contentsSkipped);

    struct Branch {
        Mark mark = Mark::none;
        std::map<std::string, std::unique_ptr<Branch>, std::less<>> below;

        /// The branch of a child; none when no place is there or below it.
        [[nodiscard]] const Branch* child(std::string_view name) const;
    };

    /// The root's branch; none when no place lies below the root. Lives as long as the tree.
    [[nodiscard]] const Branch* top() const { return top_.below.empty() ? nullptr : &top_; }

  private:
    void add(std::string_view root, const std::set<std::string>& places, Mark mark);

    Branch top_;
};

} // namespace tidyro
