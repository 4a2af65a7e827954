#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <string>

#include "Base/SystemError.h"

namespace tidyro::platform {

enum class DiskChange : std::uint8_t { makeFolder, makeFile, write, flush, rename, remove };

/// What a flush is of: an open file, or the folder at a path.
struct FlushTarget {
    int file = -1;
    std::string folder = {};
};

/// Makes each system call that changes or flushes something on the disk. What
/// must survive a crash at any moment takes one as a parameter. A test hands in a gate that counts,
/// that lets the k-th call fail, or that ends the process there:
///
///     class FullDisk final : public platform::ChangeGate {
///         Done perform(platform::DiskChange, const std::function<Done()>&) override {
///             return std::unexpected(SystemError{ENOSPC});
///         }
///     };
///
/// The gate itself lets everything pass. It is asked by the thread that makes the call.
class ChangeGate {
  public:
    using Done = std::expected<void, SystemError>;

    virtual ~ChangeGate() = default;
    /// Makes the change, or leaves it out and says why.
    [[nodiscard]] virtual Done perform(DiskChange, const std::function<Done()>& change) {
        return change();
    }
    /// The same for a flush. A gate that does not ask what is flushed leaves it out.
    [[nodiscard]] virtual Done performFlush(const FlushTarget&,
                                            const std::function<Done()>& flush) {
        return perform(DiskChange::flush, flush);
    }

    /// The gate of all who hand in none. It has no state.
    [[nodiscard]] static ChangeGate& open();
};

/// Makes one change through a gate; `change` returns an `expected` without a value.
template <class Change>
[[nodiscard]] std::expected<void, SystemError> pass(ChangeGate& gate, DiskChange kind,
                                                    Change change) {
    return gate.perform(kind, change);
}
template <class Flush>
[[nodiscard]] std::expected<void, SystemError> passFlush(ChangeGate& gate,
                                                         const FlushTarget& target, Flush flush) {
    return gate.performFlush(target, flush);
}

} // namespace tidyro::platform
