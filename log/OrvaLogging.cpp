#include <ovkit/OrvaModule.h>

namespace OrvaSupport
{

void OVKITInitOrvaLogging() {}

void OVKITFinitOrvaLogging() {}

} // namespace OrvaSupport
