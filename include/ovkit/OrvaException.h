/// \file
/// The library's failure type and its derived classes.
///
///     try { ... throw OrvaException("OrvaFoo::bar: no such file", 0); }
///     catch (OrvaException& e) { e.pushMessage(L"while loading the settings"); throw; }
///     ...
///     std::wcerr << e.getFormattedMessages();   // newest line first, the first text last
///
/// OrvaException carries a wide text, an integer code and a stack of wide
/// messages to which each layer that passes the failure on may add a line. It
/// has no base class (it is not a std::exception): catch it by reference by
/// this name. Narrow texts are widened, and getText() narrows, with the
/// library's default locale (OrvaLocaleFactory::getDefaultLocale).
///
/// The derived classes add no field: each only forms its text from a fixed
/// prefix and its argument and passes it, with code 0, to the narrow-text
/// constructor, so the text is also the first entry of the message stack.
///
/// An exception object is meant for one thread at a time.
#ifndef OVKIT_ORVAEXCEPTION_H
#define OVKIT_ORVAEXCEPTION_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaStringTraits.h>

#include <deque>
#include <string>

namespace OrvaSupport
{

/// Wide text, code and message stack of a failure. Every operation is virtual.
class OVKIT_API OrvaException
{
public:
    /// Empty text, code 0, empty stack.
    OrvaException();
    /// Empty text, the code, empty stack.
    explicit OrvaException(int code);
    /// The text widened with the default locale, the code, and the text pushed
    /// as the first entry of the message stack.
    OrvaException(const std::string& text, int code = 0);
    /// The text as given, the code, and the text pushed as the first entry of
    /// the message stack.
    OrvaException(const std::wstring& text, int code = 0);
    ///@{
    /// Copies the text, the code and the whole message stack.
    OrvaException(const OrvaException& other);
    OrvaException& operator=(const OrvaException& other);
    ///@}
    virtual ~OrvaException();

    /// The text narrowed with the default locale; characters without a narrow
    /// form come out as blanks. Should the narrowing itself fail, the text of
    /// that failure is returned instead.
    virtual std::string getText() const;
    /// The wide text itself.
    virtual const std::wstring& getUText() const;
    /// Replaces the text with the widened argument; the stack is not touched.
    virtual void setText(const std::string& text);
    /// Replaces the text; the stack is not touched.
    virtual void setText(const std::wstring& text);
    /// The code: the constructor's, or the last one set; 0 unless given.
    virtual int getCode() const;
    /// Replaces the code; the text and the stack are not touched.
    virtual void setCode(int code);
    /// Appends a line to the back (the newest end) of the message stack.
    virtual void pushMessage(const std::wstring& message);
    /// Removes the newest line and returns it. On an empty stack it returns an
    /// empty string and leaves the exception as it is.
    virtual std::wstring popMessage();
    /// The message stack itself; the back is the newest line.
    virtual const std::deque<std::wstring>& getCallStack() const;
    /// All lines of the stack, newest first, each separated from the next by
    /// one line feed, with none at the end. Empty when the stack is empty. The
    /// exception is left as it is.
    virtual std::wstring getFormattedMessages() const;

private:
    std::wstring m_sText;
    int m_nCode;
    std::deque<std::wstring> m_dqMessages;
};

/// A date or time that cannot be formed or read. Text:
/// "OrvaInvalidDateException - " + argument.
class OVKIT_API OrvaInvalidDateException : public OrvaException
{
public:
    /// Text "OrvaInvalidDateException - " + `text` (also the first entry of the stack), code 0.
    explicit OrvaInvalidDateException(const std::string& text);
    ~OrvaInvalidDateException() override;
};

/// A failure to encrypt or decrypt. Text:
/// "OrvaInvalidEncryptionException - " + argument.
class OVKIT_API OrvaInvalidEncryptionException : public OrvaException
{
public:
    /// Text "OrvaInvalidEncryptionException - " + `text` (also the first entry of the stack), code 0.
    explicit OrvaInvalidEncryptionException(const std::string& text);
    ~OrvaInvalidEncryptionException() override;
};

/// A name that a lookup does not know. Text:
/// "OrvaNoSuchElementException - " + argument.
class OVKIT_API OrvaNoSuchElementException : public OrvaException
{
public:
    /// Text "OrvaNoSuchElementException - " + `text` (also the first entry of the stack), code 0.
    explicit OrvaNoSuchElementException(const std::string& text);
    ~OrvaNoSuchElementException() override;
};

/// A message that a message set lacks. Text:
/// "OrvaMissingMessageException - Missing " + argument.
class OVKIT_API OrvaMissingMessageException : public OrvaException
{
public:
    /// Text "OrvaMissingMessageException - Missing " + `text` (also the first entry of the stack), code 0.
    explicit OrvaMissingMessageException(const std::string& text);
    ~OrvaMissingMessageException() override;
};

/// A kind of key data that the operation does not support. Text:
/// "OrvaKeyDataNotSupportedException - " + argument.
class OVKIT_API OrvaKeyDataNotSupportedException : public OrvaException
{
public:
    /// Text "OrvaKeyDataNotSupportedException - " + `text` (also the first entry of the stack), code 0.
    explicit OrvaKeyDataNotSupportedException(const std::string& text);
    ~OrvaKeyDataNotSupportedException() override;
};

/// A property name that a property table does not hold. Text:
/// "Property not found: " + name, code 0. A wide name is joined to the wide
/// form of those words and then narrowed with the default locale (so a
/// character without a narrow form becomes a blank). A case-insensitive name
/// is appended as a C string: an embedded zero ends it. The default
/// constructor gives an empty text and an empty stack. A bare literal is
/// taken as a plain narrow or wide string.
class OVKIT_API OrvaPropertyNotFound : public OrvaException
{
public:
    OrvaPropertyNotFound();
    ///@{
    /// Text "Property not found: " + `name` (also the first entry of the
    /// stack), code 0; see the class for wide and case-insensitive names.
    explicit OrvaPropertyNotFound(const std::string& name);
    explicit OrvaPropertyNotFound(const std::wstring& name);
    explicit OrvaPropertyNotFound(const ci_string& name);
    explicit OrvaPropertyNotFound(const ci_wstring& name);
    ///@}
    ///@{
    /// A literal name, taken as a plain narrow or wide string.
    explicit OrvaPropertyNotFound(const char* name) : OrvaPropertyNotFound(std::string(name)) {}
    explicit OrvaPropertyNotFound(const wchar_t* name) : OrvaPropertyNotFound(std::wstring(name)) {}
    ///@}
    ///@{
    /// Copies the text, the code and the message stack.
    OrvaPropertyNotFound(const OrvaPropertyNotFound& other);
    OrvaPropertyNotFound& operator=(const OrvaPropertyNotFound& other);
    ///@}
    ~OrvaPropertyNotFound() override;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAEXCEPTION_H
