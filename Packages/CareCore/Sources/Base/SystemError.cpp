#include "Base/SystemError.h"

#include <system_error>

namespace tidyro {

std::string SystemError::description() const { return std::generic_category().message(code); }

} // namespace tidyro
