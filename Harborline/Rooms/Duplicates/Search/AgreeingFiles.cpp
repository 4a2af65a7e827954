#include "Rooms/Duplicates/Search/AgreeingFiles.h"

#include <algorithm>

namespace tidyro {

std::vector<std::uint32_t> agreeingFiles(std::vector<SampledFile> files) {
    std::ranges::sort(files, {}, &SampledFile::hash);
    std::vector<std::uint32_t> agreeing;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const bool likeBefore = i > 0 && files[i - 1].hash == files[i].hash;
        const bool likeNext = i + 1 < files.size() && files[i + 1].hash == files[i].hash;
        if (likeBefore || likeNext) agreeing.push_back(files[i].file);
    }
    std::ranges::sort(agreeing);
    return agreeing;
}

} // namespace tidyro
