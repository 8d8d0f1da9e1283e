// Member definitions of the property table: construction, the table
// operations and the parsing of one line. Included only by the source that
// instantiates the table for its four string types.
#ifndef OVKIT_CONFIG_ORVAPROPERTIESIMPL_H
#define OVKIT_CONFIG_ORVAPROPERTIESIMPL_H

#include <ovkit/OrvaProperties.h>

#include "sync/KillShield.h"

#include <algorithm>

namespace OrvaSupport
{

namespace PropertyLine
{

/// The value of a line whose separator stands at `separatorPos`: from behind
/// the separator, leading blanks removed, up to the line's first carriage
/// return, else its first line feed, else its end. Both are searched from the
/// start of the line; one that stands in front of the value's start does not
/// end it, and the value then runs to the end of the line.
template <class StringType>
StringType valueBehind(const StringType& line, typename StringType::size_type separatorPos)
{
    typedef typename StringType::value_type Char;
    typedef typename StringType::size_type size_type;

    const size_type start = separatorPos + 1;
    size_type end = line.find(Char('\r'));
    if (end == StringType::npos)
        end = line.find(Char('\n'));
    if (end == StringType::npos || end < start)
        end = line.size();

    // Only blanks are skipped: a tab opens the value.
    const size_type first = line.find_first_not_of(Char(' '), start);
    if (first == StringType::npos || first >= end)
        return StringType();
    return line.substr(first, end - first);
}

} // namespace PropertyLine

template <class StringType>
OrvaProperties<StringType>::OrvaProperties()
    : OrvaObjectBase(), OrvaCollaborator(), m_oPropertyLock(), m_mapProperties(), m_bMultiValued(true),
      m_sReserved()
{
}

template <class StringType>
OrvaProperties<StringType>::OrvaProperties(bool multiValued)
    : OrvaObjectBase(), OrvaCollaborator(), m_oPropertyLock(), m_mapProperties(), m_bMultiValued(multiValued),
      m_sReserved()
{
}

// The lock is not copied: a copied handle of an opened lock would make both
// tables share one lock. Dependents belong to the source alone.
template <class StringType>
OrvaProperties<StringType>::OrvaProperties(const OrvaProperties& other)
    : OrvaObjectBase(other), OrvaCollaborator(), m_oPropertyLock(), m_mapProperties(other.m_mapProperties),
      m_bMultiValued(other.m_bMultiValued), m_sReserved()
{
}

// The bases are left alone: assigning a table's content must not reset the
// reference count of a table that smart pointers hold.
template <class StringType>
OrvaProperties<StringType>& OrvaProperties<StringType>::operator=(const OrvaProperties& other)
{
    if (this != &other)
    {
        internal::runShielded(
            [&]
            {
                OrvaCriticalSection guard(m_oPropertyLock, true);
                m_mapProperties = other.m_mapProperties;
                m_bMultiValued = other.m_bMultiValued;
            });
    }
    return *this;
}

template <class StringType>
OrvaProperties<StringType>::~OrvaProperties()
{
}

template <class StringType>
void OrvaProperties<StringType>::addProperty(const StringType& name, const StringType& value)
{
    if (name.empty())
        return;

    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            typename PropertyMap::iterator entry = m_mapProperties.find(name);
            if (entry == m_mapProperties.end())
                m_mapProperties.insert(typename PropertyMap::value_type(name, ValueVector(1, value)));
            else if (m_bMultiValued || entry->second.empty())
                entry->second.push_back(value);
            else
                entry->second.front() = value;
        });
}

template <class StringType>
void OrvaProperties<StringType>::addProperty(const StringType& line, Char separator)
{
    if (line.empty() || line[0] == Char('#'))
        return;
    internal::runShielded(
        [&]
        {
            try
            {
                // In the case-insensitive types find() folds case, so a letter
                // as separator matches both its cases.
                const typename StringType::size_type separatorPos = line.find(separator);
                if (separatorPos == StringType::npos)
                    addProperty(line, StringType());
                else
                    addProperty(line.substr(0, separatorPos), PropertyLine::valueBehind(line, separatorPos));
            }
            catch (OrvaException&)
            {
                // A line that fails is dropped; the load goes on.
            }
        });
}

template <class StringType>
void OrvaProperties<StringType>::setProperty(const StringType& name, const StringType& value)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            typename PropertyMap::iterator entry = m_mapProperties.find(name);
            if (entry != m_mapProperties.end() && !entry->second.empty())
                entry->second.front() = value;
            else
                addProperty(name, value); // the lock is recursive
        });
}

template <class StringType>
void OrvaProperties<StringType>::removeProperty(const StringType& name)
{
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            m_mapProperties.erase(name);
        });
}

template <class StringType>
const StringType& OrvaProperties<StringType>::getProperty(const StringType& name,
                                                          const StringType& defaultValue) const
{
    const StringType* found = &defaultValue;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            typename PropertyMap::const_iterator entry = m_mapProperties.find(name);
            if (entry != m_mapProperties.end() && !entry->second.empty())
                found = &entry->second.front();
        });
    return *found;
}

template <class StringType>
StringType OrvaProperties<StringType>::getProperty(const StringType& name) const
{
    StringType value;
    if (!getPropertyValue(name, value))
        throw OrvaPropertyNotFound(name);
    return value;
}

template <class StringType>
bool OrvaProperties<StringType>::getPropertyValue(const StringType& name, StringType& value) const
{
    bool found = false;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            typename PropertyMap::const_iterator entry = m_mapProperties.find(name);
            if (entry == m_mapProperties.end() || entry->second.empty())
                return;
            value = entry->second.front();
            found = true;
        });
    return found;
}

template <class StringType>
typename OrvaProperties<StringType>::ValueVector
OrvaProperties<StringType>::getPropertyValues(const StringType& name) const
{
    ValueVector values;
    internal::runShielded(
        [&]
        {
            OrvaCriticalSection guard(m_oPropertyLock, true);
            typename PropertyMap::const_iterator entry = m_mapProperties.find(name);
            if (entry != m_mapProperties.end())
                values = entry->second;
        });
    return values;
}

template <class StringType>
typename OrvaProperties<StringType>::PropertyMap OrvaProperties<StringType>::getProperties() const
{
    return m_mapProperties;
}

template <class StringType>
int OrvaProperties<StringType>::size() const
{
    return static_cast<int>(m_mapProperties.size());
}

template <class StringType>
void OrvaProperties<StringType>::forEach(OrvaPropertyIterator<StringType>& iterator)
{
    if (m_mapProperties.empty())
        return;
    std::for_each(m_mapProperties.begin(), m_mapProperties.end(),
                  OrvaPropertyIteratorFunctor<StringType>(iterator));
}

template <class StringType>
void OrvaProperties<StringType>::loadProperties(const Char** lines, int count, Char separator)
{
    if (!lines)
        return;
    for (int i = 0; i < count; ++i)
    {
        if (lines[i])
            addProperty(StringType(lines[i]), separator);
    }
}

template <class StringType>
void OrvaProperties<StringType>::loadProperties(const std::vector<StringType>& lines, Char separator)
{
    std::for_each(lines.begin(), lines.end(), PopulateTable<StringType>(*this, separator));
}

} // namespace OrvaSupport

#endif // OVKIT_CONFIG_ORVAPROPERTIESIMPL_H
