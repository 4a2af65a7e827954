#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// Authenticated encryption: AES-GCM from the system's cryptographic library.
///
///     const auto box = platform::seal(key, "secret");
///     platform::openSealed(key, box)       // "secret"; none with another key or a changed box
///
/// A box is a fresh random nonce of 12 bytes, the ciphertext, and a tag of 16 bytes. Any thread may
/// call.
namespace tidyro::platform {

/// A key has 16, 24 or 32 bytes (AES-128, -192 or -256).
[[nodiscard]] bool isUsableKeyLength(std::size_t byteCount);

/// The key has a usable length. A failure of the library is a fault of the program.
[[nodiscard]] std::string seal(std::span<const std::byte> key, std::string_view contents);

/// The same piece by piece. The results of all calls, one after another, are the box. Used by one
/// thread.
class Sealing {
  public:
    explicit Sealing(std::span<const std::byte> key);
    ~Sealing();
    Sealing(const Sealing&) = delete;
    Sealing& operator=(const Sealing&) = delete;

    [[nodiscard]] std::string add(std::string_view contents);
    /// Called once, at the end.
    [[nodiscard]] std::string end();

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

/// What the box holds; none when it was not made with this key, or was changed since.
[[nodiscard]] std::optional<std::string> openSealed(std::span<const std::byte> key,
                                                    std::string_view box);

/// Bytes that nobody can guess, from the system's random source.
[[nodiscard]] std::string randomBytes(std::size_t byteCount);

} // namespace tidyro::platform
