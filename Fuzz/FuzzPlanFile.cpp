// A plan and its sheet in a file: any bytes give an error with a sentence, or a plan whose file has
// exactly these bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Platform/Machine/SHA256.h"
#include "StorageEngine/Cleanup/Planning/CleanupPlanFile.h"
#include "StorageEngine/Cleanup/Planning/SamplePlan.h"

using namespace tidyro;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto file = CleanupPlanFile::fromText(bytes);
    if (!file) {
        require(description(file.error()).ends_with('.'), "an error says nothing");
        return 0;
    }
    require(CleanupPlanFile::text(file->plan, file->sheet) == bytes, "other bytes were read");
    require(cleanupDigest(file->plan, file->sheet) == file->digest, "another digest was read");
    return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);

/// Random bytes seldom are a plan: now and then one takes their place, to start from. A changed one
/// mostly ends at its digest, so now and then it gets the digest that it should have.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maximum, unsigned seed) {
    if (seed % 64 == 0) {
        auto made = testing::samplePlan(seed / 64 % 100);
        if (seed % 128 == 0) made.plan.entries.clear();
        const std::string text = CleanupPlanFile::text(made.plan, made.sheet);
        if (text.size() <= maximum) {
            std::ranges::copy(text, data);
            return text.size();
        }
    }
    size = LLVMFuzzerMutate(data, size, maximum);
    constexpr std::string_view before = "{\"version\":1,\"digest\":\"";
    constexpr std::string_view behind = "\",\n";
    constexpr std::size_t end = before.size() + 64 + behind.size();
    if (seed % 4 == 1 && size > end) {
        platform::SHA256 hash;
        hash.update(std::as_bytes(std::span(data + end, size - end)));
        std::string head(before);
        head.append(platform::hexText(hash.finish())).append(behind);
        std::ranges::copy(head, data);
    }
    return size;
}
