#include <ovkit/OrvaModule.h>

namespace OrvaSupport
{

void OVKITInitOrvaLoggingTimer() {}

void OVKITFinitOrvaLoggingTimer() {}

} // namespace OrvaSupport
