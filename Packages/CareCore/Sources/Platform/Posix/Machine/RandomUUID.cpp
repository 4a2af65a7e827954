#include "Platform/Machine/RandomUUID.h"

#include <uuid/uuid.h>

namespace tidyro::platform {

UUID randomUUID() {
    UUID::Bytes bytes{};
    uuid_generate_random(bytes.data());
    return UUID(bytes);
}

} // namespace tidyro::platform
