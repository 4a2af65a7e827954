#include "Platform/Machine/SealedBox.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "Base/Fault.h"

// OpenSSL on macOS as well: the system's own library has no AES-GCM that C++ may call.
namespace tidyro::platform {

namespace {

constexpr std::size_t nonceBytes = 12;
constexpr std::size_t tagBytes = 16;
constexpr std::size_t maxBytesPerCall = 1UL << 30U; // lengths are int

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

unsigned char* bytesOf(std::string& text, std::size_t offset = 0) {
    return reinterpret_cast<unsigned char*>(text.data()) + offset;
}
const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

const EVP_CIPHER* cipherFor(std::size_t keyBytes) {
    require(isUsableKeyLength(keyBytes), "a key has an unusable length");
    return keyBytes == 16   ? EVP_aes_128_gcm()
           : keyBytes == 24 ? EVP_aes_192_gcm()
                            : EVP_aes_256_gcm();
}

CipherContext begin(std::span<const std::byte> key, const unsigned char* nonce, bool isSealing) {
    CipherContext context(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    require(context != nullptr, "no memory for a cipher");
    require(EVP_CipherInit_ex(context.get(), cipherFor(key.size()), nullptr,
                              reinterpret_cast<const unsigned char*>(key.data()), nonce,
                              isSealing ? 1 : 0) == 1,
            "the cipher could not be started");
    return context;
}

/// The text after the cipher, as long as before: GCM adds no padding.
std::string run(EVP_CIPHER_CTX* context, std::string_view from) {
    std::string into(from.size(), '\0');
    std::size_t done = 0;
    while (!from.empty()) {
        const auto part = from.substr(0, maxBytesPerCall);
        int got = 0;
        require(EVP_CipherUpdate(context, bytesOf(into, done), &got, bytesOf(part),
                                 static_cast<int>(part.size())) == 1,
                "the cipher could not be continued");
        done += static_cast<std::size_t>(got);
        from.remove_prefix(part.size());
    }
    require(done == into.size(), "the cipher changed the length of a text");
    return into;
}

} // namespace

bool isUsableKeyLength(std::size_t byteCount) {
    return byteCount == 16 || byteCount == 24 || byteCount == 32;
}

std::string randomBytes(std::size_t byteCount) {
    std::string bytes(byteCount, '\0');
    require(RAND_bytes(bytesOf(bytes), static_cast<int>(byteCount)) == 1,
            "the system has no random bytes");
    return bytes;
}

struct Sealing::Body {
    std::string nonce;
    CipherContext context;
    bool isBegun = false; ///< the nonce stands before everything else

    [[nodiscard]] std::string head() {
        return std::exchange(isBegun, true) ? std::string() : nonce;
    }
};

Sealing::Sealing(std::span<const std::byte> key) {
    std::string nonce = randomBytes(nonceBytes);
    CipherContext context = begin(key, bytesOf(nonce), true);
    body_ = std::make_unique<Body>(Body{.nonce = std::move(nonce), .context = std::move(context)});
}

Sealing::~Sealing() = default;

std::string Sealing::add(std::string_view contents) {
    return body_->head() + run(body_->context.get(), contents);
}

std::string Sealing::end() {
    std::string tag(tagBytes, '\0');
    int none = 0;
    require(EVP_CipherFinal_ex(body_->context.get(), bytesOf(tag), &none) == 1 &&
                EVP_CIPHER_CTX_ctrl(body_->context.get(), EVP_CTRL_AEAD_GET_TAG, tagBytes,
                                    bytesOf(tag)) == 1,
            "the cipher could not be finished");
    return body_->head() + tag;
}

std::string seal(std::span<const std::byte> key, std::string_view contents) {
    Sealing sealing(key);
    std::string box = sealing.add(contents);
    return box += sealing.end();
}

std::optional<std::string> openSealed(std::span<const std::byte> key, std::string_view box) {
    if (box.size() < nonceBytes + tagBytes) return std::nullopt;
    const CipherContext context = begin(key, bytesOf(box), false);
    std::string contents =
        run(context.get(), box.substr(nonceBytes, box.size() - nonceBytes - tagBytes));
    std::string tag(box.substr(box.size() - tagBytes));
    std::string rest(tagBytes, '\0');
    int none = 0;
    if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tagBytes, bytesOf(tag)) != 1 ||
        EVP_CipherFinal_ex(context.get(), bytesOf(rest), &none) != 1) {
        ERR_clear_error(); // a box of somebody else's is no fault of the library
        return std::nullopt;
    }
    return contents;
}

} // namespace tidyro::platform
