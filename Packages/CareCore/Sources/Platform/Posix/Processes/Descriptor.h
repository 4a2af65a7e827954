#pragma once

#include <utility>

#include <unistd.h>

namespace tidyro::platform {

/// A descriptor that is closed when its owner goes.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    void close() {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }
    [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

  private:
    int fd_ = -1;
};

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

} // namespace tidyro::platform
