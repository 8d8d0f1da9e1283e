#include <ovkit/OrvaRegularExpression.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLogging.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

using OrvaSupport::OrvaCriticalSection;
using OrvaSupport::OrvaLogging;

namespace
{

const unsigned int c_nNoPosition = 0xFFFFFFFFu;

// ---------------------------------------------------------------------------
// Tracing. The token dump, addMatch's records and the stack dump are written
// only at global level 9 exactly; a token's own record, a literal's substring
// search and the search result at any global level above 8. All records are
// of level 9.

bool traceExactly9()
{
    return OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() == 9;
}

bool traceAbove8()
{
    return OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() > 8;
}

/// The log, with a level 9 record begun.
OrvaLogging& record()
{
    return *OrvaLogging::getInstance() << OrvaSupport::setloglevel(9);
}

/// An offset as records show it: the absent position as -1.
long recordOffset(unsigned int offset)
{
    return offset == c_nNoPosition ? -1L : static_cast<long>(offset);
}

const char* const c_szTypeWords[] = {"in set", "not in set", "literal segment=", "any", "begin", "end"};
const char* const c_szFactorWords[] = {"one", "zero or one", "zero or more", "one or more"};

template <std::size_t N>
const char* wordOf(const char* const (&words)[N], int value)
{
    return value >= 0 && static_cast<std::size_t>(value) < N ? words[value] : "?";
}

// ---------------------------------------------------------------------------
// Text searches on 32-bit offsets.

unsigned int toOffset(std::size_t position)
{
    return position >= c_nNoPosition ? c_nNoPosition : static_cast<unsigned int>(position);
}

/// The first occurrence of `segment` in `text` at or behind `pos`, as the
/// string's own find gives it.
unsigned int findText(const std::string& text, const std::string& segment, unsigned int pos)
{
    if (pos > text.size())
        return c_nNoPosition;
    const void* hit = memmem(text.data() + pos, text.size() - pos, segment.data(), segment.size());
    return hit == nullptr ? c_nNoPosition
                          : static_cast<unsigned int>(static_cast<const char*>(hit) - text.data());
}

unsigned int findText(const std::wstring& text, const std::wstring& segment, unsigned int pos)
{
    return toOffset(text.find(segment, pos));
}

/// Whether `segment` stands in `text` exactly at `pos`.
template <class S>
bool occursAt(const S& text, const S& segment, unsigned int pos)
{
    return pos <= text.size() && text.size() - pos >= segment.size() &&
           S::traits_type::compare(text.data() + pos, segment.data(), segment.size()) == 0;
}

// ---------------------------------------------------------------------------
// The compiler: one pass of run() per token.

template <class S>
class PatternCompiler
{
public:
    typedef typename OrvaRegularExpressionImplementation<S>::ExpressionToken Token;
    typedef typename S::value_type Char;

    explicit PatternCompiler(const S& pattern) : m_rPattern(pattern), m_nPos(0), m_pError(nullptr) {}

    /// Appends the pattern's tokens to `tokens`; stops at the first fault and
    /// returns its text, or null when the whole pattern compiled.
    const char* run(std::vector<Token>& tokens)
    {
        while (m_nPos < m_rPattern.size())
        {
            Token token{Token::Literal, Token::One, S()};
            if (!readToken(token))
                return m_pError;
            // A character 0 ends the token's text, as it would end a C string.
            const std::size_t zero = token.segment.find(Char(0));
            if (zero != S::npos)
                token.segment.resize(zero);
            tokens.push_back(std::move(token));
        }
        return nullptr;
    }

private:
    bool fail(const char* error)
    {
        m_pError = error;
        return false;
    }

    bool isLast(std::size_t pos) const { return pos + 1 >= m_rPattern.size(); }

    /// The first character decides the token.
    bool readToken(Token& token)
    {
        const Char first = m_rPattern[m_nPos];
        if (first == '[')
            return openSet(token) && readBody(token);
        if (first == '\\')
            return isLast(m_nPos) ? fail("bad escape expression") : readBody(token);
        if (first == '$' && !isLast(m_nPos))
            return fail("end token found inside expression");
        if ((first == '^' && m_nPos == 0) || first == '$' || first == '.')
        {
            token.type = first == '^' ? Token::Begin : first == '$' ? Token::End : Token::Any;
            ++m_nPos;
            readFactor(token);
            return true;
        }
        // Any other character opens a literal as it stands, factor characters too.
        token.segment.push_back(first);
        ++m_nPos;
        return readBody(token);
    }

    bool openSet(Token& token)
    {
        token.type = Token::InSet;
        ++m_nPos;
        if (m_nPos < m_rPattern.size() && m_rPattern[m_nPos] == '^')
        {
            token.type = Token::NotInSet;
            ++m_nPos;
        }
        if (m_nPos >= m_rPattern.size() || m_rPattern[m_nPos] == ']')
            return fail("empty set in pattern");
        return true;
    }

