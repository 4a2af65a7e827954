// Makes a folder of large files, half of them copies, for measuring the search for duplicates.
//
//     MakeCopies FOLDER [BYTES]     4 GiB when not given
//
// Sizes go from 1 MB to 1 GB, each twice the one before, over and over; every
// file comes twice. Contents are noise that is the same each time.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t smallest = 1'000'000;
constexpr std::uint64_t largest = 1'000'000'000;

/// splitmix64: fast, and nothing that a disk could compress.
class Noise {
  public:
    explicit Noise(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t value = state_ += 0x9E3779B97F4A7C15U;
        value = (value ^ value >> 30U) * 0xBF58476D1CE4E5B9U;
        value = (value ^ value >> 27U) * 0x94D049BB133111EBU;
        return value ^ value >> 31U;
    }

  private:
    std::uint64_t state_;
};

void write(const std::filesystem::path& path, std::uint64_t bytes, std::uint64_t seed) {
    std::ofstream file(path, std::ios::binary);
    Noise noise(seed);
    std::vector<std::uint64_t> block(131'072);
    for (std::uint64_t left = bytes; left > 0;) {
        for (std::uint64_t& word : block) word = noise.next();
        const auto part = std::min<std::uint64_t>(left, block.size() * sizeof(std::uint64_t));
        file.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(part));
        left -= part;
    }
}

} // namespace

int main(int count, char** values) {
    if (count < 2) {
        std::fputs("MakeCopies FOLDER [BYTES]\n", stderr);
        return 64;
    }
    const std::filesystem::path folder = values[1];
    const std::uint64_t wanted =
        count > 2 ? std::strtoull(values[2], nullptr, 10) : 4ULL * 1024 * 1024 * 1024;
    std::filesystem::create_directories(folder / "copies");
    std::uint64_t made = 0;
    std::uint64_t size = smallest;
    for (std::uint64_t number = 0; made < wanted; ++number) {
        const std::uint64_t bytes = std::min(size, std::max((wanted - made) / 2, smallest));
        const std::string name = std::to_string(number);
        write(folder / name, bytes, number);
        write(folder / "copies" / name, bytes, number);
        made += 2 * bytes;
        size = size == largest ? smallest : std::min(2 * size, largest);
    }
    return 0;
}
