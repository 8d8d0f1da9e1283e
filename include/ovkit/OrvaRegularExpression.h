/// \file
/// The library's own regular expressions: a small pattern language compiled to
/// a flat list of tokens, and a greedy matcher with a deliberately simple
/// backtracking.
///
///     OrvaRegularExpression<std::string> re;
///     re.setPattern("latency=[0-9]+ms");               // throws OrvaException on a bad pattern
///     unsigned int length = 0;
///     unsigned int at = re.find(line, length, 0);      // OrvaRegularExpression<std::string>::npos if none
///
/// Built for std::string and std::wstring only. Compile errors are narrow texts
/// in both.
///
/// The pattern language. A pattern is a row of tokens; each token is one of
///   - a literal run of characters: plain characters and escapes;
///   - a set `[...]` or `[^...]`: one character that is (is not) a member;
///   - `.`: any one character, line ends included;
///   - `^` as the first character of the pattern: the match starts where the
///     search started (not at the start of the text);
///   - `$` as the last character of the pattern: the match ends at the end of
///     the text;
///
/// and each token may be followed by at most one factor: `?` (zero or one),
/// `*` (zero or more), `+` (one or more). There are no groups, no
/// alternation, no counted repetition and no case folding: `(`, `)`, `{`, `}`
/// and `|` are ordinary characters.
///
/// Rules that differ from other dialects, on purpose:
///   - A factor binds to the last character of a literal run: `abc*` is `ab`
///     followed by `c*`. The step back counts pattern characters, so after an
///     escape the factor binds to the escaped letter itself: `a\n+` is `a`
///     followed by `n+` (no line feed anywhere).
///   - The body of a set is read like the body of a literal: `$`, `.` and `[`
///     end it, and a factor binds to its last member, so `[a.b]` is the set
///     {a}, then `.`, then the literal `b]`, and `[ab*]` is {a}, `b*`, `]`.
///   - A set needs no closing `]`: `[abc` is `[abc]`. `[`, `[]`, `[^`, `[^]` and
///     `[]a]` are errors.
///   - In a set, `-` makes a range up to the next pattern character, taken as it
///     stands (`[A-]` ranges from `A` to `]`); a range at the start of a set
///     starts at the character 0. Ends compare as signed characters, so a
///     narrow character from 0x80 up lies below `a`.
///   - A character 0 ends its token's text: `[-ab]` is a set with no member
///     (it never matches) and `[^-ab]` takes every character.
///   - Escapes: `\b` backspace, `\t`, `\n`, `\f`, `\r` as usual; `\0`, `\e`,
///     `\x` and `\^` stand for nothing at all (`\x41` is the text `41`); any
///     other character stands for itself, so `\d`, `\s` and `\w` are the plain
///     letters.
///   - A factor character that opens a token is a plain character: `*a` is
///     the literal `*a`, and `a**` is `a*` followed by a literal `*`.
///
/// The matcher is greedy and does not explore alternatives as textbook
/// engines do; what follows from that is part of the contract:
///   - A pattern that starts with a literal is looked for anywhere from `pos`
///     on. One that starts with a set or `.` does not skip forward to its
///     first character: `[ab]c` does not find `ac` in "xac" (`[ab]*c` does,
///     since an optional leading token moves on one place at a time). An
///     attempt that fails after its first piece starts again one place behind
///     where that piece began.
///   - A leading optional token that occurs nowhere ends the search: `a?b`
///     does not find `b` in "b".
///   - When a token fails, the piece matched before it is given up and not
///     tried again: `a.c` finds `ac` (0, 2) in "acx".
///   - Anchors are checked once, after the run: `ab$` does not find the second
///     `ab` of "abxab".
///   - A pattern with nothing but anchors (or empty) finds nothing.
///
/// Patterns that never return. These searches loop for ever (and grow memory):
/// `^*` and `^+`, and a literal that stands for no text with `*` or `+`
/// (`\e*`, `\x+`). Do not search with such patterns. A narrow set range whose
/// upper end is 0x7F, and a wide one ending at the largest wchar_t, has no end
/// either: compiling it throws std::length_error at once (it is no
/// OrvaException: setPatternImpl lets it pass instead of returning false).
///
/// Offsets are unsigned int. A failed search returns the class's `npos`,
/// 0xFFFFFFFF: compare with OrvaRegularExpression<S>::npos, never with
/// std::string::npos, which on 64-bit targets is another value. Texts must be
/// shorter than 0xFFFFFFFF characters; find throws std::length_error on longer
/// ones. In log records npos appears as -1.
///
/// Tracing. With a registered log at global level 9 the compiler's tokens
/// (print()) and every step of a search are logged at level 9; a global level
/// above 8 but not 9 gives only the substring searches of literals and the
/// search results. The level is the log's global level; per-name levels play
/// no part. A search that starts traced makes every single step, which can
/// take far longer than an untraced search of the same text (same results).
///
/// Threads. A search takes the token list under the object's inner lock (a
/// shared reference, not a copy) and runs on it, so searches run side by side,
/// and one that races setPattern uses either the old pattern or the new one.
/// A search uses a match stack that its thread keeps between searches (the
/// capacity of up to 1024 entries stays allocated). setPatternImpl and
/// replace take the object's outer lock as well (outer before inner), so a
/// replacement runs on one pattern from start to end. A copy of an object is
/// independent of its source, with locks of its own.
#ifndef OVKIT_ORVAREGULAREXPRESSION_H
#define OVKIT_ORVAREGULAREXPRESSION_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaExport.h>

