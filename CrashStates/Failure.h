#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tidyro::crash {

/// No crash can be told of: something that has to work did not.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What failed, with the reason of the last system call.
[[noreturn]] inline void failWithReason(const std::string& what) {
    throw Failure(what + ": " + std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
}

} // namespace tidyro::crash
