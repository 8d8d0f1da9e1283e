// A minimal client of the installed library: it uses the umbrella header and
// exported symbols, so a missing header, export or link shows up here.
#include <ovkit/ovkit.h>

#include <cstdio>

int main()
{
    OrvaSupport::OrvaCriticalSectionObject lock;
    OrvaSupport::OrvaCriticalSection guard(lock, true);
    OrvaSupport::OrvaSmartPointer<OrvaSupport::OrvaObjectBase> object(new OrvaSupport::OrvaObjectBase);
    if (object->refCount() != 1 || lock.lockCount() != 1)
        return 1;
    std::printf("%s\n", object->getClassName().c_str());
    return 0;
}
