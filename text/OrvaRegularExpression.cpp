#include <ovkit/OrvaRegularExpression.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLogging.h>

#include "text/RegularExpressionCompiler.h"
#include "text/RegularExpressionSearch.h"

#include <stdexcept>
#include <utility>

using OrvaSupport::OrvaCriticalSection;
using OrvaSupport::OrvaLogging;

namespace
{

using namespace OrvaSupport::internal;

// ---------------------------------------------------------------------------
// Records. All are of level 9; which are written at which global level is
// told beside regexTracedInFull and regexTraced.

/// The log, with a level 9 record begun.
OrvaLogging& record()
{
    return *OrvaLogging::getInstance() << OrvaSupport::setloglevel(9);
}

/// An offset as records show it: the absent position as -1.
long recordOffset(unsigned int offset)
{
    return offset == c_nNoRegexPosition ? -1L : static_cast<long>(offset);
}

const char* const c_szTypeWords[] = {"in set", "not in set", "literal segment=", "any", "begin", "end"};
const char* const c_szFactorWords[] = {"one", "zero or one", "zero or more", "one or more"};

template <std::size_t N>
const char* wordOf(const char* const (&words)[N], int value)
{
    return value >= 0 && static_cast<std::size_t>(value) < N ? words[value] : "?";
}

/// The records of one stack entry: its token, "\tmatch token:" and the entry
/// itself, with `segment` as the entry's text.
template <class S>
void printEntry(const OrvaRegularExpressionImplementation<S>& impl,
                const typename OrvaRegularExpressionImplementation<S>::MatchToken& entry, const S& segment)
{
    impl.print(*entry.token);
    record() << "\tmatch token:" << OrvaSupport::endrecord;
    record() << "\t\tsegment: " << segment << ":" << entry.position << ":" << entry.length << ":"
             << entry.previous << OrvaSupport::endrecord;
}

/// addMatch's records. Kept out of line, so that the untraced steps stay short.
template <class S>
__attribute__((noinline)) void
recordMatch(const OrvaRegularExpressionImplementation<S>& impl,
            const typename OrvaRegularExpressionImplementation<S>::MatchToken& match, const S& segment)
{
    record() << "OrvaRegularExpressionImplementation::addMatch: begin" << OrvaSupport::endrecord;
    printEntry(impl, match, segment);
    record() << "OrvaRegularExpressionImplementation::addMatch: end" << OrvaSupport::endrecord;
}

/// matchLiteral's record of its substring search.
template <class S>
__attribute__((noinline)) void recordLiteralSearch(const S& text, const S& segment, unsigned int pos,
                                                   unsigned int found)
{
    record() << text << ".find (" << segment << ", " << recordOffset(pos) << ") = " << recordOffset(found)
             << OrvaSupport::endrecord;
}

} // namespace

// ---------------------------------------------------------------------------
// OrvaRegularExpressionImplementation

template <class S>
struct OrvaRegularExpressionImplementation<S>::CompiledPattern
{
    TokenList tokens;
    /// One per token, made once the compile has ended (a compile that an
    /// exception cut short leaves none: the segments serve then).
    std::vector<CharTable> tables;
};

template <class S>
OrvaRegularExpressionImplementation<S>::OrvaRegularExpressionImplementation()
    : m_sPattern(), m_pCompiled(std::make_shared<CompiledPattern>()), m_oLock(false)
{
}

template <class S>
OrvaRegularExpressionImplementation<S>::OrvaRegularExpressionImplementation(
    const OrvaRegularExpressionImplementation& other)
    : m_sPattern(), m_pCompiled(), m_oLock(false)
{
    OrvaCriticalSection guard(other.m_oLock, true);
    m_sPattern = other.m_sPattern;
    m_pCompiled = other.m_pCompiled;
}

template <class S>
OrvaRegularExpressionImplementation<S>&
OrvaRegularExpressionImplementation<S>::operator=(const OrvaRegularExpressionImplementation& other)
{
    if (this == &other)
        return *this;
    // The source is read under its lock and released before this object's
    // lock is taken: an inner lock is never held while waiting for another.
    OrvaRegularExpressionImplementation copy(other);
    OrvaCriticalSection guard(m_oLock, true);
    m_sPattern.swap(copy.m_sPattern);
    m_pCompiled.swap(copy.m_pCompiled);
    return *this;
}

