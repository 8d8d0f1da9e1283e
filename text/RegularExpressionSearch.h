// The search of OrvaRegularExpressionImplementation: the run over the tokens
// with its match stack, the verdict, and the text scans they use. Private to
// the library.
//
// The run follows the matcher's rules step by step. Where a step is sure to
// fail, or a row of steps has a result known in advance, the run may take a
// shortcut, provided that the result, the length and every record written
// stay the same: shortcuts that leave out steps that would write records are
// taken only while the search is not traced.
#ifndef OVKIT_TEXT_REGULAREXPRESSIONSEARCH_H
#define OVKIT_TEXT_REGULAREXPRESSIONSEARCH_H

#include <ovkit/OrvaLogging.h>
#include <ovkit/OrvaRegularExpression.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace OrvaSupport
{
namespace internal
{

const unsigned int c_nNoRegexPosition = 0xFFFFFFFFu;

/// The token dump, addMatch's records and the stack dump are written only at
/// global level 9 exactly.
inline bool regexTracedInFull()
{
    return OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() == 9;
}

/// A token's own record, a literal's substring search and the search result
/// are written at any global level above 8.
inline bool regexTraced()
{
    return OrvaLogging::isAccessAllowed() && OrvaLogging::getInstance()->getGlobalLogLevel() > 8;
}

/// The first occurrence of `segment` in `text` at or behind `pos`, as the
/// string's own find gives it, on 32-bit offsets.
inline unsigned int findText(const std::string& text, const std::string& segment, unsigned int pos)
{
    if (pos > text.size())
        return c_nNoRegexPosition;
    const void* hit = memmem(text.data() + pos, text.size() - pos, segment.data(), segment.size());
    return hit == nullptr ? c_nNoRegexPosition
                          : static_cast<unsigned int>(static_cast<const char*>(hit) - text.data());
}

inline unsigned int findText(const std::wstring& text, const std::wstring& segment, unsigned int pos)
{
    const std::size_t found = text.find(segment, pos);
    return found == std::wstring::npos ? c_nNoRegexPosition : static_cast<unsigned int>(found);
}

/// Whether `segment` stands in `text` exactly at `pos`.
template <class S>
bool occursAt(const S& text, const S& segment, unsigned int pos)
{
    return pos <= text.size() && text.size() - pos >= segment.size() &&
           (segment.empty() ||
            (text[pos] == segment[0] &&
             S::traits_type::compare(text.data() + pos, segment.data(), segment.size()) == 0));
}

/// The members of a set as a table: one byte per character code from 0 to
/// 255, and whether the set has members beyond (only a wide set can), which
/// are then looked up in the set's segment.
class CharTable
{
public:
    template <class S>
    explicit CharTable(const S& members) : m_bMember(), m_bBeyond(false)
    {
        for (typename S::value_type c : members)
        {
            unsigned int code = 0;
            if (codeOf(c, code))
                m_bMember[code] = true;
            else
                m_bBeyond = true;
        }
    }

    template <class S>
    bool contains(typename S::value_type c, const S& members) const
    {
        unsigned int code = 0;
        if (codeOf(c, code))
            return m_bMember[code];
        return m_bBeyond && members.find(c) != S::npos;
    }

private:
    static bool codeOf(char c, unsigned int& code)
    {
        code = static_cast<unsigned char>(c);
        return true;
    }
    static bool codeOf(wchar_t c, unsigned int& code)
    {
        code = static_cast<unsigned int>(c);
        return c >= 0 && c < 256;
    }

    bool m_bMember[256];
    bool m_bBeyond;
};

/// Tokens written alike count as one.
template <class Token>
bool sameToken(const Token& a, const Token& b)
{
    return &a == &b || (a.type == b.type && a.factor == b.factor && a.segment == b.segment);
}

/// The back link of an entry that `token` pushes now: -1 on an empty stack;
/// for the first repetition of a one-or-more token, the back link of the
/// entry below (so that it cannot be given back on its own); otherwise the
/// index of the entry below.
template <class Entry, class Token>
int backLinkOf(const std::vector<Entry>& stack, const Token& token)
{
    if (stack.empty())
        return -1;
    if (token.factor == Token::OneOrMore && !sameToken(*stack.back().token, token))
        return stack.back().previous;
    return static_cast<int>(stack.size()) - 1;
}

/// Pushes the entry of a set or `.` that took the character at `pos`, with
/// that character as its text, and returns the place behind it.
template <class S>
unsigned int pushCharacter(const OrvaRegularExpressionImplementation<S>& impl, const S& text,
                           unsigned int pos, typename OrvaRegularExpressionImplementation<S>::iterator token,
                           std::vector<typename OrvaRegularExpressionImplementation<S>::MatchToken>& stack)
{
    typename OrvaRegularExpressionImplementation<S>::MatchToken match{S(1, text[pos]), pos, 1, 0, token};
    impl.addMatch(match, token, stack);
    return pos + 1;
}

/// The match stack of a search. Each thread keeps one and lends it to its
/// searches, so that a search allocates nothing once its thread has searched
/// before; a search that finds it lent out, or already destroyed (a search
/// from a thread-local destructor at the thread's end), uses a stack of its
/// own.
template <class Entry>
class MatchStack
{
public:
    MatchStack() : m_pShared(threadStack()), m_bBorrowed(m_pShared != nullptr && !m_pShared->lent)
    {
        if (m_bBorrowed)
            m_pShared->lent = true;
    }
    ~MatchStack()
    {
        if (!m_bBorrowed)
            return;
        // A stack grown by one long search is not kept for the thread's life.
        if (m_pShared->entries.capacity() > c_nKeptEntries)
            std::vector<Entry>().swap(m_pShared->entries);
        m_pShared->entries.clear();
        m_pShared->lent = false;
    }
    MatchStack(const MatchStack&) = delete;
    MatchStack& operator=(const MatchStack&) = delete;

    std::vector<Entry>& entries() { return m_bBorrowed ? m_pShared->entries : m_vOwn; }

private:
    struct Shared
    {
        ~Shared() { s_bGone = true; }
        std::vector<Entry> entries;
        bool lent = false;
    };
    static const std::size_t c_nKeptEntries = 1024;

    static Shared* threadStack()
    {
        if (s_bGone)
            return nullptr;
        static thread_local Shared s_shared;
        return &s_shared;
    }

    /// Set when the thread's stack is destroyed; being trivially
    /// destructible, it stays readable up to the thread's very end.
    static thread_local bool s_bGone;

    Shared* m_pShared;
    bool m_bBorrowed;
    std::vector<Entry> m_vOwn;
};

template <class Entry>
thread_local bool MatchStack<Entry>::s_bGone = false;

/// One search: the run over the tokens from a cursor, and the verdict on the
/// stack it leaves. `tables` holds one member table per token (it may be
/// shorter, after a compile cut short by an exception: the segments serve
/// then).
///
/// A search that starts traced makes every step through the implementation's
/// own operations (matchLiteral, addMatch), which write the records. An
/// untraced one makes the same steps here, without records and without
/// copying text, and takes the shortcuts.
template <class S>
class SearchRun
{
public:
    typedef OrvaRegularExpressionImplementation<S> Impl;
    typedef typename Impl::ExpressionToken Token;
    typedef typename Impl::MatchToken Entry;
    typedef typename Impl::iterator iterator;

    SearchRun(const Impl& impl, const typename Impl::TokenList& tokens, const std::vector<CharTable>& tables,
              const S& text, unsigned int pos, std::vector<Entry>& stack)
        : m_rImpl(impl), m_iFirst(tokens.begin()), m_rTables(tables), m_rText(text), m_rStack(stack),
          m_nPos(pos), m_nStart(pos), m_bBeginSeen(false), m_bEndSeen(false), m_bQuick(!regexTraced())
    {
    }

    void run(iterator last)
    {
        iterator token = m_iFirst;
        while (token != last)
        {
            unsigned int next;
            if (!tryToken(token, next))
                token = afterFailure(token, last);
            else if (!repeats(*token))
            {
                m_nPos = next;
                ++token;
            }
            else
            {
                m_nPos = next;
                if (m_bQuick && takesOneCharacter(*token))
                    token = extendRun(token, last);
            }
        }
    }

    /// The pieces must join up from the bottom entry on, and then satisfy
    /// the anchors. `length` is written only when something matched.
    unsigned int verdict(unsigned int& length) const
    {
        if (m_rStack.empty())
            return c_nNoRegexPosition;
        unsigned int result = m_rStack.front().position;
        length = 0;
        for (const Entry& entry : m_rStack)
        {
            if (result + length != entry.position)
            {
                result = c_nNoRegexPosition;
                break;
            }
            length += entry.length;
        }
        if (m_bBeginSeen && result != m_nStart)
            result = c_nNoRegexPosition;
        if (m_bEndSeen && result + length != m_rText.size())
            result = c_nNoRegexPosition;
        return result;
    }

private:
    static bool repeats(const Token& token)
    {
        return token.factor == Token::ZeroOrMore || token.factor == Token::OneOrMore;
    }

    /// Sets and `.`.
    static bool takesOneCharacter(const Token& token)
    {
        return token.type == Token::InSet || token.type == Token::NotInSet || token.type == Token::Any;
    }

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
            next = m_bQuick ? matchLiteral(token) : m_rImpl.matchLiteral(m_rText, m_nPos, token, m_rStack);
            return next != c_nNoRegexPosition;
        default:
            if (!takes(token, m_nPos))
                return false;
            next =
                m_bQuick ? push(token, m_nPos, 1) : pushCharacter(m_rImpl, m_rText, m_nPos, token, m_rStack);
            return true;
        }
    }

    /// The untraced form of the implementation's matchLiteral: behind the
    /// first entry only a match at the cursor counts, so the text is compared
    /// in place there.
    unsigned int matchLiteral(iterator token)
    {
        const S& segment = token->segment;
        unsigned int found = m_nPos;
        if (m_rStack.empty())
            found = findText(m_rText, segment, m_nPos);
        else if (!occursAt(m_rText, segment, m_nPos))
            found = c_nNoRegexPosition;
        return found == c_nNoRegexPosition ? found
                                           : push(token, found, static_cast<unsigned int>(segment.size()));
    }

    /// The untraced form of addMatch: the entry is built in its place, with
    /// no text. Returns the place behind it.
    unsigned int push(iterator token, unsigned int position, unsigned int length)
    {
        const int previous = backLinkOf(m_rStack, *token);
        m_rStack.emplace_back();
        Entry& entry = m_rStack.back();
        entry.position = position;
        entry.length = length;
        entry.previous = previous;
        entry.token = token;
        return position + length;
    }

    /// Whether the set or `.` takes the character at `pos`.
    bool takes(iterator token, unsigned int pos) const
    {
        if (pos >= m_rText.size())
            return false;
        return token->type == Token::Any || isMember(token, m_rText[pos]) == (token->type == Token::InSet);
    }

    bool isMember(iterator token, typename S::value_type c) const
    {
        const std::size_t index = static_cast<std::size_t>(token - m_iFirst);
        return index < m_rTables.size() ? m_rTables[index].contains(c, token->segment)
                                        : token->segment.find(c) != S::npos;
    }

    /// Whether trying the token at `pos`, with entries on the stack, fails.
    bool failsAt(iterator token, unsigned int pos) const
    {
        if (token->type == Token::Literal)
            return !occursAt(m_rText, token->segment, pos);
        return takesOneCharacter(*token) && !takes(token, pos);
    }

    /// The first place from `from` on where the set or `.` takes the
    /// character (`taken`) or does not; the end of the text if none.
    unsigned int scan(iterator token, unsigned int from, bool taken) const
    {
        const unsigned int size = static_cast<unsigned int>(m_rText.size());
        if (from >= size || token->type == Token::Any)
            return from >= size || taken ? from : size;
        const bool member = taken == (token->type == Token::InSet);
        const std::size_t index = static_cast<std::size_t>(token - m_iFirst);
        if (index >= m_rTables.size())
        {
            while (from < size && (token->segment.find(m_rText[from]) != S::npos) != member)
                ++from;
            return from;
        }
        const CharTable& table = m_rTables[index];
        const typename S::value_type* text = m_rText.data();
        while (from < size && table.contains(text[from], token->segment) != member)
            ++from;
        return from;
    }

    /// A repeated set or `.` that took a character takes the following ones
    /// as long as it can, one entry each (the tries in between would only
    /// push entries, which go back to the entry below them), and then fails
    /// at the run's end. Returns the token to try next. Untraced only, since
    /// each push is traced.
    iterator extendRun(iterator token, iterator last)
    {
        const unsigned int end = scan(token, m_nPos, false);
        if (token + 1 != last && followerFailsThroughout(token, token + 1, end))
        {
            // The following token would be tried at the run's end and, one
            // entry given back at a time, at every place inside the run down
            // to the cursor, failing each time: the run's entries would all
            // be pushed only to be given back. What remains is that failure
            // at the cursor, with the run's first entry on top.
            return afterFailure(token + 1, last);
        }
        const std::size_t needed = m_rStack.size() + (end - m_nPos);
        if (needed > m_rStack.capacity())
            m_rStack.reserve(std::max(needed, 2 * m_rStack.capacity()));
        while (m_nPos < end)
            m_nPos = push(token, m_nPos, 1);
        return token;
    }

    /// Whether `follower`, a required token that the run's entries do not
    /// count as a repetition of, fails at every place from the cursor up to
    /// `end`.
    bool followerFailsThroughout(iterator token, iterator follower, unsigned int end) const
    {
        if (follower->factor == Token::ZeroOrOne || follower->factor == Token::ZeroOrMore ||
            (follower->factor == Token::OneOrMore && sameToken(*token, *follower)) ||
            (follower->type != Token::Literal && !takesOneCharacter(*follower)))
            return false;
        for (unsigned int place = m_nPos; place <= end; ++place)
            if (!failsAt(follower, place))
                return false;
        return true;
    }

    /// The token to try next after `token` failed at the cursor.
    iterator afterFailure(iterator token, iterator last)
    {
        const bool optional = token->factor == Token::ZeroOrOne || token->factor == Token::ZeroOrMore;
        if (m_rStack.empty())
        {
            if (!optional)
                return last;
            return m_nPos == c_nNoRegexPosition ? wrapAround(token, last) : tryFurtherOn(token, last);
        }
        if (optional || (token->factor == Token::OneOrMore && sameToken(*m_rStack.back().token, *token)))
            return token + 1;
        return stepBack(token);
    }

    /// A cursor at the largest offset moves on to offset 0.
    iterator wrapAround(iterator token, iterator last)
    {
        m_nPos = 0;
        return m_rText.empty() ? last : token;
    }

    /// An optional token that failed with nothing matched yet is tried one
    /// place further on, again and again while the cursor is inside the
    /// text. Tries that are sure to fail are skipped: a literal that failed
    /// here occurs nowhere behind the cursor (but each try would log its
    /// substring search, so only an untraced search skips them), and a set
    /// fails silently up to the next character it takes.
    iterator tryFurtherOn(iterator token, iterator last)
    {
        ++m_nPos;
        if (m_nPos >= m_rText.size() || (token->type == Token::Literal && m_bQuick))
            return last;
        if (takesOneCharacter(*token))
            m_nPos = scan(token, m_nPos, true);
        return m_nPos < m_rText.size() ? token : last;
    }

    /// Gives up the top entry, or the whole attempt when it has nothing to go
    /// back to; the removed entry's token is not tried again. An untraced
    /// search makes the failed token's tries at the places given back here,
    /// as long as they fail, and takes the choice that follows each failure.
    iterator stepBack(iterator token)
    {
        while (m_rStack.back().previous != -1)
        {
            m_nPos = m_rStack.back().position;
            m_rStack.pop_back();
            if (!m_bQuick || !failsAt(token, m_nPos))
                return token;
            if (token->factor == Token::OneOrMore && sameToken(*m_rStack.back().token, *token))
                return token + 1;
        }
        const iterator restart = m_rStack.front().token;
        m_nPos = m_rStack.front().position + 1;
        m_rStack.clear();
        // The attempt began with a repeated set or `.`, which took the run of
        // characters from its start up to the first it does not take. An
        // attempt that starts one place further into that run takes the same
        // run less its first character and then makes the same tries (the
        // same tokens at the same places, on a stack one entry lower), so it
        // gives up as well, at the latest where this one did: every attempt
        // that starts inside the run fails. The next one that can differ
        // starts at the run's end. The attempts left out would log, so only
        // an untraced search skips them.
        if (m_bQuick && takesOneCharacter(*restart) && repeats(*restart))
            m_nPos = scan(restart, m_nPos, false);
        return restart;
    }

    const Impl& m_rImpl;
    const iterator m_iFirst;
    const std::vector<CharTable>& m_rTables;
    const S& m_rText;
    std::vector<Entry>& m_rStack;
    unsigned int m_nPos;
    const unsigned int m_nStart;
    bool m_bBeginSeen;
    bool m_bEndSeen;
    /// The search is not traced: steps are made here, shortcuts taken.
    const bool m_bQuick;
};

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_TEXT_REGULAREXPRESSIONSEARCH_H
