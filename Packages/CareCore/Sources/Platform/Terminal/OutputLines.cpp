#include "Platform/Terminal/OutputLines.h"

#include <system_error>

#include <fmt/format.h>

#include "Platform/Terminal/StandardStreams.h"

namespace tidyro::platform {

OutputLines::OutputLines() { reportWriteFailuresAsErrors(); }

void OutputLines::write(std::string_view text) {
    if (failure_) return;
    const auto written = writeAll(Stream::output, text);
    if (!written) failure_ = written.error();
}

int OutputLines::ending(int status) const {
    if (!failure_ || failure_->code == static_cast<int>(std::errc::broken_pipe)) return status;
    static_cast<void>(writeAll(Stream::error, fmt::format("The output could not be written ({}).\n",
                                                          failure_->description())));
    return 1;
}

} // namespace tidyro::platform
