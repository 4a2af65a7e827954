// Reading the arguments of the command line.
#include <algorithm>

#include "App/CommandLineMode.h"
#include "Base/ArgumentText.h"

namespace tidyro {

namespace {

constexpr std::string_view usage =
    "Usage: Tidyro --cli <command> <folder> [options]\n"
    "  scan <folder> [--largest N]           Read a folder, time it, list the largest items and "
    "Cleanup's groups\n"
    "  duplicates <folder> [--min-size BYTES] [--include-system]\n"
    "                                        Find byte-identical copies\n"
    "  index <folder> [--query TEXT]...      Build Find's index of names and time each query\n"
    "  snapshot <folder>                     Scan and keep the result in Activity's snapshots\n"
    "Nothing is moved or deleted.";
static_assert(usage.size() == 489);

constexpr std::int64_t mostLargest = 1'000;

/// The arguments after the command, taken from the left.
class Walker {
  public:
    Walker(std::span<const std::string> arguments, CommandLineMode::Request& request)
        : rest_(arguments), request_(request) {}

    /// False when the arguments are malformed.
    [[nodiscard]] bool reads() {
        while (!rest_.empty()) {
            if (!readsNext(take())) return false;
        }
        return !request_.path.empty();
    }

  private:
    const std::string& take() {
        const std::string& first = rest_.front();
        rest_ = rest_.subspan(1);
        return first;
    }
    [[nodiscard]] std::optional<std::string> value() {
        if (rest_.empty()) return std::nullopt;
        return take();
    }

    [[nodiscard]] bool readsNext(const std::string& argument) {
        if (argument == "--include-system") {
            request_.includeSystem = true;
            return true;
        }
        if (argument == "--largest") return readsLargest(value());
        if (argument == "--min-size") return readsMinimum(value());
        if (argument == "--query") return readsQuery(value());
        if (argument.starts_with('-')) {
            if (!rest_.empty() && !rest_.front().starts_with('-')) take();
            return true;
        }
        if (!request_.path.empty()) return false;
        request_.path = argument;
        return true;
    }

    [[nodiscard]] bool readsLargest(const std::optional<std::string>& text) {
        const auto number = text ? decimalArgument<std::int64_t>(*text) : std::nullopt;
        if (!number || *number <= 0) return false;
        request_.largest = std::min(*number, mostLargest);
        return true;
    }
    [[nodiscard]] bool readsMinimum(const std::optional<std::string>& text) {
        const auto number = text ? decimalArgument<std::uint64_t>(*text) : std::nullopt;
        if (!number) return false;
        request_.minimumBytes = std::max<std::uint64_t>(*number, 1);
        return true;
    }
    [[nodiscard]] bool readsQuery(const std::optional<std::string>& text) {
        if (text) request_.queries.push_back(*text);
        return text.has_value();
    }

    std::span<const std::string> rest_;
    CommandLineMode::Request& request_;
};

} // namespace

const std::string_view CommandLineMode::usageText = usage;

CommandLineMode::ParseResult CommandLineMode::parse(std::span<const std::string> arguments,
                                                    std::string_view home) {
    const auto flag = std::ranges::find(arguments, "--cli");
    if (flag == arguments.end()) return NotRequested{};
    const auto asked = arguments.subspan(static_cast<std::size_t>(flag - arguments.begin()) + 1);
    const auto command = asked.empty() ? std::nullopt : fromRawValue<Command>(asked.front());
    if (!command) return Usage{usageText};

    Request request{.command = *command, .path = {}};
    if (!Walker(asked.subspan(1), request).reads()) return Usage{usageText};
    request.path = folderArgument(request.path, home);
    return request;
}

} // namespace tidyro
