#include "Platform/Machine/SHA256.h"

#include <algorithm>

#include <CommonCrypto/CommonDigest.h>

namespace tidyro::platform {

struct SHA256::Body {
    CC_SHA256_CTX context;
};

SHA256::SHA256() : body_(std::make_unique<Body>()) { restart(); }

SHA256::~SHA256() = default;

void SHA256::restart() { CC_SHA256_Init(&body_->context); }

void SHA256::update(std::span<const std::byte> bytes) {
    constexpr std::size_t maxPerCall = 1U << 30U; // lengths are 32 bits wide here
    while (!bytes.empty()) {
        const auto part = bytes.first(std::min(bytes.size(), maxPerCall));
        CC_SHA256_Update(&body_->context, part.data(), static_cast<CC_LONG>(part.size()));
        bytes = bytes.subspan(part.size());
    }
}

SHA256::Digest SHA256::finish() {
    Digest digest;
    CC_SHA256_Final(digest.data(), &body_->context);
    restart();
    return digest;
}

} // namespace tidyro::platform
