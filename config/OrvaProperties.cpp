#include <ovkit/OrvaProperties.h>

#include "config/OrvaPropertiesFileImpl.h"
#include "config/OrvaPropertiesImpl.h"

namespace OrvaSupport
{

PropertyChanged::PropertyChanged() : OrvaNotification(0), m_sPropertyName() {}

PropertyChanged::PropertyChanged(const std::string& name, int id)
    : OrvaNotification(id), m_sPropertyName(name)
{
}

PropertyChanged::PropertyChanged(const PropertyChanged& other)
    : OrvaNotification(other), m_sPropertyName(other.m_sPropertyName)
{
}

PropertyChanged& PropertyChanged::operator=(const PropertyChanged& other)
{
    if (this != &other)
    {
        OrvaNotification::operator=(other);
        m_sPropertyName = other.m_sPropertyName;
    }
    return *this;
}

PropertyChanged::~PropertyChanged() {}

template class OrvaPropertyIterator<std::string>;
template class OrvaPropertyIterator<std::wstring>;
template class OrvaPropertyIterator<ci_string>;
template class OrvaPropertyIterator<ci_wstring>;

template class OrvaProperties<std::string>;
template class OrvaProperties<std::wstring>;
template class OrvaProperties<ci_string>;
template class OrvaProperties<ci_wstring>;

template class OrvaSmartPointer<OrvaProperties<std::string>>;

} // namespace OrvaSupport