template <class S>
OrvaRegularExpressionImplementation<S>::~OrvaRegularExpressionImplementation()
{
}

template <class S>
bool OrvaRegularExpressionImplementation<S>::setPatternImpl(const S& pattern, std::string& error)
{
    OrvaCriticalSection guard(m_oLock, true);
    if (!compile(pattern, error))
        return false;
    m_sPattern = pattern;
    return true;
}

template <class S>
bool OrvaRegularExpressionImplementation<S>::compile(const S& pattern, std::string& error)
{
    OrvaCriticalSection guard(m_oLock, true);
    // A fresh list takes the old one's place at once, as if it were emptied.
    // Searches reach it only through this lock, so it is filled in place, and
    // whatever was made before a fault stays in use.
    m_pCompiled = std::make_shared<CompiledPattern>();
    TokenList& tokens = m_pCompiled->tokens;
    try
    {
        const char* fault = PatternCompiler<S>(pattern).run(tokens);
        for (const ExpressionToken& token : tokens)
            m_pCompiled->tables.emplace_back(token.segment);
        if (fault == nullptr)
            return true;
        error = fault;
        return false;
    }
    catch (OrvaSupport::OrvaException& e)
    {
        tokens.clear();
        m_pCompiled->tables.clear();
        error = e.getText();
        return false;
    }
}

template <class S>
void OrvaRegularExpressionImplementation<S>::print() const
{
    if (!regexTracedInFull())
        return;
    // Logged after the lock is given back: a thread with a record open may be
    // waiting for this lock in a search.
    S pattern;
    std::shared_ptr<const CompiledPattern> compiled;
    {
        OrvaCriticalSection guard(m_oLock, true);
        pattern = m_sPattern;
        compiled = m_pCompiled;
    }
    record() << "regular expression: " << pattern << OrvaSupport::endrecord;
    for (const ExpressionToken& token : compiled->tokens)
        print(token);
}

template <class S>
void OrvaRegularExpressionImplementation<S>::print(const ExpressionToken& token) const
{
    if (!regexTraced())
        return;
    OrvaLogging& log = record() << "ExpressionToken: type=" << wordOf(c_szTypeWords, token.type);
    if (token.type == ExpressionToken::Literal)
        log << token.segment;
    log << " factor=" << wordOf(c_szFactorWords, token.factor) << OrvaSupport::endrecord;
}

template <class S>
unsigned int OrvaRegularExpressionImplementation<S>::find(const S& text, unsigned int& length,
                                                          unsigned int pos) const
{
    if (text.size() >= npos)
        throw std::length_error("OrvaRegularExpressionImplementation::find: the text has more than "
                                "4294967294 characters");
    std::shared_ptr<const CompiledPattern> compiled;
    {
        OrvaCriticalSection guard(m_oLock, true);
        compiled = m_pCompiled;
    }
    MatchStack<MatchToken> stack;
    SearchRun<S> search(*this, compiled->tokens, compiled->tables, text, pos, stack.entries());
    search.run(compiled->tokens.end());

    if (regexTracedInFull())
    {
        record() << "OrvaRegularExpressionImplementation::find: match stack begin" << OrvaSupport::endrecord;
        // Entries keep their text only while tracing: a literal's is its
        // token's, any other's is the character at its place.
        for (const MatchToken& entry : stack.entries())
            printEntry(*this, entry,
                       entry.token->type == ExpressionToken::Literal ? entry.token->segment
                                                                     : text.substr(entry.position, 1));
        record() << "OrvaRegularExpressionImplementation::find: match stack end" << OrvaSupport::endrecord;
    }
    const unsigned int result = search.verdict(length);
    if (regexTraced())
        record() << "OrvaRegularExpressionImplementation::find: match found at " << recordOffset(result)
                 << ":" << length << OrvaSupport::endrecord;
    return result;
}

template <class S>
unsigned int OrvaRegularExpressionImplementation<S>::matchLiteral(const S& text, unsigned int pos,
                                                                  iterator token,
                                                                  std::vector<MatchToken>& stack) const
{
    const S& segment = token->segment;
    const unsigned int found = findText(text, segment, pos);
    if (regexTraced())
        recordLiteralSearch(text, segment, pos, found);
    if (found == npos || (found != pos && !stack.empty()))
        return npos;
    const unsigned int size = static_cast<unsigned int>(segment.size());
    MatchToken match{segment, found, size, 0, token};
    addMatch(match, token, stack);
    return found + size;
}

