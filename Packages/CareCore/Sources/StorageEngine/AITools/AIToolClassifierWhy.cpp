#include "StorageEngine/AITools/AIToolClassifier.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

using enum AIToolDecision;

std::string counted(double count, std::string_view unit) {
    return fmt::format("{:.0f} {}{}", count, unit, count == 1 ? "" : "s");
}

/// In whole units that people use; an age is never told as more than it is.
std::string spanOfTime(double seconds) {
    constexpr double minute = 60;
    constexpr double hour = 3'600;
    constexpr double day = 86'400;
    if (seconds < minute) return counted(std::floor(seconds), "second");
    if (seconds < hour) return counted(std::floor(seconds / minute), "minute");
    if (seconds < 2 * day) return counted(std::floor(seconds / hour), "hour");
    return counted(std::floor(seconds / day), "day");
}

std::string inQuotes(std::string_view name) { return fmt::format("\"{}\"", terminalSafe(name)); }

/// Of the names below a root the one that the decision is about.
std::string_view decidingName(AIToolDecision decision, std::span<const std::string> below) {
    if (decision != database && decision != lockOrStaging) return below.front();
    const auto isDatabase = [](const std::string& name) {
        return AIToolDatabaseNames::isDatabaseOrSidecar(name);
    };
    const auto isLock = [](const std::string& name) {
        const std::string lowered = lowercased(name);
        return lowered.ends_with(".lock") || lowered == "lock" || lowered.ends_with(".pid");
    };
    const auto found = decision == database ? std::ranges::find_if(below, isDatabase)
                                            : std::ranges::find_if(below, isLock);
    return found != below.end() ? *found : below.front();
}

/// What no rule recognised, or what a name protects.
std::string whyByNames(const AIToolLayout& layout, const AIToolLocation& at,
                       AIToolDecision decision, std::span<const std::string> below) {
    const std::string_view tool = displayName(layout.tool);
    if (at.components.empty()) {
        return fmt::format("This is {} of {} itself, which never goes as a whole.",
                           at.place.storeIndex ? "a store" : "the home", tool);
    }
    const auto names = below.empty() ? std::span<const std::string>(at.components) : below;
    const std::string name = inQuotes(decidingName(decision, names));
    if (at.components.size() == 1 && !at.place.storeIndex) {
        if (const AIToolGrowingFile* known = layout.growingFile(at.components.front())) {
            return fmt::format("{} stays, and only {} may make it smaller: {}", name, tool,
                               known->remedy);
        }
    }
    switch (decision) {
    case outsideAllowlist:
        return fmt::format("{} is not among the folders of {} that hold what may go: {}", name,
                           tool, explanation(decision));
    case unrecognizedInsideAllowedRoot:
        return fmt::format("None of {}'s rules for this folder recognises {}: {}", tool,
                           inQuotes(at.components.back()), explanation(decision));
    case currentRuntime:
        return fmt::format("{} may go once another version is proved to be in use: {}", name,
                           explanation(decision));
    default:
        return fmt::format("{} decides for all that lies in it, whatever its age: {}", name,
                           explanation(decision));
    }
}

} // namespace

std::string AIToolClassifier::why(const FileObservation& observation, const AIToolLocation& at,
                                  const Entry& entry) const {
    const AIToolClassification rated = classify(observation, at, entry);
    const AIToolLayout& layout = options_.layouts[static_cast<std::size_t>(at.home.tool)];
    const auto found = rated.recognizerID ? layout.recognizer(*rated.recognizerID) : std::nullopt;
    if (!found) {
        if (rated.decision == symbolicLink || rated.decision == notARegularFile ||
            rated.decision == unreadable) {
            return std::string(explanation(rated.decision));
        }
        const ByNames names = byNames(layout, at.place, at.components, entry.versionState);
        return whyByNames(layout, at, rated.decision, names.below);
    }
    const std::string_view tool = displayName(layout.tool);
    const std::string recognised =
        fmt::format("{}'s rule \"{}\" recognises this", tool, found->recognizer->title);
    switch (rated.decision) {
    case eligibleDisposable:
        return fmt::format("{}, and nothing speaks against it, so it may go.", recognised);
    case eligibleForReview:
        return fmt::format("{} as something made for you, so it may go once you have reviewed it.",
                           recognised);
    case tooRecent: {
        Timestamp newest = observation.modificationDate.value_or(options_.now);
        if (options_.honorsStatusChange && entry.statusChangeDate) {
            newest = std::max(newest, *entry.statusChangeDate);
        }
        const double age = options_.now.secondsSinceReference() - newest.secondsSinceReference();
        const double wanted = std::max(options_.minimumAge, AIToolAgePolicy::minAge);
        return fmt::format("{}, but it changed {} ago; it may go once it is older than {}.",
                           recognised, spanOfTime(age),
                           wanted == AIToolAgePolicy::minAge ? "24 hours" : spanOfTime(wanted));
    }
    case futureTimestamp:
        return fmt::format("{}, but nobody knows its age, since it has no date or one in the "
                           "future; it may go once its dates are old enough.",
                           recognised);
    case inUseByProcess: {
        if (options_.activity.isIncomplete) {
            return fmt::format("{}, but not every process could be asked whether it uses this; it "
                               "may go once all can.",
                               recognised);
        }
        const bool isByApp =
            found->root != nullptr && found->root->heldWhileAppRuns && options_.isToolAppRunning;
        return isByApp ? fmt::format("{}, but {} is running; it may go once {} has quit.",
                                     recognised, tool, tool)
                       : fmt::format("{}, but a running process has it open or works inside it; it "
                                     "may go once that process has ended.",
                                     recognised);
    }
    case hardLinked:
        return fmt::format("{}, but other names lead to the same data; it may go once this is the "
                           "only one.",
                           recognised);
    default: break;
    }
    return fmt::format("{}, but one of Tidyro's general safety rules protects it; it may go once "
                       "that rule no longer applies.",
                       recognised);
}

} // namespace tidyro
