#include "StorageEngine/Trash/CleanupMutationError.h"

namespace tidyro {

std::string CleanupMutationError::description() const {
    const std::string because = reason ? ": " + *reason : std::string();
    switch (kind) {
    case Kind::moveFailed:
        return "Tidyro could not move this to the Trash" + because + ". Nothing else was changed.";
    case Kind::removeFailed:
        return "Tidyro could not remove this permanently" + because + ". Nothing else was changed.";
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
           "it "
           "was left alone.";
}

std::string CleanupMutationError::receiptDescription() const {
    const std::string ending = reason ? ": " + *reason : ".";
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

} // namespace tidyro
