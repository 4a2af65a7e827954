#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>
#include <type_traits>
#include <utility>

#include "Base/Fault.h"

namespace tidyro {

/// A growing array of plain values, for columns of millions of elements.
///
/// When std::vector grows it copies to a second block, so that both blocks take memory for a while.
/// This one grows by realloc, which moves a large block by remapping its pages on the systems we
/// run on. So its peak is the elements themselves, and room that is reserved ahead costs nothing
/// until it is written to.
template <class T>
class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    GrowingArray() = default;
    GrowingArray(GrowingArray&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    GrowingArray& operator=(GrowingArray&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }
    GrowingArray(const GrowingArray& other) { append(other.span()); }
    GrowingArray& operator=(const GrowingArray& other) {
        if (this != &other) *this = GrowingArray(other);
        return *this;
    }
    ~GrowingArray() { std::free(data_); }

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    [[nodiscard]] std::size_t capacityBytes() const noexcept { return capacity_ * sizeof(T); }
    [[nodiscard]] T* data() noexcept { return data_; }
    [[nodiscard]] const T* data() const noexcept { return data_; }
    [[nodiscard]] T& operator[](std::size_t i) noexcept { return data_[i]; }
    [[nodiscard]] const T& operator[](std::size_t i) const noexcept { return data_[i]; }
    [[nodiscard]] T* begin() noexcept { return data_; }
    [[nodiscard]] T* end() noexcept { return data_ + size_; }
    [[nodiscard]] const T* begin() const noexcept { return data_; }
    [[nodiscard]] const T* end() const noexcept { return data_ + size_; }
    [[nodiscard]] std::span<const T> span() const noexcept { return {data_, size_}; }

    /// Makes room for `count` more elements: the appends that follow move nothing.
    void reserveMore(std::size_t count) {
        if (count > capacity_ - size_) grow(size_ + count);
    }
    void push(T value) {
        reserveMore(1);
        data_[size_++] = value;
    }
    void append(std::span<const T> values) {
        if (values.empty()) return;
        reserveMore(values.size());
        std::memcpy(data_ + size_, values.data(), values.size_bytes());
        size_ += values.size();
    }
    void append(std::size_t count, T value) {
        reserveMore(count);
        for (std::size_t i = 0; i < count; ++i) data_[size_ + i] = value;
        size_ += count;
    }
    /// Lengthens by `count` elements, which the caller writes before anybody reads them.
    [[nodiscard]] T* appendUnset(std::size_t count) {
        reserveMore(count);
        size_ += count;
        return data_ + (size_ - count);
    }
    /// Shortens, or lengthens with zeroed elements.
    void resize(std::size_t size) {
        if (size > size_) append(size - size_, T{});
        size_ = size;
    }
    /// Empties, keeping the room.
    void clear() noexcept { size_ = 0; }
    /// Empties and gives the room back.
    void release() noexcept {
        std::free(data_);
        data_ = nullptr;
        size_ = capacity_ = 0;
    }

    friend bool operator==(const GrowingArray& a, const GrowingArray& b)
        requires requires(T value) { value == value; }
    {
        if (a.size_ != b.size_) return false;
        for (std::size_t i = 0; i < a.size_; ++i) {
            if (!(a.data_[i] == b.data_[i])) return false;
        }
        return true;
    }

  private:
    void grow(std::size_t atLeast) {
        std::size_t capacity = capacity_ + capacity_ / 2;
        if (capacity < atLeast) capacity = atLeast;
        if (capacity < 16) capacity = 16;
        // Only plain values are held, and realloc keeps their bytes.
        void* grown = std::realloc(static_cast<void*>(data_), capacity * sizeof(T));
        if (grown == nullptr) outOfMemory();
        data_ = static_cast<T*>(grown);
        capacity_ = capacity;
    }

    T* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace tidyro
