#include "StorageEngine/AITools/AIToolDecision.h"

namespace tidyro {

std::string_view title(AIToolArtifactGroup group) {
    switch (group) {
        using enum AIToolArtifactGroup;
    case disposableCache: return "Disposable caches";
    case generatedWork: return "Generated work to review";
    case protectedState: return "Protected state";
    case unknownOrUnavailable: break;
    }
    return "Unknown or unavailable";
}

std::string_view explanation(AIToolDecision decision) {
    switch (decision) {
        using enum AIToolDecision;
    case eligibleDisposable:
        return "A verified rule for this tool recognises this as a cache or scratch file the tool "
               "recreates.";
    case eligibleForReview:
        return "The tool produced this for you. It can be removed only after you review it, and it "
               "may not come back the same.";
    case namedProtectedState:
        return "This is the tool's own state, such as settings, credentials, memories, skills or "
               "plugins. Tidyro never cleans it.";
    case database:
        return "This is a database or one of its side files. Tidyro measures it but never deletes, "
               "truncates or rewrites it.";
    case lockOrStaging:
        return "This is a lock or a staging area the tool uses while it works, so it stays "
               "untouched.";
    case currentRuntime: return "This is the runtime or version the tool currently uses.";
    case conversationOrHistory:
        return "This is conversation history, checkpoints or file history. Tidyro keeps it; the "
               "tool has its own retention setting.";
    case outsideAllowlist:
        return "This is outside the folders Tidyro is allowed to clean for this tool, so it is "
               "only measured.";
    case unrecognizedInsideAllowedRoot:
        return "Tidyro does not recognise this item, so it stays protected even though it sits in "
               "a cleanable folder.";
    case tooRecent:
        return "Changed within the last 24 hours, or within your chosen age limit. Recent items "
               "are always kept.";
    case futureTimestamp:
        return "Its date is in the future, so its age cannot be trusted and it is kept.";
    case inUseByProcess:
        return "A running process has this open or is working inside it, so it is kept.";
    case hardLinked:
        return "Another name points at the same data, so removing this one would not free space "
               "and could affect the other.";
    case symbolicLink:
        return "This is a link. Tidyro never follows or removes links during tool cleanup.";
    case notARegularFile: return "This is not an ordinary file, so it is left alone.";
    case unreadable: return "Tidyro could not read this item's details, so it is left alone.";
    case generalPolicy: return "Tidyro's general safety rules protect this item.";
    case inaccessible: break;
    }
    return "Tidyro could not open this folder, so what is inside it was not measured.";
}

} // namespace tidyro
