#pragma once

#include <stop_token>

namespace tidyro {

/// How a caller asks a long operation to end early. Operations are synchronous and take a token.
/// The caller owns the thread and the std::stop_source. A default-made token never asks.
using CancelToken = std::stop_token;

/// The error of an operation that ended because it was asked to. It is one alternative of the error
/// of each operation that can be cancelled.
struct CancellationError {
    bool operator==(const CancellationError&) const = default;
};

} // namespace tidyro
