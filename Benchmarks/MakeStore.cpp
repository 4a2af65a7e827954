// Makes stores of developers' tools for measuring: the same names and shape each time.
//
//     MakeStore KIND FOLDER FILES      a store of a kind, such as "pnpmStore", with so many files
//     MakeStore machine FOLDER FILES   one of every kind, in a home and in the system around it
//
// "MeasureStore" takes the same first two arguments. Files hold a byte or nothing; only the lists
// that a store keeps of its contents are as long as they really are.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include "Base/Base64.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreKind.h"

using namespace tidyro;

namespace {

using Kind = DeveloperStoreKind;

/// A folder in which everything is made by paths relative to it.
class Place {
  public:
    explicit Place(std::string path) : path_(std::move(path)) {
        std::filesystem::create_directories(path_);
    }

    void file(const std::string& name, std::string_view contents = "") {
        const std::string path = path_ + "/" + name;
        const std::string folder = path.substr(0, path.rfind('/'));
        if (folder != last_) std::filesystem::create_directories(last_ = folder);
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || ::write(fd, contents.data(), contents.size()) !=
                          static_cast<ssize_t>(contents.size())) {
            std::perror(path.c_str());
            std::exit(1); // NOLINT(concurrency-mt-unsafe): there is one thread
        }
        ::close(fd);
    }
    void link(const std::string& name, const std::string& target) {
        const std::filesystem::path path = path_ + "/" + name;
        std::filesystem::create_directories(path.parent_path());
        std::filesystem::create_symlink(target, path);
    }
    void hardLink(const std::string& name, const std::string& existing) {
        const std::filesystem::path path = path_ + "/" + name;
        std::filesystem::create_directories(path.parent_path());
        std::filesystem::create_hard_link(path_ + "/" + existing, path);
    }
    /// So many files, twenty in each folder.
    void tree(const std::string& top, std::size_t files) {
        for (std::size_t i = 0; i < files; ++i) {
            file(fmt::format("{}/part{}/lib/module-{}.py", top, i / 20, i), "x");
        }
    }

  private:
    std::string path_;
    std::string last_;
};

/// Digests that are as evenly spread as real ones.
class Digests {
  public:
    std::string next(std::size_t bytes) {
        std::string digest;
        while (digest.size() < bytes) digest += static_cast<char>(random_() & 0xFFU);
        return digest;
    }
    static std::string hex(std::string_view digest) {
        std::string text;
        for (const char byte : digest) {
            text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
        }
        return text;
    }

  private:
    std::mt19937 random_{20261121};
};

/// Folders with names of their own, each of which is a unit.
void makeTrees(Place& place, std::string_view name, std::size_t files, std::size_t filesEach) {
    for (std::size_t made = 0, i = 0; made < files; made += filesEach, ++i) {
        place.tree(fmt::format(fmt::runtime(name), i), std::min(filesEach, files - made));
    }
}

