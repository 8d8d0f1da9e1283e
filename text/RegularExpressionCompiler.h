// The pattern compiler of OrvaRegularExpressionImplementation: one pass per
// token over the pattern text. Private to the library.
#ifndef OVKIT_TEXT_REGULAREXPRESSIONCOMPILER_H
#define OVKIT_TEXT_REGULAREXPRESSIONCOMPILER_H

#include <ovkit/OrvaRegularExpression.h>

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace OrvaSupport
{
namespace internal
{

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

} // namespace internal
} // namespace OrvaSupport

#endif // OVKIT_TEXT_REGULAREXPRESSIONCOMPILER_H
