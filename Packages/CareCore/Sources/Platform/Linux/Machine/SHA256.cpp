#include "Platform/Machine/SHA256.h"

#include <openssl/evp.h>

#include "Base/Fault.h"

namespace tidyro::platform {

namespace {

/// Looked up once: each look-up goes through the library's providers.
const EVP_MD* algorithm() {
    static const EVP_MD* const found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    require(found != nullptr, "the cryptographic library has no SHA-256");
    return found;
}

} // namespace

struct SHA256::Body {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
};

SHA256::SHA256() : body_(std::make_unique<Body>()) {
    require(body_->context != nullptr, "no memory for a digest");
    restart();
}

SHA256::~SHA256() { EVP_MD_CTX_free(body_->context); }

void SHA256::restart() {
    require(EVP_DigestInit_ex(body_->context, algorithm(), nullptr) == 1,
            "the digest could not be started");
}

void SHA256::update(std::span<const std::byte> bytes) {
    require(EVP_DigestUpdate(body_->context, bytes.data(), bytes.size()) == 1,
            "the digest could not be continued");
}

SHA256::Digest SHA256::finish() {
    Digest digest;
    require(EVP_DigestFinal_ex(body_->context, digest.data(), nullptr) == 1,
            "the digest could not be finished");
    restart();
    return digest;
}

} // namespace tidyro::platform
