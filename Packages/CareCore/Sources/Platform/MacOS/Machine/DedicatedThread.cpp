#include "Platform/Machine/DedicatedThread.h"

#include <pthread.h>
#include <pthread/qos.h>

namespace tidyro::platform {

void nameThisThread(const std::string& name, Quality quality) {
    // Both are courtesies; without them the thread works the same.
    static_cast<void>(::pthread_setname_np(name.c_str()));
    static_cast<void>(::pthread_set_qos_class_self_np(
        quality == Quality::userInitiated ? QOS_CLASS_USER_INITIATED : QOS_CLASS_UTILITY, 0));
}

std::uint64_t waitCountOfThisThread() { return 0; }

} // namespace tidyro::platform
