#include <ovkit/OrvaModule.h>

#include <ovkit/OrvaObjectFactory.h>

#include <ios>

namespace OrvaSupport
{

ModuleData* ModuleData::m_pHead = nullptr;

ModuleData::ModuleData(bool autoAttach)
    : m_bAutoAttach(autoAttach), m_pPrev(nullptr), m_pNext(m_pHead), m_nUseCount(0)
{
    if (m_pHead)
        m_pHead->m_pPrev = this;
    m_pHead = this;
}

ModuleData::~ModuleData()
{
    if (m_pHead == this)
    {
        m_pHead = m_pNext;
        if (m_pHead)
            m_pHead->m_pPrev = nullptr;
        return;
    }
    // Out of order: only the head's back link is touched, and the record's
    // neighbours keep pointing at it.
    for (ModuleData* record = m_pHead; record; record = record->m_pNext)
    {
        if (record->m_pNext == this)
        {
            m_pHead->m_pPrev = m_pPrev;
            break;
        }
    }
}

void ModuleData::entry()
{
    ModuleData* record = m_pHead;
    while (record->m_pNext)
        record = record->m_pNext;
    for (; record; record = record->m_pPrev)
    {
        if (record->m_nUseCount == 0)
            record->attach();
        ++record->m_nUseCount;
    }
}

void ModuleData::exit()
{
    for (ModuleData* record = m_pHead; record; record = record->m_pNext)
    {
        if (record->m_nUseCount > 0 && --record->m_nUseCount == 0)
            record->detach();
    }
}

ModuleDataControl::ModuleDataControl()
{
    ModuleData::entry();
}

ModuleDataControl::~ModuleDataControl()
{
    ModuleData::exit();
}

} // namespace OrvaSupport

Module::Module(bool autoAttach) : ModuleData(autoAttach)
{
    if (m_bAutoAttach)
    {
        if (m_nUseCount == 0)
            attach();
        ++m_nUseCount;
    }
}

Module::~Module()
{
    if (m_bAutoAttach && m_nUseCount > 0 && --m_nUseCount == 0)
    {
        try
        {
            detach();
        }
        catch (...)
        {
            // The remaining steps are skipped; the record still leaves the list.
        }
    }
}

void Module::attach()
{
    using namespace OrvaSupport;
    OVKITInitOrvaObjectBase(); // first: every later object counts and locks through it
    OVKITInitOrvaThread();
    OVKITInitOrvaLogging();
    OVKITInitOrvaTimer();
    OVKITInitOrvaLoggingTimer();
}

void Module::detach()
{
    using namespace OrvaSupport;
    OrvaObjectFactory::deleteGlobalInstance();
    OVKITFinitOrvaLoggingTimer();
    OVKITFinitOrvaTimer();
    OVKITFinitOrvaLogging();
    OVKITFinitOrvaThread();
    OVKITFinitOrvaObjectBase(); // last: every destruction up to here may count
}

// The library's statics must see a started module, and must be gone before it
// stops. Initialisation priorities put the module ahead of every other static
// of the library, whatever the link order, and so its destruction after all
// of them. Ahead of it come only the stream-library object, so that the
// standard streams are ready for anything the start sequence does, and the
// thread exit list, which the module's stop sequence must still find in
// place while it waits for the library's threads to end.
static std::ios_base::Init s_streamInit __attribute__((init_priority(101)));
Module g_ModuleData __attribute__((init_priority(102))) (true);
