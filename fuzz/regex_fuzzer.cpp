// Regular expressions, narrow and wide: compile, find, match and replace.
//
// Input: a selector byte, a position byte, then three fields: the pattern,
// the text and the replacement.
//   selector bit 0  wide (else narrow)
//   position        0-249 as it stands; 250-255: the text's size, one
//                   behind it, 0xFFFFFFFE, 0xFFFFFFFF, and again 0, 1
// Wide text is decoded from the bytes: a byte below 0x80 is that character;
// a byte from 0x80 up joins the next byte into one character, from a range
// small enough that no set range writes out more than a few thousand members:
//   bits 0-2 of the first byte and the second byte give v, 0..0x7FF;
//   bit 3 set: the character -1 - v (negative), else v;
//   bits 4-6 all set: the largest wchar_t instead.
//
// The matcher's contract has searches that never end: they are found before
// the call and not run (searchNeverEnds). Beyond that, find and match are
// checked against each other, and replace against the row of searches that
// it is made of.
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaRegularExpression.h>

#include "FuzzSupport.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

const unsigned int c_nNone = 0xFFFFFFFFu;

// ---------------------------------------------------------------------------
// Where the compiler puts its token boundaries. Only what the filter needs is
// kept of each token: where it starts in the pattern, its kind, its factor,
// and whether its text is empty once cut at its first character 0.

enum Kind
{
    Set,
    Literal,
    Any,
    Begin,
    End
};

enum Factor
{
    One,
    ZeroOrOne,
    ZeroOrMore,
    OneOrMore
};

/// Where a token starts, and the pattern that compiles to exactly the tokens
/// in front of it: the pattern up to `headEnd`, and `headLast` behind that
/// if `headHasLast`.
template <class Char>
struct TokenShape
{
    std::size_t start;
    Kind kind;
    Factor factor;
    bool emptyText;
    std::size_t headEnd;
    bool headHasLast;
    Char headLast;
};

template <class S>
class TokenBoundaries
{
public:
    typedef typename S::value_type Char;
    typedef typename std::make_signed<Char>::type Signed;

    explicit TokenBoundaries(const S& pattern) : p(pattern), i(0) {}

    /// The tokens that the compiler makes: all of them, or those in front of
    /// the fault that stops it (a compile error, or the range up to the
    /// largest character, which throws). Either way those are the tokens that
    /// searches then run on.
    typedef TokenShape<Char> Shape;

    std::vector<Shape> run()
    {
        std::vector<Shape> tokens;
        while (i < p.size())
        {
            Shape token{i, Literal, One, false, i, false, 0};
            if (split == SplitEscape)
                token.headEnd = i - 1;
            else if (split == SplitRange)
            {
                token.headHasLast = rangeHigh > rangeLow;
                token.headLast = static_cast<Char>(rangeHigh - 1);
                token.headEnd = token.headHasLast ? i : i - 1;
            }
            split = NoSplit;
            piece = Plain;
            size = 0;
            first = 0;
            if (!readToken(token))
                break;
            token.emptyText = token.kind == Literal && (size == 0 || first == 0);
            tokens.push_back(token);
        }
        return tokens;
    }

private:
    bool isLast(std::size_t at) const { return at + 1 >= p.size(); }

    void append(Char c)
    {
        if (size == 0)
            first = c;
        last = c;
        ++size;
    }

    bool readToken(Shape& token)
    {
        const Char c = p[i];
        if (c == '[')
        {
            token.kind = Set;
            ++i;
            if (i < p.size() && p[i] == '^')
                ++i;
            if (i >= p.size() || p[i] == ']')
                return false;
            return readBody(token, true);
        }
        if (c == '\\')
            return !isLast(i) && readBody(token, false);
        if (c == '$' && !isLast(i))
            return false;
        if ((c == '^' && i == 0) || c == '$' || c == '.')
        {
            token.kind = c == '^' ? Begin : c == '$' ? End : Any;
            ++i;
            readFactor(token);
            return true;
        }
        append(c);
        ++i;
        return readBody(token, false);
    }

