#pragma once

#include <string>

#include "Rooms/Find/Services/Search/FindRandomTrees.h"

namespace tidyro::testing {

/// Queries of the whole language, made of pieces of what is in a tree, so that they find something.
class RandomQueries {
  public:
    RandomQueries(RandomSource& random, RandomTree& tree) : random_(random), tree_(tree) {}

    [[nodiscard]] std::string query();
    /// What people type most: a few words.
    [[nodiscard]] std::string words();

  private:
    [[nodiscard]] std::string alternatives(unsigned depth);
    [[nodiscard]] std::string condition(unsigned depth);
    [[nodiscard]] std::string field();
    [[nodiscard]] std::string piece();
    [[nodiscard]] std::string folderPiece();
    [[nodiscard]] std::string glob();
    [[nodiscard]] std::string expression();
    [[nodiscard]] std::string path();
    [[nodiscard]] std::string folder();
    [[nodiscard]] std::string malformed();

    RandomSource& random_;
    RandomTree& tree_;
    std::string name_; ///< that pieces are taken from
};

} // namespace tidyro::testing
