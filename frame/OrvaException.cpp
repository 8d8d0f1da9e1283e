#include <ovkit/OrvaException.h>

#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaStringUtilities.h>

#include "text/AsciiConversion.h"

namespace OrvaSupport
{

OrvaException::OrvaException() : m_nCode(0) {}

OrvaException::OrvaException(int code) : m_nCode(code) {}

OrvaException::OrvaException(const std::string& text, int code)
    : m_sText(OrvaStringUtilities::widen(text, OrvaLocaleFactory::getDefaultLocale(true))), m_nCode(code)
{
    m_dqMessages.push_back(m_sText);
}

OrvaException::OrvaException(const std::wstring& text, int code) : m_sText(text), m_nCode(code)
{
    m_dqMessages.push_back(m_sText);
}

OrvaException::OrvaException(const OrvaException& other)
    : m_sText(other.m_sText), m_nCode(other.m_nCode), m_dqMessages(other.m_dqMessages)
{
}

OrvaException& OrvaException::operator=(const OrvaException& other)
{
    if (this != &other)
    {
        m_sText = other.m_sText;
        m_nCode = other.m_nCode;
        m_dqMessages = other.m_dqMessages;
    }
    return *this;
}

OrvaException::~OrvaException() {}

std::string OrvaException::getText() const
{
    try
    {
        return OrvaStringUtilities::narrow(m_sText, OrvaLocaleFactory::getDefaultLocale(true));
    }
    catch (const OrvaException& failure)
    {
        // The failure's own text is ASCII; narrowing it through the locale
        // again could only fail the same way.
        return asciiNarrow(failure.getUText());
    }
}

const std::wstring& OrvaException::getUText() const
{
    return m_sText;
}

void OrvaException::setText(const std::string& text)
{
    m_sText = OrvaStringUtilities::widen(text, OrvaLocaleFactory::getDefaultLocale(true));
}

void OrvaException::setText(const std::wstring& text)
{
    m_sText = text;
}

int OrvaException::getCode() const
{
    return m_nCode;
}

void OrvaException::setCode(int code)
{
    m_nCode = code;
}

void OrvaException::pushMessage(const std::wstring& message)
{
    m_dqMessages.push_back(message);
}

std::wstring OrvaException::popMessage()
{
    if (m_dqMessages.empty())
        return std::wstring();
    std::wstring message = m_dqMessages.back();
    m_dqMessages.pop_back();
    return message;
}

const std::deque<std::wstring>& OrvaException::getCallStack() const
{
    return m_dqMessages;
}

std::wstring OrvaException::getFormattedMessages() const
{
    std::wstring result;
    for (auto line = m_dqMessages.rbegin(); line != m_dqMessages.rend(); ++line)
    {
        if (!result.empty())
            result += L'\n';
        result += *line;
    }
    return result;
}

OrvaInvalidDateException::OrvaInvalidDateException(const std::string& text)
    : OrvaException("OrvaInvalidDateException - " + text, 0)
{
}

OrvaInvalidDateException::~OrvaInvalidDateException() {}

OrvaInvalidEncryptionException::OrvaInvalidEncryptionException(const std::string& text)
    : OrvaException("OrvaInvalidEncryptionException - " + text, 0)
{
}

OrvaInvalidEncryptionException::~OrvaInvalidEncryptionException() {}

OrvaNoSuchElementException::OrvaNoSuchElementException(const std::string& text)
    : OrvaException("OrvaNoSuchElementException - " + text, 0)
{
}

OrvaNoSuchElementException::~OrvaNoSuchElementException() {}

OrvaMissingMessageException::OrvaMissingMessageException(const std::string& text)
    : OrvaException("OrvaMissingMessageException - Missing " + text, 0)
{
}

OrvaMissingMessageException::~OrvaMissingMessageException() {}

OrvaKeyDataNotSupportedException::OrvaKeyDataNotSupportedException(const std::string& text)
    : OrvaException("OrvaKeyDataNotSupportedException - " + text, 0)
{
}

OrvaKeyDataNotSupportedException::~OrvaKeyDataNotSupportedException() {}

namespace
{

const char s_szPropertyNotFound[] = "Property not found: ";
const wchar_t s_wszPropertyNotFound[] = L"Property not found: ";

// The exception's text is narrow: a wide name is joined to the wide words and
// the whole narrowed with the default locale.
std::string narrowPropertyText(const std::wstring& text)
{
    return OrvaStringUtilities::narrow(text, OrvaLocaleFactory::getDefaultLocale(true));
}

} // namespace

OrvaPropertyNotFound::OrvaPropertyNotFound() {}

OrvaPropertyNotFound::OrvaPropertyNotFound(const std::string& name)
    : OrvaException(s_szPropertyNotFound + name, 0)
{
}

OrvaPropertyNotFound::OrvaPropertyNotFound(const std::wstring& name)
    : OrvaException(narrowPropertyText(s_wszPropertyNotFound + name), 0)
{
}

// Case-insensitive names are appended as C strings: an embedded zero ends them.
OrvaPropertyNotFound::OrvaPropertyNotFound(const ci_string& name)
    : OrvaException(std::string(s_szPropertyNotFound) + name.c_str(), 0)
{
}

OrvaPropertyNotFound::OrvaPropertyNotFound(const ci_wstring& name)
    : OrvaException(narrowPropertyText(std::wstring(s_wszPropertyNotFound) + name.c_str()), 0)
{
}

OrvaPropertyNotFound::OrvaPropertyNotFound(const OrvaPropertyNotFound& other) : OrvaException(other) {}

OrvaPropertyNotFound& OrvaPropertyNotFound::operator=(const OrvaPropertyNotFound& other)
{
    OrvaException::operator=(other);
    return *this;
}

OrvaPropertyNotFound::~OrvaPropertyNotFound() {}

} // namespace OrvaSupport
