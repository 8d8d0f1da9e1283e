/// \file
/// Loading a shared library and looking up its symbols.
///
///     OrvaSmartPointer<OrvaLibrary> plugin(new OrvaLibrary("agentplugin", false));  // libagentplugin.so
///     typedef int (*t_Init)();
///     t_Init init = reinterpret_cast<t_Init>(plugin->getProcAddr("plugin_init"));
///     if (init) init();
///
/// An OrvaLibrary loads its library when it is constructed and unloads it when
/// it is destroyed. It is reference-counted: share it through
/// OrvaSmartPointer<OrvaLibrary>, which keeps the library loaded for as long
/// as any holder needs code from it.
///
/// Copies are a different matter. A copy (or an assignment) shares the
/// loader's handle but does not load the library again, and the first of the
/// objects that share a handle to be destroyed unloads the library for all of
/// them: symbols found through the others may then point at nothing. The
/// library never closes a handle twice, though: the later objects close
/// nothing, and their getProcAddr() gives null. An assignment closes nothing
/// either: the handle the target held before stays loaded, unless another
/// object sharing it closes it.
#ifndef OVKIT_ORVALIBRARY_H
#define OVKIT_ORVALIBRARY_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaObjectBase.h>

#include <string>

namespace OrvaSupport
{

/// One loaded shared library. No lock is taken; the loader's error state
/// (dlerror) is per thread, so threads may look up symbols at the same time.
class OVKIT_API OrvaLibrary : public OrvaObjectBase
{
public:
    /// Loads the file "lib" + name + ".so", or `name` itself when `exactName`
    /// is true, with all symbols bound at once and not made global. The
    /// loader searches as it always does; a name holding a `/` is a path.
    /// On failure throws OrvaException, code 0, with the text
    /// "OrvaLibrary::OrvaLibrary: failed to load: " + name + ".  " + the
    /// loader's message: the name as given, a point and two blanks.
    OrvaLibrary(const std::string& name, bool exactName);
    /// Shares the handle without loading again; the count starts at 0.
    OrvaLibrary(const OrvaLibrary& other);
    /// Takes the other's name and handle; the handle held so far is not
    /// closed, and the count stays as it is. Self-assignment does nothing.
    OrvaLibrary& operator=(const OrvaLibrary& other);
    /// Unloads the library, unless another object sharing the handle did so
    /// already. Failures of the unloading are ignored.
    ~OrvaLibrary() override;

    /// The address of `symbol`, or null when the library has no such symbol
    /// or was unloaded by another object sharing the handle. A symbol whose
    /// value is null also gives null.
    void* getProcAddr(const std::string& symbol);

private:
    /// The name as given to the constructor, undecorated.
    std::string m_sName;
    void* m_pHandle;
};

extern template class OVKIT_API OrvaSmartPointer<OrvaLibrary>;

} // namespace OrvaSupport

#endif // OVKIT_ORVALIBRARY_H