template <class S>
unsigned int OrvaRegularExpressionImplementation<S>::matchAny(const S& text, unsigned int pos, iterator token,
                                                              std::vector<MatchToken>& stack) const
{
    if (pos >= text.size())
        return npos;
    return pushCharacter(*this, text, pos, token, stack);
}

template <class S>
unsigned int OrvaRegularExpressionImplementation<S>::matchSet(const S& text, unsigned int pos, iterator token,
                                                              std::vector<MatchToken>& stack) const
{
    // Only the character at the cursor counts: a set never skips forward.
    if (pos >= text.size())
        return npos;
    const bool member = token->segment.find(text[pos]) != S::npos;
    if (member != (token->type == ExpressionToken::InSet))
        return npos;
    return pushCharacter(*this, text, pos, token, stack);
}

template <class S>
bool OrvaRegularExpressionImplementation<S>::addMatch(MatchToken& match, iterator token,
                                                      std::vector<MatchToken>& stack) const
{
    match.token = token;
    match.previous = backLinkOf(stack, *token);
    if (regexTracedInFull())
        recordMatch(*this, match, token->type == ExpressionToken::Literal ? token->segment : match.segment);
    stack.push_back(match);
    return true;
}

template class OrvaRegularExpressionImplementation<std::string>;
template class OrvaRegularExpressionImplementation<std::wstring>;

// ---------------------------------------------------------------------------
// OrvaRegularExpression

namespace OrvaSupport
{

template <class S>
OrvaRegularExpression<S>::OrvaRegularExpression() : m_oImplementation(), m_oLock(false)
{
}

template <class S>
OrvaRegularExpression<S>::OrvaRegularExpression(const OrvaRegularExpression& other)
    : m_oImplementation(other.m_oImplementation), m_oLock(false)
{
}

template <class S>
OrvaRegularExpression<S>& OrvaRegularExpression<S>::operator=(const OrvaRegularExpression& other)
{
    if (this != &other)
    {
        OrvaCriticalSection guard(m_oLock, true);
        m_oImplementation = other.m_oImplementation;
    }
    return *this;
}

template <class S>
OrvaRegularExpression<S>::~OrvaRegularExpression()
{
}

template <class S>
void OrvaRegularExpression<S>::setPattern(const S& pattern)
{
    std::string error;
    if (!setPatternImpl(pattern, error))
        throw OrvaException(error, 0);
}

template <class S>
bool OrvaRegularExpression<S>::setPatternImpl(const S& pattern, std::string& error)
{
    OrvaCriticalSection guard(m_oLock, true);
    return m_oImplementation.setPatternImpl(pattern, error);
}

template <class S>
void OrvaRegularExpression<S>::print() const
{
    m_oImplementation.print();
}

template <class S>
unsigned int OrvaRegularExpression<S>::find(const S& text, unsigned int& length, unsigned int pos) const
{
    return m_oImplementation.find(text, length, pos);
}

template <class S>
unsigned int OrvaRegularExpression<S>::find(const S& text, unsigned int pos) const
{
    unsigned int length = 0;
    return m_oImplementation.find(text, length, pos);
}

template <class S>
S OrvaRegularExpression<S>::match(const S& text, unsigned int pos) const
{
    unsigned int length = 0;
    const unsigned int at = m_oImplementation.find(text, length, pos);
    return at == npos ? S() : text.substr(at, length);
}

template <class S>
S OrvaRegularExpression<S>::replace(const S& text, const S& replacement, Occurrence occurrence,
                                    unsigned int pos) const
{
    OrvaCriticalSection guard(m_oLock, true);
    S result(text);
    unsigned int length = 0;
    for (;;)
    {
        const unsigned int at = m_oImplementation.find(result, length, pos);
        if (at == npos)
            break;
        result.replace(at, length, replacement);
        // The inserted text is never searched again.
        pos = at + static_cast<unsigned int>(replacement.size());
        if (occurrence != All)
            break;
        // An empty match would be found again at the same place for ever:
        // keep the next character and search on behind it.
        if (length == 0)
            ++pos;
    }
    return result;
}

template class OrvaRegularExpression<std::string>;
template class OrvaRegularExpression<std::wstring>;

} // namespace OrvaSupport
