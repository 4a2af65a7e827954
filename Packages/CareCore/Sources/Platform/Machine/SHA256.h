#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace tidyro::platform {

/// SHA-256 from the system's cryptographic library, with the processor's own instructions where it
/// has them.
///
///     SHA256 hash;
///     hash.update(bytes);
///     hexText(hash.finish())     // "9f86d081884c7d65..."
///
/// Use one for many messages, one after another: making it costs more than starting it again. Used
/// by one thread at a time.
class SHA256 {
  public:
    using Digest = std::array<std::uint8_t, 32>;

    SHA256();
    ~SHA256();
    SHA256(const SHA256&) = delete;
    SHA256& operator=(const SHA256&) = delete;

    void update(std::span<const std::byte> bytes);
    /// The digest of everything since the last digest. The next message begins.
    [[nodiscard]] Digest finish();
    /// Forgets everything since the last digest.
    void restart();

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

/// 64 lower-case hexadecimal characters.
[[nodiscard]] std::string hexText(const SHA256::Digest& digest);

} // namespace tidyro::platform
