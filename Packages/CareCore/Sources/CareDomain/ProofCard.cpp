#include "CareDomain/ProofCard.h"

#include "Base/Fault.h"
#include "Platform/Machine/OperatingSystem.h"

namespace tidyro {

std::string_view recoveryMethod(CleanupExecutionMode mode) {
    switch (mode) {
    case CleanupExecutionMode::simulation: return "Simulation only; no file is moved or deleted.";
    case CleanupExecutionMode::recoverable: return platform::systemText(SystemText::movedToTrash);
    case CleanupExecutionMode::permanent: return "Removed permanently. This cannot be undone.";
    }
    fault("a mode of cleanup that does not exist");
}

} // namespace tidyro
