#pragma once

#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Safety/SafetyPolicyContext.h"

namespace tidyro::testing {

/// What a safety policy is told of a machine on which nothing runs and nothing is protected. Its
/// one internal volume is the one of `FakeVolumes::withOneAt`. A test adds what it is about.
inline SafetyPolicyFacts quietMachine() {
    return {.currentUserID = platform::currentUserID(),
            .internalLocalVolumeIdentifiers = {"inside"},
            .activeApplicationRoots = {},
            .additionalProtectedRoots = {},
            .activelyGrowingPaths = {},
            .openByProcessPaths = {}};
}

} // namespace tidyro::testing
