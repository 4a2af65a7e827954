#include "StorageEngine/Trash/CleanupMutationError.h"

namespace tidyro {

namespace {

using Kind = CleanupMutationError::Kind;

/// What people have to know of an item that is not where it was.
std::string whereItLies(const std::optional<FileURL>& displaced) {
    if (!displaced) return {};
    return " What had its name in that moment could not go back and lies at " + displaced->path() +
           ".";
}

std::string sentence(Kind kind, const std::string& ending) {
    switch (kind) {
    case Kind::moveFailed: return "Tidyro could not move this to the Trash" + ending;
    case Kind::removeFailed: return "Tidyro could not remove this permanently" + ending;
    case Kind::sourceMissing:
        return "The item was already gone by the time Tidyro tried to move it, so nothing "
               "happened. It may have been moved or deleted another way.";
    case Kind::notARegularFile:
        return "The item was no longer an ordinary file by the time Tidyro reached it, so it was "
               "left alone.";
    case Kind::identityChanged:
        return "The item changed after it was scanned, so it was left alone. Scan again if you "
               "still want to clean it.";
    case Kind::outsideAuthorizedRoot: break;
    }
    return "The item was no longer inside the folder that gave Tidyro permission to touch it, so "
           "it was left alone.";
}

std::string shortSentence(Kind kind, const std::string& ending) {
    switch (kind) {
    case Kind::moveFailed: return "The Trash move did not complete" + ending;
    case Kind::removeFailed: return "The item could not be removed" + ending;
    case Kind::sourceMissing: return "The item was gone before it could be moved.";
    case Kind::notARegularFile: return "The item was no longer an ordinary file.";
    case Kind::identityChanged: return "The item changed after it was reviewed.";
    case Kind::outsideAuthorizedRoot: break;
    }
    return "The item was outside the folder that authorized it.";
}

} // namespace

std::string CleanupMutationError::description() const {
    const std::string because = reason ? ": " + *reason : std::string();
    const std::string ending = displaced ? "." : ". Nothing else was changed.";
    return sentence(kind, because + ending) + whereItLies(displaced);
}

std::string CleanupMutationError::receiptDescription() const {
    std::string ending = reason ? ": " + *reason : ".";
    if (reason && displaced) ending += ".";
    return shortSentence(kind, ending) + whereItLies(displaced);
}

} // namespace tidyro
