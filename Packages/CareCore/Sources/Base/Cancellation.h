#pragma once

#include <stop_token>

namespace tidyro {

/// How a caller asks a long operation to end early. Operations are synchronous and take one; the
/// caller owns the thread and the std::stop_source. A default-made token never asks.
using CancelToken = std::stop_token;

/// What an operation that was asked to end returns in place of its result: the one cancellation
/// error of the system, an alternative of each cancellable operation's error.
struct CancellationError {
    bool operator==(const CancellationError&) const = default;
};

} // namespace tidyro
