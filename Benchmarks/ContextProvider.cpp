// Starts processes that hold files open, and prints what one context for the safety policy costs:
//
//     ContextProvider [PROCESSES [OPEN-FILES-IN-ALL]]     500 and 20,000 when left out
//
// The context is taken several times, and the best and the middle one are printed: the first pays
// for memory that the others find at hand, and is what "peak" tells of.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"

namespace {

/// Megabytes that this process took at most so far.
double peak() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
#ifdef __APPLE__
    return static_cast<double>(used.ru_maxrss) / 1e6;
#else
    return static_cast<double>(used.ru_maxrss) * 1'024 / 1e6;
#endif
}

/// Processes that hold the files of a folder open, each its share, until this goes.
class Holders {
  public:
    Holders(const std::string& folder, int processes, int files) {
        std::array<int, 2> ready{};
        if (::pipe(ready.data()) != 0) return;
        for (int process = 0; process < processes; ++process) {
            const pid_t number = ::fork();
            if (number == 0) {
                for (int file = process; file < files; file += processes) {
                    const std::string path = folder + "/held-by-a-process-" + std::to_string(file);
                    if (::open(path.c_str(), O_RDWR | O_CREAT, 0600) < 0) ::_exit(1);
                }
                ::close(ready[0]);
                ::close(ready[1]);
                for (;;) ::pause();
            }
            if (number > 0) numbers_.push_back(number);
        }
        ::close(ready[1]);
        char none = 0;
        while (::read(ready[0], &none, 1) > 0) {} // until the last has closed its end
        ::close(ready[0]);
    }
    ~Holders() {
        for (const pid_t number : numbers_) ::kill(number, SIGKILL);
        for (const pid_t number : numbers_) ::waitpid(number, nullptr, 0);
    }
    Holders(const Holders&) = delete;
    Holders& operator=(const Holders&) = delete;

    [[nodiscard]] std::size_t count() const { return numbers_.size(); }

  private:
    std::vector<pid_t> numbers_;
};

} // namespace

int main(int count, char** arguments) {
    const int processes = count > 1 ? std::atoi(arguments[1]) : 500; // NOLINT(cert-err34-c)
    const int files = count > 2 ? std::atoi(arguments[2]) : 20'000;  // NOLINT(cert-err34-c)
    std::string place = (std::filesystem::temp_directory_path() / "context-XXXXXX").string();
    if (processes < 1 || files < 0 || ::mkdtemp(place.data()) == nullptr) return 64;
    {
        const Holders holders(place, processes, files);
        tidyro::LocalRuntimeSafetyContextProvider provider(tidyro::FileURL::folder(place));
        const double idle = peak();
        std::vector<double> took;
        std::size_t paths = 0;
        std::size_t roots = 0;
        double most = 0;
        for (int run = 0; run < 11; ++run) {
            const auto start = std::chrono::steady_clock::now();
            const auto context = provider.freshContext();
            const std::chrono::duration<double, std::milli> time =
                std::chrono::steady_clock::now() - start;
            if (context == nullptr) {
                std::printf("there is no context\n");
                break;
            }
            took.push_back(time.count());
            paths = context->facts().openByProcessPaths.size();
            roots = context->facts().activeApplicationRoots.size();
            if (run == 0) most = peak();
        }
        std::ranges::sort(took);
        if (!took.empty()) {
            std::printf("%zu processes, %d open files: %.1f ms (best %.1f ms); %zu paths, %zu "
                        "roots; peak %.1f MB, %.1f MB of it for the context\n",
                        holders.count(), files, took[took.size() / 2], took.front(), paths, roots,
                        most, most - idle);
        }
    }
    std::filesystem::remove_all(place);
    return 0;
}
