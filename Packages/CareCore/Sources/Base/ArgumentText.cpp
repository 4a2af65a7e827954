#include "Base/ArgumentText.h"

#include "Base/FileURL.h"

namespace tidyro {

std::string folderArgument(std::string_view text, std::string_view home) {
    std::string path(text);
    if (text == "~" || text.starts_with("~/")) {
        path = std::string(home) + std::string(text.substr(1));
    }
    return FileURL::folder(path).path();
}

} // namespace tidyro
