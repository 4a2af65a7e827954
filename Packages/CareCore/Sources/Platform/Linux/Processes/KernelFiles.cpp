#include "Platform/Linux/Processes/KernelFiles.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Platform/Linux/Files/KernelText.h"

namespace tidyro::platform {

std::vector<std::string> swapFiles(std::string_view table) {
    std::vector<std::string> files;
    while (!table.empty()) {
        // "/swap\040file     file    1048572 0 -2": blanks in the name are escaped.
        const std::string_view line = table.substr(0, table.find('\n'));
        table.remove_prefix(std::min(line.size() + 1, table.size()));
        if (line.starts_with('/')) {
            files.push_back(withoutEscapes(line.substr(0, line.find_first_of(" \t"))));
        }
    }
    return files;
}

std::vector<std::string> kernelFiles() {
    std::string text;
    std::vector<std::string> files;
    if (readKernelFile("/proc/swaps", text)) files = swapFiles(text);
    std::error_code failed;
    const std::filesystem::path devices = "/sys/block";
    for (std::filesystem::directory_iterator at(devices, failed), end; !failed && at != end;
         at.increment(failed)) {
        if (!at->path().filename().native().starts_with("loop")) continue;
        const std::string backing = at->path() / "loop/backing_file";
        // There only while the device has a file; one line break at the end is the kernel's.
        if (!readKernelFile(backing.c_str(), text) || !text.starts_with('/')) continue;
        if (text.ends_with('\n')) text.pop_back();
        files.push_back(text);
    }
    return files;
}

} // namespace tidyro::platform
