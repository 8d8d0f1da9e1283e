#include <ovkit/OrvaModule.h>

namespace OrvaSupport
{

void OVKITInitOrvaTimer() {}

void OVKITFinitOrvaTimer() {}

} // namespace OrvaSupport
