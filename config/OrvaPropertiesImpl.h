// Member definitions of the property table: construction, the table
// operations and the parsing of one line. Included only by the source that
// instantiates the table for its four string types.
#ifndef OVKIT_CONFIG_ORVAPROPERTIESIMPL_H
#define OVKIT_CONFIG_ORVAPROPERTIESIMPL_H

#include <ovkit/OrvaProperties.h>

#include "sync/KillShield.h"

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <utility>

namespace OrvaSupport
{

namespace PropertyLine
{

/// Where the name and the value of one line lie, as offsets into the line.
struct Parts
{
    std::size_t nameLength;
    std::size_t valueStart;
    std::size_t valueLength;
};

/// Splits the `length` characters at `line` into name and value, searching
/// and comparing with the traits of the table's string type, and returns
/// false for a line that stores nothing (empty, a comment, or an empty name).
///
/// The name is everything in front of the first separator, or the whole line
/// when there is none (the value is then empty). The value starts behind the
/// separator, leading blanks removed, and ends at the line's first carriage
/// return, else its first line feed, else its end. Both are searched from the
/// start of the line; one that stands in front of the value's start does not
/// end it, and the value then runs to the end of the line.
template <class Traits, class Char>
bool split(const Char* line, std::size_t length, Char separator, Parts& parts)
{
    if (length == 0 || line[0] == Char('#'))
        return false;

    // In the case-insensitive traits find() folds case, so a letter as
    // separator matches both its cases.
    const Char* separatorAt = Traits::find(line, length, separator);
    if (separatorAt == nullptr)
    {
        parts.nameLength = length;
        parts.valueStart = length;
        parts.valueLength = 0;
        return true;
    }
    parts.nameLength = static_cast<std::size_t>(separatorAt - line);
    if (parts.nameLength == 0)
        return false;

    const std::size_t start = parts.nameLength + 1;
    const Char* endAt = Traits::find(line, length, Char('\r'));
    if (endAt == nullptr)
        endAt = Traits::find(line, length, Char('\n'));
    std::size_t end = endAt ? static_cast<std::size_t>(endAt - line) : length;
    if (end < start)
        end = length;

    // Only blanks are skipped: a tab opens the value.
    std::size_t first = start;
    while (first < end && Traits::eq(line[first], Char(' ')))
        ++first;
    parts.valueStart = first;
    parts.valueLength = end - first;
    return true;
}

} // namespace PropertyLine

namespace PropertyStore
{

/// Stores `value` under `name` in `table` by the rules of addProperty: a new
/// name gets a vector of this one value, a known name gets it appended
/// (`multiValued`) or has its first value replaced. One search of the tree
/// finds the entry or makes it; a new entry that cannot get its value is
/// taken out again, so every entry keeps at least one value. The caller holds
/// the table's lock.
template <class Map, class Name, class Value>
void store(Map& table, bool multiValued, Name&& name, Value&& value)
{
    const std::pair<typename Map::iterator, bool> entry = table.emplace(
        std::piecewise_construct, std::forward_as_tuple(std::forward<Name>(name)), std::forward_as_tuple());
    typename Map::mapped_type& values = entry.first->second;
    if (entry.second)
    {
        try
        {
            values.push_back(std::forward<Value>(value));
        }
        catch (...)
        {
            table.erase(entry.first);
            throw;
        }
    }
    else if (multiValued || values.empty())
        values.push_back(std::forward<Value>(value));
    else
        values.front() = std::forward<Value>(value);
}

} // namespace PropertyStore

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
            PropertyStore::store(m_mapProperties, m_bMultiValued, name, value);
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
                PropertyLine::Parts parts;
                if (!PropertyLine::split<typename StringType::traits_type>(line.data(), line.size(),
                                                                           separator, parts))
                    return;
                StringType name(line.data(), parts.nameLength);
                StringType value(line.data() + parts.valueStart, parts.valueLength);
                OrvaCriticalSection guard(m_oPropertyLock, true);
                PropertyStore::store(m_mapProperties, m_bMultiValued, std::move(name), std::move(value));
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
