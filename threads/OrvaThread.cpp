#include <ovkit/OrvaModule.h>

namespace OrvaSupport
{

void OVKITInitOrvaThread() {}

void OVKITFinitOrvaThread() {}

} // namespace OrvaSupport