    /// The body of a literal or a set, read by the same loop.
    bool readBody(Token& token)
    {
        const bool inSet = token.type != Token::Literal;
        while (m_nPos < m_rPattern.size())
        {
            const Char c = m_rPattern[m_nPos];
            if (c == '$' || c == '.' || c == '[')
                break;
            if (c == '*' || c == '+' || c == '?')
            {
                if (token.segment.size() <= 1)
                    break;
                // The factor belongs to the last character alone: it is given
                // back, and the pattern character in front of the factor
                // character starts the next token.
                token.segment.pop_back();
                --m_nPos;
                return true;
            }
            if (c == ']' && inSet)
            {
                ++m_nPos;
                break;
            }
            if (c == '-' && inSet)
            {
                if (!appendRange(token.segment))
                    return false;
            }
            else if (c == '\\')
            {
                if (!appendEscape(token.segment))
                    return false;
            }
            else
                token.segment.push_back(m_rPattern[m_nPos++]);
        }
        readFactor(token);
        return true;
    }

    bool appendEscape(S& segment)
    {
        if (isLast(m_nPos))
            return fail("bad regular expression");
        const Char escaped = m_rPattern[m_nPos + 1];
        m_nPos += 2;
        switch (escaped)
        {
        case 'b':
            segment.push_back(Char(8));
            break;
        case 't':
            segment.push_back(Char(9));
            break;
        case 'n':
            segment.push_back(Char(10));
            break;
        case 'f':
            segment.push_back(Char(12));
            break;
        case 'r':
            segment.push_back(Char(13));
            break;
        case '0':
        case 'e':
        case 'x':
        case '^':
            break; // stand for nothing
        default:
            segment.push_back(escaped);
        }
        return true;
    }

    /// `-` in a set: from the last member (or 0) up to the next pattern
    /// character, compared as signed characters. The lower end stays in the
    /// segment twice.
    bool appendRange(S& segment)
    {
        typedef typename std::make_signed<Char>::type Signed;
        if (isLast(m_nPos))
            return fail("end of expression found in pattern");
        const long long low = segment.empty() ? 0 : static_cast<Signed>(segment.back());
        const Signed high = static_cast<Signed>(m_rPattern[m_nPos + 1]);
        if (high < low)
            return fail("invalid endpoint in range");
        // A running character of the pattern's own type would wrap at the
        // largest value and never pass it: such a range has no end, and
        // fails as a segment that outgrew its length would, before growing.
        if (high == std::numeric_limits<Signed>::max())
            throw std::length_error("OrvaRegularExpressionImplementation::compile: a range up to the largest "
                                    "character has no end");
        for (long long c = low; c <= high; ++c)
            segment.push_back(static_cast<Char>(c));
        m_nPos += 2;
        return true;
    }

    void readFactor(Token& token)
    {
        if (m_nPos >= m_rPattern.size())
            return;
        const Char c = m_rPattern[m_nPos];
        if (c != '+' && c != '*' && c != '?')
            return;
        token.factor = c == '+' ? Token::OneOrMore : c == '*' ? Token::ZeroOrMore : Token::ZeroOrOne;
        ++m_nPos;
    }

    const S& m_rPattern;
    std::size_t m_nPos;
    const char* m_pError;
};

// ---------------------------------------------------------------------------
// The match stack. Each thread keeps one and lends it to its searches, so that
// a search allocates nothing once its thread has searched before; a search
// that finds it lent out uses a stack of its own.

template <class Entry>
class MatchStack
{
public:
    MatchStack() : m_rShared(threadStack()), m_bBorrowed(!m_rShared.lent)
    {
        if (m_bBorrowed)
            m_rShared.lent = true;
    }
    ~MatchStack()
    {
        if (!m_bBorrowed)
            return;
        // A stack grown by one long search is not kept for the thread's life.
        if (m_rShared.entries.capacity() > c_nKeptEntries)
            std::vector<Entry>().swap(m_rShared.entries);
        m_rShared.entries.clear();
        m_rShared.lent = false;
    }
    MatchStack(const MatchStack&) = delete;
    MatchStack& operator=(const MatchStack&) = delete;

    std::vector<Entry>& entries() { return m_bBorrowed ? m_rShared.entries : m_vOwn; }

private:
    struct Shared
    {
        std::vector<Entry> entries;
        bool lent = false;
    };
    static const std::size_t c_nKeptEntries = 1024;

    static Shared& threadStack()
    {
        static thread_local Shared s_shared;
        return s_shared;
    }

