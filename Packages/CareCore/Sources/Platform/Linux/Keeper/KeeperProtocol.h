#pragma once

#include <cstdint>

/// What this program and the keeper (main.cpp beside this) tell each other, a message a packet.
///
/// The keeper's arguments are the version of this protocol, the path of the program's file, and the
/// program's own arguments from its name on. Its standard descriptors, its environment and its
/// working folder are the program's. It starts the program when it is told to: whoever started the
/// keeper has a hold on it by then, and nothing runs that nobody could end.
namespace tidyro::platform::keeper {

/// An update may exchange the keeper's file while an older program runs.
inline constexpr const char* protocolVersion = "2";
inline constexpr const char* fileName = "tidyro-keeper";
inline constexpr int controlFD = 3; ///< the keeper's end of the connection

enum class News : std::int32_t {
    started, ///< value: 0, or why the program could not be started (errno)
    exited,  ///< value: the exit status, or 128 and the number of the signal
};
struct Report {
    News news;
    std::int32_t value;
};

/// When the connection closes before the first order, nothing starts. When it closes later, nobody
/// is left who could enforce the program's bounds. Then the keeper gives itself the two other
/// orders, the second one some seconds after the first.
enum class Order : std::int32_t {
    start,
    terminate, ///< SIGTERM to the program's group
    end,       ///< SIGKILL to all that is left; the keeper goes when nothing is
};

} // namespace tidyro::platform::keeper
