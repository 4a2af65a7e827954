#include "Platform/Machine/DedicatedThread.h"

#include <pthread.h>
#include <sys/resource.h>

namespace tidyro::platform {

void nameThisThread(const std::string& name, Quality /*quality*/) {
    constexpr std::size_t maxLength = 15; // the kernel's limit
    std::string shown = name;
    if (shown.size() > maxLength) {
        const std::size_t number = shown.find_last_not_of("0123456789") + 1;
        const std::string tail = shown.substr(number);
        shown = shown.substr(0, maxLength - tail.size()) + tail;
    }
    // A name is a courtesy; without it the thread works the same.
    static_cast<void>(::pthread_setname_np(::pthread_self(), shown.c_str()));
}

std::uint64_t waitCountOfThisThread() {
    rusage usage{};
    return ::getrusage(RUSAGE_THREAD, &usage) == 0 ? static_cast<std::uint64_t>(usage.ru_nvcsw) : 0;
}

} // namespace tidyro::platform