    Shared& m_rShared;
    bool m_bBorrowed;
    std::vector<Entry> m_vOwn;
};

// ---------------------------------------------------------------------------
// One search: the run over the tokens, and the verdict on the stack.

template <class S>
class SearchRun
{
public:
    typedef OrvaRegularExpressionImplementation<S> Impl;
    typedef typename Impl::ExpressionToken Token;
    typedef typename Impl::MatchToken Entry;
    typedef typename Impl::iterator iterator;

    SearchRun(const Impl& impl, const S& text, unsigned int pos, std::vector<Entry>& stack)
        : m_rImpl(impl), m_rText(text), m_rStack(stack), m_nPos(pos), m_nStart(pos), m_bBeginSeen(false),
          m_bEndSeen(false)
    {
    }

    void run(iterator token, iterator last)
    {
        while (token != last)
        {
            unsigned int next;
            if (!tryToken(token, next))
                token = afterFailure(token, last);
            else
            {
                m_nPos = next;
                if (token->factor != Token::ZeroOrMore && token->factor != Token::OneOrMore)
                    ++token;
            }
        }
    }

    /// The pieces must join up from the bottom entry on, and then satisfy
    /// the anchors. `length` is written only when something matched.
    unsigned int verdict(unsigned int& length) const
    {
        if (m_rStack.empty())
            return c_nNoPosition;
        unsigned int result = m_rStack.front().position;
        length = 0;
        for (const Entry& entry : m_rStack)
        {
            if (result + length != entry.position)
            {
                result = c_nNoPosition;
                break;
            }
            length += entry.length;
        }
        if (m_bBeginSeen && result != m_nStart)
            result = c_nNoPosition;
        if (m_bEndSeen && result + length != m_rText.size())
            result = c_nNoPosition;
        return result;
    }

    static bool sameToken(const Token& a, const Token& b)
    {
        return &a == &b || (a.type == b.type && a.factor == b.factor && a.segment == b.segment);
    }

private:
    bool tryToken(iterator token, unsigned int& next)
    {
        switch (token->type)
        {
        case Token::Begin:
            m_bBeginSeen = true;
            next = m_nPos;
            return true;
        case Token::End:
            m_bEndSeen = true;
            next = m_nPos;
            return true;
        case Token::Literal:
            next = m_rImpl.matchLiteral(m_rText, m_nPos, token, m_rStack);
            break;
        case Token::Any:
            next = m_rImpl.matchAny(m_rText, m_nPos, token, m_rStack);
            break;
        default:
            next = m_rImpl.matchSet(m_rText, m_nPos, token, m_rStack);
        }
        return next != c_nNoPosition;
    }

    /// The token to try next after `token` failed at the cursor.
    iterator afterFailure(iterator token, iterator last)
    {
        const bool optional = token->factor == Token::ZeroOrOne || token->factor == Token::ZeroOrMore;
        if (m_rStack.empty())
        {
            if (!optional)
                return last;
            // A literal that failed on an empty stack occurs nowhere behind
            // the cursor: trying it one place further on would fail as well,
            // until the text ends (unless the cursor wraps around). Only an
            // untraced search may skip those tries, which each log a record.
            if (token->type == Token::Literal && m_nPos != c_nNoPosition && !traceAbove8())
                return last;
            ++m_nPos;
            return m_nPos < m_rText.size() ? token : last;
        }
        if (optional || (token->factor == Token::OneOrMore && sameToken(*m_rStack.back().token, *token)))
            return token + 1;
        return stepBack(token);
    }

    /// Gives up the top entry, or the whole attempt when it has nothing to go
    /// back to; the removed entry's token is not tried again.
    iterator stepBack(iterator token)
    {
        const Entry& top = m_rStack.back();
        if (top.previous == -1)
        {
            m_nPos = m_rStack.front().position + 1;
            const iterator restart = m_rStack.front().token;
            m_rStack.clear();
            return restart;
        }
        m_nPos = top.position;
        m_rStack.pop_back();
        return token;
    }

    const Impl& m_rImpl;
    const S& m_rText;
    std::vector<Entry>& m_rStack;
    unsigned int m_nPos;
    const unsigned int m_nStart;
    bool m_bBeginSeen;
    bool m_bEndSeen;
};

/// The records of one stack entry: its token, "\tmatch token:" and the entry
/// itself. A literal's text is taken from its token.
template <class S>
void printEntry(const OrvaRegularExpressionImplementation<S>& impl,
                const typename OrvaRegularExpressionImplementation<S>::MatchToken& entry)
{
    typedef typename OrvaRegularExpressionImplementation<S>::ExpressionToken Token;
    impl.print(*entry.token);
    record() << "\tmatch token:" << OrvaSupport::endrecord;
    const S& segment = entry.token->type == Token::Literal ? entry.token->segment : entry.segment;
    record() << "\t\tsegment: " << segment << ":" << entry.position << ":" << entry.length << ":"
             << entry.previous << OrvaSupport::endrecord;
}

} // namespace

