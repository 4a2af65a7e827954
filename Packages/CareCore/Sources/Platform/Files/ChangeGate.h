#pragma once

#include <cstdint>
#include <expected>

#include "Base/SystemError.h"

namespace tidyro::platform {

enum class DiskChange : std::uint8_t { makeFolder, makeFile, write, flush, rename, remove };

/// Stands before and behind each system call that changes or flushes something on the disk. What
/// must survive a crash at any moment takes one as a parameter. A test hands in a gate that counts,
/// that lets the k-th call fail, or that ends the process there:
///
///     class FullDisk final : public platform::ChangeGate {
///         std::expected<void, SystemError> before(platform::DiskChange) override {
///             return std::unexpected(SystemError{ENOSPC});
///         }
///     };
///
/// The gate itself lets everything pass. It is asked by the thread that makes the call.
class ChangeGate {
  public:
    virtual ~ChangeGate() = default;
    /// With an error the call is left out and fails with it.
    [[nodiscard]] virtual std::expected<void, SystemError> before(DiskChange) { return {}; }
    /// After a call that succeeded.
    virtual void after(DiskChange) {}

    /// The gate of all who hand in none. It has no state.
    [[nodiscard]] static ChangeGate& open();
};

/// Makes one change through a gate; `change` returns an `expected` without a value.
template <class Change>
[[nodiscard]] std::expected<void, SystemError> pass(ChangeGate& gate, DiskChange kind,
                                                    Change change) {
    if (auto allowed = gate.before(kind); !allowed) return allowed;
    std::expected<void, SystemError> done = change();
    if (done) gate.after(kind);
    return done;
}

} // namespace tidyro::platform