    bool readBody(Shape& token, bool inSet)
    {
        while (i < p.size())
        {
            const Char c = p[i];
            if (c == '$' || c == '.' || c == '[')
                break;
            if (c == '*' || c == '+' || c == '?')
            {
                if (size <= 1)
                    break;
                // The factor takes the last character alone, which starts the
                // next token; this one ends with the factor One. Where that
                // character ends an escape or a range, the pattern up to it
                // does not compile to this token: the head of the next token
                // takes the escape's backslash away (the escaped character
                // was the one given back), or ends the range one lower.
                --size;
                --i;
                split = piece == Escape ? SplitEscape : piece == Range ? SplitRange : NoSplit;
                return true;
            }
            if (c == ']' && inSet)
            {
                ++i;
                break;
            }
            if (c == '-' && inSet)
            {
                if (isLast(i))
                    return false;
                const long long low = size == 0 ? 0 : static_cast<Signed>(last);
                const Signed high = static_cast<Signed>(p[i + 1]);
                if (high < low || high == std::numeric_limits<Signed>::max())
                    return false;
                if (size == 0)
                    first = 0;
                last = static_cast<Char>(high);
                size += static_cast<std::size_t>(high - low + 1);
                i += 2;
                piece = Range;
                rangeLow = low;
                rangeHigh = high;
            }
            else if (c == '\\')
            {
                if (isLast(i))
                    return false;
                const Char escaped = p[i + 1];
                i += 2;
                piece = Escape;
                switch (escaped)
                {
                case 'b':
                    append(8);
                    break;
                case 't':
                    append(9);
                    break;
                case 'n':
                    append(10);
                    break;
                case 'f':
                    append(12);
                    break;
                case 'r':
                    append(13);
                    break;
                case '0':
                case 'e':
                case 'x':
                case '^':
                    break;
                default:
                    append(escaped);
                }
            }
            else
            {
                append(p[i++]);
                piece = Plain;
            }
        }
        readFactor(token);
        return true;
    }

    void readFactor(Shape& token)
    {
        if (i >= p.size())
            return;
        const Char c = p[i];
        if (c == '?' || c == '*' || c == '+')
        {
            token.factor = c == '?' ? ZeroOrOne : c == '*' ? ZeroOrMore : OneOrMore;
            ++i;
        }
    }

    /// The last piece that the body scan read, and how the last back-off
    /// split the pattern.
    enum Piece
    {
        Plain,
        Escape,
        Range
    };
    enum Split
    {
        NoSplit,
        SplitEscape,
        SplitRange
    };

    const S& p;
    std::size_t i;
    std::size_t size = 0;
    Char first = 0;
    Char last = 0;
    Piece piece = Plain;
    Split split = NoSplit;
    long long rangeLow = 0;
    long long rangeHigh = 0;
};

bool repeats(Factor factor)
{
    return factor == ZeroOrMore || factor == OneOrMore;
}

/// Whether a search of `text` from `pos` never returns. The contract has two
/// such searches, and only these are kept from the library:
///   - a first token `^*` or `^+`: the anchor succeeds without moving, for
///     ever;
///   - a literal whose text is empty (`\e*`, `\x+`, a character 0 in front)
///     with `*` or `+`, once the search reaches it at a place inside the text
///     or at its end: it succeeds there without moving, pushing entries for
///     ever.
/// Whether the search reaches that literal is told by the library itself,
/// with a search on a head pattern that compiles to the tokens in front of
/// it: up to the moment the search steps onto the literal, the run on the
/// whole pattern and the run on the head are the same. The head's run ends
/// having stepped past its last token exactly when it ends with entries on
/// its stack, which is when it writes the length.
template <class S>
bool searchNeverEnds(const S& pattern, const std::vector<TokenShape<typename S::value_type>>& tokens,
                     const S& text, unsigned int pos)
{
    if (tokens.empty())
        return false;
    if (tokens[0].kind == Begin && repeats(tokens[0].factor))
        return true;
    std::size_t k = 0;
    while (k < tokens.size() &&
           !(tokens[k].kind == Literal && tokens[k].emptyText && repeats(tokens[k].factor)))
        ++k;
    if (k == tokens.size())
        return false;
    if (k == 0 || (k == 1 && tokens[0].kind == Begin))
    {
        // Nothing stands in front but an anchor: the literal is tried at
        // `pos` with nothing matched. Behind the text it fails; `*` then moves
        // on one place, which only the largest position turns into 0.
        return pos <= text.size() || (tokens[k].factor == ZeroOrMore && pos == c_nNone && !text.empty());
    }
    OrvaRegularExpression<S> head;
    std::string error;
    S headText = pattern.substr(0, tokens[k].headEnd);
    if (tokens[k].headHasLast)
        headText += tokens[k].headLast;
    if (!head.setPatternImpl(headText, error))
        abort(); // the head of a pattern compiles as far as the pattern did
    unsigned int length = 0xFFFFFFF0u;
    head.find(text, length, pos);
    return length != 0xFFFFFFF0u;
}