#include <memory>
#include <string>
#include <vector>

/// The compiler and matcher behind OrvaRegularExpression. Its operations are
/// the library's own: clients use OrvaRegularExpression, which holds one of
/// these privately, so that a compile cannot skip the outer lock.
///
/// The token list is shared, immutable once compiled: a compile builds a new
/// list under the inner lock, and a search takes a reference to the current
/// one under that lock, so a search neither copies the tokens nor blocks a
/// compile for longer than that step.
template <class S>
class OVKIT_API OrvaRegularExpressionImplementation
{
public:
    /// The character type of patterns and texts.
    typedef typename S::value_type Char;

    /// The failed-search result and the absent position, 0xFFFFFFFF.
    static constexpr unsigned int npos = 0xFFFFFFFFu;

    /// One compiled token.
    struct ExpressionToken
    {
        /// What the token matches.
        enum t_Type : int
        {
            InSet = 0,    ///< one character that is in `segment`
            NotInSet = 1, ///< one character that is not in `segment`
            Literal = 2,  ///< the whole of `segment`
            Any = 3,      ///< any one character
            Begin = 4,    ///< the match starts where the search started
            End = 5       ///< the match ends at the end of the text
        };
        /// How often the token may match in a row.
        enum t_Factor : int
        {
            One = 0,        ///< exactly once (no factor)
            ZeroOrOne = 1,  ///< `?`
            ZeroOrMore = 2, ///< `*`
            OneOrMore = 3   ///< `+`
        };

        t_Type type;     ///< What it matches.
        t_Factor factor; ///< How often.
        /// The text of a literal, or the members of a set one after another
        /// (ranges written out, duplicates allowed); empty otherwise.
        S segment;
    };

    /// A compiled pattern: its tokens in pattern order.
    typedef std::vector<ExpressionToken> TokenList;
    /// A position in a token list.
    typedef typename TokenList::const_iterator iterator;

    /// One entry of a search's match stack.
    struct MatchToken
    {
        /// The text of the entry: the one character matched by a set or by
        /// the dot, the token's segment for a literal. The steps below store
        /// it; an untraced search, whose stack stays inside it, stores none.
        S segment;
        unsigned int position; ///< Offset of the matched piece in the text.
        unsigned int length;   ///< Length of the matched piece.
        /// Index of the entry to go back to; -1 when there is none.
        int previous;
        /// The token that made the entry.
        iterator token;
    };

    /// An empty pattern and no tokens: a search finds nothing.
    OrvaRegularExpressionImplementation();
    /// Copies the source's pattern and tokens, read under the source's inner
    /// lock. The copy has its own lock.
    OrvaRegularExpressionImplementation(const OrvaRegularExpressionImplementation& other);
    /// Takes the source's pattern and tokens as the copy constructor does;
    /// nothing on self-assignment.
    OrvaRegularExpressionImplementation& operator=(const OrvaRegularExpressionImplementation& other);
    ~OrvaRegularExpressionImplementation();

    /// Under the inner lock: compiles, and only on success keeps `pattern` as
    /// the pattern text.
    bool setPatternImpl(const S& pattern, std::string& error);
    /// Under the inner lock: replaces the tokens with those of `pattern`.
    /// False with the reason in `error` on a bad pattern; the tokens made up
    /// to the fault stay in use (the search then runs on the head of the bad
    /// pattern), and the pattern text is not touched. An OrvaException from
    /// inside empties the token list and gives its text. std::length_error
    /// (see the top of this file) and allocation failures pass through,
    /// leaving the tokens made so far.
    bool compile(const S& pattern, std::string& error);

    /// At global log level 9 exactly: the record "regular expression: " and
    /// the pattern, then one record per token. Pattern and tokens are taken
    /// under the inner lock and logged after it is released.
    void print() const;
    /// At a global log level above 8: one level 9 record "ExpressionToken:
    /// type=<type> factor=<factor>" (a literal's type word is followed by
    /// its segment). Set members are not printed.
    void print(const ExpressionToken& token) const;

    /// The search from `pos`: the offset of the match, or npos. `length`
    /// receives the match's length; it is left alone when nothing at all
    /// matched, and holds the length reached when pieces matched but the
    /// match failed its final checks. Throws std::length_error for a text of
    /// 0xFFFFFFFF characters or more.
    unsigned int find(const S& text, unsigned int& length, unsigned int pos) const;

