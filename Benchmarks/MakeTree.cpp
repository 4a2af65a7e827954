// Makes a tree of empty files for measuring: the same names and shape each time.
//
//     MakeTree FOLDER ENTRIES
//
// A folder for each 20 entries, ten folders below each folder, names of 4 to 34 bytes.

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Names {
  public:
    std::string next(const char* extension) {
        constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789-_";
        std::string name = std::to_string(made_++) + "-";
        const std::size_t length = name.size() + random_() % 24;
        while (name.size() < length) name += letters[random_() % letters.size()];
        return name + extension;
    }

  private:
    std::mt19937 random_{20261121};
    std::size_t made_ = 0;
};

constexpr std::size_t filesPerFolder = 19;
constexpr std::size_t foldersPerFolder = 10;

} // namespace

int main(int count, char** arguments) {
    if (count < 3) return 64;
    const std::size_t wanted = std::strtoul(arguments[2], nullptr, 10);
    Names names;
    std::vector<std::string> folders{arguments[1]};
    ::mkdir(arguments[1], 0755);
    std::size_t made = 0;
    for (std::size_t at = 0; made < wanted; ++at) {
        const int folder = ::open(folders[at].c_str(), O_RDONLY | O_DIRECTORY);
        if (folder < 0) return std::perror(folders[at].c_str()), 1;
        for (std::size_t i = 0; i < filesPerFolder && made < wanted; ++i, ++made) {
            const int file =
                ::openat(folder, names.next(".txt").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
            if (file < 0) return std::perror("a file"), 1;
            ::close(file);
        }
        for (std::size_t i = 0;
             i < foldersPerFolder && made < wanted && folders.size() * 20 <= wanted; ++i, ++made) {
            folders.push_back(folders[at] + "/" + names.next(""));
            if (::mkdir(folders.back().c_str(), 0755) != 0) return std::perror("a folder"), 1;
        }
        ::close(folder);
        if (at + 1 == folders.size()) break;
    }
    std::printf("%zu entries\n", made);
    return 0;
}