/// Repositories of one file to thousands.
void makeHuggingFace(Place& place, std::size_t files) {
    Digests digests;
    std::size_t made = 0;
    for (std::size_t number = 0; made < files; ++number) {
        const std::string repository = fmt::format("models--org--model{}", number);
        place.file(repository + "/refs/main", "0123abc\n");
        const std::size_t end = std::min(files, made + 1 + number % 50 * number % 2'000);
        for (; made < end; ++made) {
            const std::string blob = Digests::hex(digests.next(20));
            place.file(fmt::format("{}/blobs/{}", repository, blob), "x");
            place.link(fmt::format("{}/snapshots/0123abc/part-{}.bin", repository, made),
                       "../../blobs/" + blob);
        }
    }
}

void makeOllama(Place& place, std::size_t files) {
    constexpr std::size_t layers = 3;
    Digests digests;
    for (std::size_t made = 0; made < files; made += layers + 1) {
        std::string manifest;
        for (std::size_t i = 0; i < layers; ++i) {
            const std::string digest = Digests::hex(digests.next(32));
            place.file("blobs/sha256-" + digest, "x");
            manifest += fmt::format(R"({}{{"mediaType":"application/vnd.ollama.image.model",)"
                                    R"("digest":"sha256:{}","size":1}})",
                                    i == 0 ? "" : ",", digest);
        }
        place.file(
            fmt::format("manifests/registry.ollama.ai/library/model{}/tag{}", made / 400, made),
            fmt::format(R"({{"schemaVersion":2,"layers":[{}]}})", manifest));
    }
}

void makePnpm(Place& place, std::size_t files) {
    constexpr std::size_t filesEach = 19;
    Digests digests;
    for (std::size_t made = 0; made < files; made += filesEach + 1) {
        const std::string package = fmt::format("package-{}", made);
        std::string list;
        for (std::size_t i = 0; i < filesEach; ++i) {
            const std::string digest = digests.next(64);
            const std::string hex = Digests::hex(digest);
            place.file("v10/files/" + hex.substr(0, 2) + "/" + hex.substr(2), "x");
            list += fmt::format(R"({}"dist/cjs/module-{}.js":{{"checkedAt":1732213123456,)"
                                R"("integrity":"sha512-{}","mode":420,"size":1}})",
                                i == 0 ? "" : ",", i, base64Text(digest));
        }
        const std::string hex = Digests::hex(digests.next(31));
        place.file(
            fmt::format("v10/index/{}/{}-{}@1.0.0.json", hex.substr(0, 2), hex.substr(2), package),
            fmt::format(R"({{"name":"{}","version":"1.0.0","requiresBuild":false,)"
                        R"("files":{{{}}}}})",
                        package, list));
    }
}

void makeGo(Place& place, std::size_t files) {
    constexpr std::size_t filesEach = 50;
    for (std::size_t made = 0; made < files; made += filesEach) {
        const std::string module = fmt::format("github.com/!org{}/module{}", made / 1'000, made);
        place.tree(module + "@v1.2.3", filesEach - 4);
        for (const char* ending : {"info", "mod", "zip", "ziphash"}) {
            place.file(fmt::format("cache/download/{}/@v/v1.2.3.{}", module, ending), "x");
        }
    }
}

void makeFlatpak(Place& place, std::size_t files) {
    constexpr std::size_t filesEach = 2'000;
    Digests digests;
    for (std::size_t made = 0; made < files; made += 2) { // each has two names
        const std::string hex = Digests::hex(digests.next(32));
        const std::string object =
            "repo/objects/" + hex.substr(0, 2) + "/" + hex.substr(2) + ".file";
        place.file(object, "x");
        place.hardLink(fmt::format("{}/org.example.Part{}/x86_64/stable/active/lib{}/module-{}",
                                   made / filesEach % 2 == 0 ? "app" : "runtime", made / filesEach,
                                   made / 40, made),
                       object);
    }
}

void makeCcache(Place& place, std::size_t files) {
    Digests digests;
    for (std::size_t made = 0; made < files; ++made) {
        const std::string hex = Digests::hex(digests.next(20));
        place.file(fmt::format("{}/{}/{}R", hex[0], hex[1], hex.substr(2)), "x");
    }
}

void makeTorch(Place& place, std::size_t files) {
    for (std::size_t made = 0; made < files / 2; ++made) {
        place.file(fmt::format("hub/checkpoints/weights-{}.pth", made), "x");
    }
    makeTrees(place, "hub/org_repository{}_main", files - files / 2, 50);
}

void makeStore(Kind kind, const std::string& folder, std::size_t files) {
    Place place(folder);
    switch (kind) {
        using enum DeveloperStoreKind;
    case uvCache: return makeTrees(place, "archive-v0/{}", files, 100);
    case huggingFaceHub: return makeHuggingFace(place, files);
    case torchHub: return makeTorch(place, files);
    case ollamaModels: return makeOllama(place, files);
    case dockerDiskImage: return;
    case pnpmStore: return makePnpm(place, files);
    case condaPackages: return makeTrees(place, "package-1.0.{}-py312_0", files, 400);
    case goModules: return makeGo(place, files);
    case podmanStorage:
    case rootlessDocker:
        makeTrees(place, "overlay2/layer{}/diff", files - files / 4, 1'000);
        return makeTrees(place, "volumes/volume{}/_data", files / 4, 1'000);
    case flatpakUser: return makeFlatpak(place, files);
    case preCommit: return makeTrees(place, "repo{}", files, 400);
    case nixStore: return makeTrees(place, "0abc{}-package-1.0", files, 100);
    case ccache: return makeCcache(place, files);
    }
}

/// Where each lies. The names that end a store are such as nobody would choose: a terminal and a
/// reader of UTF-8 have to bear them.
void makeMachine(const std::string& folder, std::size_t files) {
    constexpr auto places = std::to_array<std::pair<Kind, std::string_view>>({
        {Kind::uvCache, "home/.cache/uv"},
        {Kind::huggingFaceHub, "home/.cache/huggingface/hub"},
        {Kind::torchHub, "home/.cache/torch"},
        {Kind::ollamaModels, "home/.ollama/models"},
        {Kind::pnpmStore, "home/.local/share/pnpm/store"},
        {Kind::condaPackages, "home/miniconda3/pkgs"},
        {Kind::goModules, "home/go/pkg/mod"},
        {Kind::podmanStorage, "home/.local/share/containers/storage"},
        {Kind::rootlessDocker, "home/.local/share/docker"},
        {Kind::flatpakUser, "home/.local/share/flatpak"},
        {Kind::preCommit, "home/.cache/pre-commit"},
        {Kind::nixStore, "nix/store"},
        {Kind::ccache, "home/.cache/ccache"},
    });
    for (const auto& [kind, path] : places) {
        makeStore(kind, fmt::format("{}/{}", folder, path), files);
    }
    Place place(folder);
    place.file("home/.docker/desktop/vms/0/data/Docker.raw", "x");
    std::filesystem::resize_file(folder + "/home/.docker/desktop/vms/0/data/Docker.raw",
                                 64'000'000'000);
    place.file("home/.local/share/containers/storage/volumes/\x1B[2J\n\xFF/_data/rows", "x");
}

} // namespace

int main(int count, char** arguments) {
    const bool isMachine = count > 1 && std::string_view(arguments[1]) == "machine";
    const auto kind = count < 4 ? std::nullopt : fromRawValue<Kind>(arguments[1]);
    if (!kind && (!isMachine || count < 4)) {
        std::fputs("MakeStore KIND|machine FOLDER FILES\n", stderr);
        return 64;
    }
    const std::size_t files = std::strtoul(arguments[3], nullptr, 10);
    if (isMachine) {
        makeMachine(arguments[2], files);
    } else {
        makeStore(*kind, arguments[2], files);
    }
    return 0;
}