    ///@{
    /// Steps of a search. Each tries `token` at `pos`; on success it pushes
    /// an entry (addMatch) and returns the offset behind the match, otherwise
    /// npos. A literal is looked for from `pos` on, and accepted elsewhere
    /// than at `pos` only while the stack is empty.
    unsigned int matchLiteral(const S& text, unsigned int pos, iterator token,
                              std::vector<MatchToken>& stack) const;
    unsigned int matchAny(const S& text, unsigned int pos, iterator token,
                          std::vector<MatchToken>& stack) const;
    unsigned int matchSet(const S& text, unsigned int pos, iterator token,
                          std::vector<MatchToken>& stack) const;
    ///@}
    /// Sets the entry's token and back link and pushes a copy; always true.
    bool addMatch(MatchToken& match, iterator token, std::vector<MatchToken>& stack) const;

private:
    /// The token list with member tables of its sets, for quick tests.
    struct CompiledPattern;

    S m_sPattern;
    std::shared_ptr<CompiledPattern> m_pCompiled;
    mutable OrvaSupport::OrvaCriticalSectionObject m_oLock;
};

extern template class OVKIT_API OrvaRegularExpressionImplementation<std::string>;
extern template class OVKIT_API OrvaRegularExpressionImplementation<std::wstring>;

namespace OrvaSupport
{

/// A compiled pattern of the library's dialect (see the top of this file).
template <class S>
class OVKIT_API OrvaRegularExpression
{
public:
    /// Which matches replace() replaces. Any value but All acts as First.
    enum Occurrence : int
    {
        First = 0,
        All = 1
    };

    /// The failed-search result, 0xFFFFFFFF. Not the same as S::npos.
    static constexpr unsigned int npos = 0xFFFFFFFFu;

    /// An empty pattern: every search finds nothing until a pattern is set.
    OrvaRegularExpression();
    /// An independent copy of the source's pattern and tokens, with locks of
    /// its own; the source is read under its inner lock.
    OrvaRegularExpression(const OrvaRegularExpression& other);
    /// As the copy constructor, under this object's outer lock; nothing on
    /// self-assignment.
    OrvaRegularExpression& operator=(const OrvaRegularExpression& other);
    ~OrvaRegularExpression();

    /// As setPatternImpl; a bad pattern throws OrvaException with the bare
    /// error text (for instance "empty set in pattern") and the code 0.
    void setPattern(const S& pattern);
    /// Compiles `pattern` under the outer and then the inner lock. Returns
    /// false with one of these texts in `error` (which is written only on
    /// failure):
    ///   "empty set in pattern"                `[` or `[^` at the end or before `]`
    ///   "bad escape expression"               a token starts with a final `\`
    ///   "bad regular expression"              a final `\` inside a token (`a\`)
    ///   "end token found inside expression"   `$` anywhere but at the very end
    ///   "end of expression found in pattern"  a final `-` in a set
    ///   "invalid endpoint in range"           a range whose upper end is lower
    /// After a failure the object searches with the tokens compiled up to the
    /// fault, and print() still shows the last good pattern text; set a good
    /// pattern before searching again. std::length_error passes through.
    bool setPatternImpl(const S& pattern, std::string& error);
    /// The debug print of the tokens; see OrvaRegularExpressionImplementation::print.
    void print() const;

    /// The offset of the first match from `pos`, or npos; `length` receives
    /// its length (left alone when nothing matched at all, the length reached
    /// when the pieces matched but the anchors failed). `pos` may lie behind
    /// the end. No outer lock.
    unsigned int find(const S& text, unsigned int& length, unsigned int pos) const;
    /// The same, without the length (which starts at 0, as the search's
    /// trace record shows when nothing matched).
    unsigned int find(const S& text, unsigned int pos = 0) const;
    /// The matched part of `text`, or an empty string when there is none.
    S match(const S& text, unsigned int pos = 0) const;
    /// A copy of `text` with the first match from `pos` (or, with All, every
    /// match from there on) replaced by `replacement`. The search goes on
    /// behind each inserted replacement, which is never searched itself.
    /// After a match of length 0, All keeps the next character and searches
    /// on behind it, so `\e` with "-" turns "ab" into "-a-b-". Holds the
    /// outer lock throughout, so a setPattern waits for the whole run.
    S replace(const S& text, const S& replacement, Occurrence occurrence, unsigned int pos = 0) const;

private:
    OrvaRegularExpressionImplementation<S> m_oImplementation;
    mutable OrvaCriticalSectionObject m_oLock;
};

extern template class OVKIT_API OrvaRegularExpression<std::string>;
extern template class OVKIT_API OrvaRegularExpression<std::wstring>;

} // namespace OrvaSupport

#endif // OVKIT_ORVAREGULAREXPRESSION_H
