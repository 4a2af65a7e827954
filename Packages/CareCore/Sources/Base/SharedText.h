#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "Base/Fault.h"

namespace tidyro {

/// A text that never changes and that many records share. Copying it allocates nothing. It refers
/// to one of the program's own texts, or owns a text together with all its copies.
///
/// Reports hold some for each of hundreds of thousands of items, so it is half as large as a view
/// and a shared pointer would be.
class SharedText {
  public:
    SharedText() = default;
    /// One of the program's own texts: a literal, which lives as long as the program.
    template <std::size_t Count>
    // NOLINTNEXTLINE: a literal is a text
    SharedText(const char (&literal)[Count]) : SharedText(lasting({literal, Count - 1})) {}
    SharedText(const SharedText& other) noexcept
        : bytes_(other.bytes_), size_(other.size_), isOwned_(other.isOwned_) {
        if (isOwned_) owners().fetch_add(1, std::memory_order_relaxed);
    }
    SharedText(SharedText&& other) noexcept { swap(other); }
    SharedText& operator=(SharedText other) noexcept {
        swap(other);
        return *this;
    }
    ~SharedText() {
        if (isOwned_ && owners().fetch_sub(1, std::memory_order_acq_rel) == 1) {
            ::operator delete(block());
        }
    }

    /// A text that was put together.
    [[nodiscard]] static SharedText made(std::string_view text) {
        void* block = ::operator new(sizeof(Owners) + text.size());
        new (block) Owners(1);
        char* bytes = static_cast<char*>(block) + sizeof(Owners);
        text.copy(bytes, text.size());
        SharedText shared = lasting({bytes, text.size()});
        shared.isOwned_ = true;
        return shared;
    }
    /// A text that lives as long as the program.
    [[nodiscard]] static SharedText lasting(std::string_view text) {
        require(text.size() <= std::numeric_limits<std::uint32_t>::max(), "a text for people");
        SharedText shared;
        shared.bytes_ = text.data();
        shared.size_ = static_cast<std::uint32_t>(text.size());
        return shared;
    }

    [[nodiscard]] std::string_view text() const noexcept { return {bytes_, size_}; }
    operator std::string_view() const noexcept { return text(); } // NOLINT: it is a text

    friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
        return a.text() == b.text();
    }

  private:
    using Owners = std::atomic<std::size_t>;

    /// The number of copies stands before the bytes that they own.
    [[nodiscard]] void* block() const noexcept {
        return const_cast<char*>(bytes_) - sizeof(Owners); // NOLINT: `made` allocated it
    }
    [[nodiscard]] Owners& owners() const noexcept { return *static_cast<Owners*>(block()); }
    void swap(SharedText& other) noexcept {
        std::swap(bytes_, other.bytes_);
        std::swap(size_, other.size_);
        std::swap(isOwned_, other.isOwned_);
    }

    const char* bytes_ = "";
    std::uint32_t size_ = 0;
    bool isOwned_ = false;
};

} // namespace tidyro