template <class S>
S decode(const std::string& bytes);

template <>
std::string decode<std::string>(const std::string& bytes)
{
    return bytes;
}

template <>
std::wstring decode<std::wstring>(const std::string& bytes)
{
    std::wstring text;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        const unsigned char b = static_cast<unsigned char>(bytes[i]);
        if (b < 0x80 || i + 1 == bytes.size())
        {
            text += static_cast<wchar_t>(b);
            continue;
        }
        const unsigned int v = (b & 7u) << 8 | static_cast<unsigned char>(bytes[++i]);
        if ((b & 0x70) == 0x70)
            text += std::numeric_limits<wchar_t>::max();
        else
            text += (b & 8) ? static_cast<wchar_t>(-1 - static_cast<int>(v)) : static_cast<wchar_t>(v);
    }
    return text;
}

unsigned int positionOf(std::uint8_t selector, std::size_t size)
{
    switch (selector)
    {
    case 250:
        return static_cast<unsigned int>(size);
    case 251:
        return static_cast<unsigned int>(size + 1);
    case 252:
        return 0xFFFFFFFEu;
    case 253:
        return 0xFFFFFFFFu;
    case 254:
        return 0;
    case 255:
        return 1;
    default:
        return selector;
    }
}

template <class S>
void run(const std::string& patternBytes, const std::string& textBytes, const std::string& replacementBytes,
         std::uint8_t positionSelector)
{
    typedef OrvaRegularExpression<S> Re;
    const S pattern = decode<S>(patternBytes);
    const S text = decode<S>(textBytes);
    const S replacement = decode<S>(replacementBytes);
    const unsigned int pos = positionOf(positionSelector, text.size());

    Re re;
    std::string error;
    try
    {
        if (!re.setPatternImpl(pattern, error))
        {
            OVKIT_FUZZ_CHECK(!error.empty());
            try
            {
                re.setPattern(pattern);
                abort(); // the throwing form fails as the other did
            }
            catch (const OrvaException& e)
            {
                OVKIT_FUZZ_CHECK(e.getText() == error && e.getCode() == 0);
            }
        }
    }
    catch (const std::length_error&)
    {
        // A set range up to the largest character has no end; the compile
        // says so at once, by contract with this exception.
    }
    const auto tokens = TokenBoundaries<S>(pattern).run();

    // find and match.
    if (!searchNeverEnds(pattern, tokens, text, pos))
    {
        unsigned int length = 0xFFFFFFF0u;
        const unsigned int at = re.find(text, length, pos);
        OVKIT_FUZZ_CHECK(at == re.find(text, pos));
        OVKIT_FUZZ_CHECK(at == Re(re).find(text, pos));
        const S matched = re.match(text, pos);
        if (at == Re::npos)
            OVKIT_FUZZ_CHECK(matched.empty());
        else
        {
            OVKIT_FUZZ_CHECK(at <= text.size() && length <= text.size() - at);
            OVKIT_FUZZ_CHECK(matched == text.substr(at, length));
        }
    }

    // replace, First and All, each against the searches it is made of: the
    // search again behind each inserted replacement (and, after an empty
    // match, one character further on).
    for (const typename Re::Occurrence occurrence : {Re::First, Re::All})
    {
        S expected = text;
        unsigned int from = pos;
        bool ends = true;
        for (;;)
        {
            if (searchNeverEnds(pattern, tokens, expected, from))
            {
                ends = false;
                break;
            }
            unsigned int length = 0;
            const unsigned int at = re.find(expected, length, from);
            if (at == Re::npos)
                break;
            expected.replace(at, length, replacement);
            from = at + static_cast<unsigned int>(replacement.size());
            if (occurrence != Re::All)
                break;
            if (length == 0)
                ++from;
        }
        if (ends)
            OVKIT_FUZZ_CHECK(re.replace(text, replacement, occurrence, pos) == expected);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const std::uint8_t selector = input.byte();
    const std::uint8_t position = input.byte();
    const std::string pattern = input.field();
    const std::string text = input.field();
    const std::string replacement = input.rest();
    if (selector & 1)
        run<std::wstring>(pattern, text, replacement, position);
    else
        run<std::string>(pattern, text, replacement, position);
    return 0;
}
