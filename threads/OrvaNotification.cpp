#include <ovkit/OrvaNotification.h>

#include "threads/DeliveryWatch.h"

#include <algorithm>
#include <cstddef>

namespace OrvaSupport
{

// The id is documented as meaningless until it is given one; it starts at 0
// only so that copying a fresh notification reads a defined value.
OrvaNotification::OrvaNotification() : m_nId(0) {}

OrvaNotification::OrvaNotification(int id) : m_nId(id) {}

OrvaNotification::OrvaNotification(const OrvaNotification& other) : m_nId(other.m_nId) {}

OrvaNotification& OrvaNotification::operator=(const OrvaNotification& other)
{
    m_nId = other.m_nId;
    return *this;
}

OrvaNotification& OrvaNotification::operator=(int id)
{
    m_nId = id;
    return *this;
}

OrvaNotification::~OrvaNotification() noexcept(false) {}

void OrvaNotification::setId(int id)
{
    m_nId = id;
}

int OrvaNotification::getId() const
{
    return m_nId;
}

OrvaDependent::~OrvaDependent() noexcept(false) {}

void OrvaDependent::handleNotification(OrvaCollaborator&, const OrvaNotification&) {}

OrvaCollaborator::OrvaCollaborator() {}

OrvaCollaborator::OrvaCollaborator(const OrvaCollaborator&) {}

OrvaCollaborator& OrvaCollaborator::operator=(const OrvaCollaborator&)
{
    return *this;
}

OrvaCollaborator::~OrvaCollaborator() noexcept(false) {}

void OrvaCollaborator::addDependent(OrvaDependent& dependent)
{
    OrvaCriticalSection guard(m_oListLock, true);
    m_vDependents.push_back(&dependent);
}

void OrvaCollaborator::removeDependent(OrvaDependent& dependent)
{
    OrvaCriticalSection guard(m_oListLock, true);
    m_vDependents.erase(std::remove(m_vDependents.begin(), m_vDependents.end(), &dependent),
                        m_vDependents.end());
}

void OrvaCollaborator::notify(const OrvaNotification& notification)
{
    // Delivery by index, with the lock given up around each call: the list may
    // change under a callback, and the size is read again at every step. The
    // entry itself is read while the lock is held. While some owner watches
    // its dependent's deliveries (a group wait does), the step goes through
    // the watch, which marks a delivery to that dependent before the lock is
    // given up.
    m_oListLock.lock();
    for (std::size_t i = 0; i < m_vDependents.size(); ++i)
    {
        OrvaDependent* dependent = m_vDependents[i];
        if (internal::deliveriesWatched())
        {
            internal::deliverWatched(*this, *dependent, notification, m_oListLock);
        }
        else
        {
            m_oListLock.unlock();
            dependent->handleNotification(*this, notification);
        }
        m_oListLock.lock();
    }
    m_oListLock.unlock();
}

} // namespace OrvaSupport