// ---------------------------------------------------------------------------
// OrvaRegularExpressionImplementation

template <class S>
OrvaRegularExpressionImplementation<S>::OrvaRegularExpressionImplementation()
    : m_sPattern(), m_pTokens(std::make_shared<TokenList>()), m_oLock(false)
{
}

template <class S>
OrvaRegularExpressionImplementation<S>::OrvaRegularExpressionImplementation(
    const OrvaRegularExpressionImplementation& other)
    : m_sPattern(), m_pTokens(), m_oLock(false)
{
    OrvaCriticalSection guard(other.m_oLock, true);
    m_sPattern = other.m_sPattern;
    m_pTokens = other.m_pTokens;
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
    m_pTokens.swap(copy.m_pTokens);
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
    m_pTokens = std::make_shared<TokenList>();
    try
    {
        const char* fault = PatternCompiler<S>(pattern).run(*m_pTokens);
        if (fault == nullptr)
            return true;
        error = fault;
        return false;
    }
    catch (OrvaSupport::OrvaException& e)
    {
        m_pTokens->clear();
        error = e.getText();
        return false;
    }
}

template <class S>
void OrvaRegularExpressionImplementation<S>::print() const
{
    if (!traceExactly9())
        return;
    // Logged after the lock is given back: a thread with a record open may be
    // waiting for this lock in a search.
    S pattern;
    std::shared_ptr<const TokenList> tokens;
    {
        OrvaCriticalSection guard(m_oLock, true);
        pattern = m_sPattern;
        tokens = m_pTokens;
    }
    record() << "regular expression: " << pattern << OrvaSupport::endrecord;
    for (const ExpressionToken& token : *tokens)
        print(token);
}

template <class S>
void OrvaRegularExpressionImplementation<S>::print(const ExpressionToken& token) const
{
    if (!traceAbove8())
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
    std::shared_ptr<const TokenList> tokens;
    {
        OrvaCriticalSection guard(m_oLock, true);
        tokens = m_pTokens;
    }
    MatchStack<MatchToken> stack;
    SearchRun<S> search(*this, text, pos, stack.entries());
    search.run(tokens->begin(), tokens->end());

    if (traceExactly9())
    {
        record() << "OrvaRegularExpressionImplementation::find: match stack begin" << OrvaSupport::endrecord;
        for (const MatchToken& entry : stack.entries())
            printEntry(*this, entry);
        record() << "OrvaRegularExpressionImplementation::find: match stack end" << OrvaSupport::endrecord;
    }
    const unsigned int result = search.verdict(length);
    if (traceAbove8())
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
    const bool traced = traceAbove8();
    // Behind the first entry only a match at the cursor counts, so the text
    // is compared in place; where else the segment lies only the record says.
    const unsigned int found = !stack.empty() && !traced ? (occursAt(text, segment, pos) ? pos : npos)
                                                         : findText(text, segment, pos);
    if (traced)
        record() << text << ".find (" << segment << ", " << recordOffset(pos) << ") = " << recordOffset(found)
                 << OrvaSupport::endrecord;
    if (found == npos || (found != pos && !stack.empty()))
        return npos;
    const unsigned int size = static_cast<unsigned int>(segment.size());
    MatchToken match{traced ? segment : S(), found, size, 0, token};
    addMatch(match, token, stack);
    return found + size;
}

template <class S>
unsigned int OrvaRegularExpressionImplementation<S>::matchAny(const S& text, unsigned int pos, iterator token,
                                                              std::vector<MatchToken>& stack) const
{
    if (pos >= text.size())
        return npos;
    MatchToken match{S(1, text[pos]), pos, 1, 0, token};
    addMatch(match, token, stack);
    return pos + 1;
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
    MatchToken match{S(1, text[pos]), pos, 1, 0, token};
    addMatch(match, token, stack);
    return pos + 1;
}

template <class S>
bool OrvaRegularExpressionImplementation<S>::addMatch(MatchToken& match, iterator token,
                                                      std::vector<MatchToken>& stack) const
{
    match.token = token;
    if (stack.empty())
        match.previous = -1;
    else if (token->factor != ExpressionToken::OneOrMore ||
             SearchRun<S>::sameToken(*stack.back().token, *token))
        match.previous = static_cast<int>(stack.size()) - 1;
    else
        // The first repetition goes back to where its predecessor goes back to.
        match.previous = stack.back().previous;
    if (traceExactly9())
    {
        record() << "OrvaRegularExpressionImplementation::addMatch: begin" << OrvaSupport::endrecord;
        printEntry(*this, match);
        record() << "OrvaRegularExpressionImplementation::addMatch: end" << OrvaSupport::endrecord;
    }
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
