#include <ovkit/OrvaObjectBase.h>

#include <ovkit/OrvaCriticalSection.h>

#include "sync/KillShield.h"
#include "sync/LockInternals.h"

#include <cctype>
#include <cstdlib>
#include <typeinfo>
#include <vector>

namespace OrvaSupport
{

OrvaCriticalSectionObject* g_pCriticalSection = nullptr;

template class OrvaSmartPointer<OrvaObjectBase>;

void OVKITInitOrvaObjectBase()
{
    if (!g_pCriticalSection)
    {
        g_pCriticalSection = new OrvaCriticalSectionObject();
        // Opened now, while the process has one thread: the global section
        // opens itself without a guard, so two first users must not race.
        g_pCriticalSection->init();
    }
}

void OVKITFinitOrvaObjectBase()
{
    delete g_pCriticalSection;
    g_pCriticalSection = nullptr;
}

OrvaObjectBase::~OrvaObjectBase() noexcept(false) {}

// The count changes under the process-wide section, held just around the
// addition. These frames need no exception tables, so a thread killed at any
// of their instructions unwinds through them cleanly (its recover function
// gives the section back).
int OrvaObjectBase::addRef()
{
    return internal::adjustUnderLock(*g_pCriticalSection, m_nRefCount, 1);
}

int OrvaObjectBase::release()
{
    const int count = internal::adjustUnderLock(*g_pCriticalSection, m_nRefCount, -1);
    if (count != 0)
        return count;
    // The destructor runs outside the global section, and is not cut short
    // by a kill: destructors free memory.
    internal::runShielded([this] { delete this; });
    return 0;
}

bool OrvaObjectBase::isA(const std::string& name) const
{
    return name == getClassName();
}

std::string OrvaObjectBase::getClassName() const
{
    return normalizeClassName(typeid(*this).name());
}

namespace
{

// The character at `i`, or NUL past the end, so that short names can be
// probed without reading beyond the text.
char charAt(const std::string& s, std::string::size_type i)
{
    return i < s.size() ? s[i] : '\0';
}

bool isDigitAt(const std::string& s, std::string::size_type i)
{
    return std::isdigit(static_cast<unsigned char>(charAt(s, i))) != 0;
}

std::string::size_type skipDigits(const std::string& s, std::string::size_type i)
{
    while (isDigitAt(s, i))
        ++i;
    return i;
}

// Reads the decimal run at `i` and moves `i` past it; 0 if there is none.
long readNumber(const std::string& s, std::string::size_type& i)
{
    std::string::size_type end = skipDigits(s, i);
    long value = 0;
    for (std::string::size_type k = i; k < end; ++k)
        value = value * 10 + (s[k] - '0');
    i = end;
    return value;
}

} // namespace

std::string OrvaObjectBase::normalizeClassName(const std::string& rawName)
{
    const std::string s = rawName;
    std::vector<std::string> components;
    std::string::size_type i = 1;

    if (charAt(s, 0) == 'Q')
    {
        long n = 1;
        if (charAt(s, 1) == '_')
        {
            std::string::size_type j = 2;
            n = readNumber(s, j);
            i = j + 1; // the character behind the digits is skipped unseen
        }
        else if (isDigitAt(s, 2))
        {
            n = charAt(s, 1) - '0';
            i = 2;
        }
        for (--n; n >= 1; --n)
        {
            long length = readNumber(s, i);
            components.push_back(s.substr(i, length));
            i += length;
        }
    }
    i = skipDigits(s, i);
    components.push_back(s.substr(i));

    std::string result = components.front();
    for (std::size_t k = 1; k < components.size(); ++k)
        result += "::" + components[k];
    return result;
}

} // namespace OrvaSupport
