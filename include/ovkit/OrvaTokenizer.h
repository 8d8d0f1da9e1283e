/// \file
/// Word cutters and `<NAME>` expansion.
///
/// The library has several ideas of what a word is, one per function, and
/// they differ on purpose: pick the one whose rules fit the text at hand.
///
///     std::vector<std::string> words;
///     OrvaTokenizer(std::string("a, b,,c"), " ,", words);      // a, b, c
///     OrvaParseCommandLine("prog \"a b\" c", words);           // prog, a b, c
///     std::string path = OrvaExpandString("<HOME>/etc");      // from the environment
///
/// Summary of the word rules:
/// - OrvaTokenizer with delimiters: runs of delimiters separate, no empty words,
///   no quoting.
/// - OrvaExtractFirstString: one word off the front, a leading double quote
///   protects blanks.
/// - OrvaParseCommandLine: blanks (not tabs) separate; double quotes protect
///   blanks and are removed, also in the middle of a word.
/// - OrvaCmdLineTokenizer: blanks and tabs separate; double and single quotes
///   protect, a doubled quote inside quotes stands for itself.
#ifndef OVKIT_ORVATOKENIZER_H
#define OVKIT_ORVATOKENIZER_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaProperties.h>

#include <string>
#include <vector>

namespace OrvaSupport
{

/// Cuts a block of C strings: `list` holds zero-terminated strings one behind
/// the other, and an empty string ends the block ("a\0bc\0\0" gives "a",
/// "bc"). `tokens` is cleared first; a null or empty block gives no tokens.
OVKIT_API void OrvaTokenizer(char* list, std::vector<std::string>& tokens);

/// Gives `text` up to its first NUL as the one token, or no token when that
/// is empty. No splitting of any kind takes place.
OVKIT_API void OrvaTokenizer(const std::string& text, std::vector<std::string>& tokens);

/// Splits `text` in place with the C library's strtok: every run of
/// characters from `delimiters` is one separator, leading and trailing
/// delimiters give nothing, and there are no empty tokens. `tokens` is
/// cleared first; a null or empty text gives no tokens.
/// `text` is overwritten (delimiters become zeros). Since strtok keeps one
/// state for the whole process, this must not run on two threads at once, and
/// it disturbs a strtok sequence of the caller's that is under way.
OVKIT_API void OrvaTokenizer(char* text, const std::string& delimiters, std::vector<std::string>& tokens);

/// As the form above, on a private copy of `text` (up to its first NUL).
/// The same strtok caveat applies.
OVKIT_API void OrvaTokenizer(const std::string& text, const std::string& delimiters,
                             std::vector<std::string>& tokens);

/// Returns the first word of `text` and stores what follows it in `rest`.
/// - Text starting with a double quote: the word runs to the next double
///   quote and `rest` is what follows that closing quote, so `"a b" c` gives
///   `a b` and ` c` (the blank stays). With no closing quote, the word is all
///   behind the opening quote and `rest` is that same text.
/// - Otherwise the word ends at the first blank or tab, and `rest` is what
///   follows that one character; with no blank or tab the word is the whole
///   text and `rest` is empty.
/// `rest` may be the same object as `text`.
OVKIT_API std::string OrvaExtractFirstString(const std::string& text, std::string& rest);

/// Splits a command line at blanks; tabs are ordinary characters. Double
/// quotes protect blanks and are removed, also inside a word: `a"b c"d` is the
/// one word `ab cd`. A quote that is never closed runs to the end of the line.
/// Runs of blanks give no empty words, and neither does `""`.
/// Two quoted parts that touch do not join: `"ab""cd"` gives the one word
/// `b"cd`, because each opening quote at the front of the word moves the
/// word's start by one.
/// An empty `line` leaves `arguments` as it was; otherwise `arguments` is
/// cleared first. A line without any double quote is split with the strtok
/// form above, with its caveat.
OVKIT_API void OrvaParseCommandLine(const std::string& line, std::vector<std::string>& arguments);

/// Cuts a command line word by word, on demand.
///
///     OrvaCmdLineTokenizer<std::string> words("a 'b c' d");
///     words.Init('\0');
///     while (words.hasMoreTokens())
///         use(words.next());          // a, b c, d
///
/// Init() must be called before the first next(): it sets the delimiters to
/// blank and tab and the quotes to the double and single quote. Without it
/// there are no delimiters and next() returns the whole text.
///
/// next() rules, from the current position:
/// - No delimiter in the rest of the text: the word is all the rest, as it
///   stands, quotes included. So the last word keeps its quotes: on `a 'bc'`
///   the second word is `'bc'`.
/// - A delimiter before any quote (or no quote): the word runs up to that
///   delimiter.
/// - A quote first: the word is built with quoting. A quote outside opens and
///   is dropped; the same quote inside closes and is dropped, unless it is
///   doubled, which gives one such quote (`'it''s'` is `it's`); delimiters and
///   the other kind of quote inside are kept; a delimiter outside ends the
///   word.
/// After a word, the position moves to the next non-delimiter, so runs of
/// delimiters give no empty words between words. A delimiter at the very
/// start of the text does give one empty first word.
/// An empty text gives one empty word.
///
/// Instantiated for std::string. An object belongs to one caller.
template <class StringType>
class OrvaCmdLineTokenizer
{
public:
    /// The position once the text is used up.
    static constexpr unsigned int npos = 0xFFFFFFFFu;

    /// Starts at position 0 of a copy of `text`, with no delimiters and no
    /// quotes until Init() is called.
    explicit OrvaCmdLineTokenizer(const StringType& text = StringType());

    /// Sets the delimiters to blank and tab and the quotes to `"` and `'`.
    /// The argument only selects the character type; its value is unused.
    void Init(char);

    /// The next word, or an empty string once the text is used up.
    StringType next();

    /// True while next() still has a word to give (the position is not npos).
    bool hasMoreTokens() const { return m_nPosition != npos; }

    /// The offset of the next word in the text, or npos.
    unsigned int getPosition() const { return m_nPosition; }

private:
    StringType nextQuoted();
    void skipDelimitersFrom(typename StringType::size_type offset);

    StringType m_sText;
    StringType m_sDelimiters;
    StringType m_sQuotes;
    unsigned int m_nPosition;
};

extern template class OVKIT_API OrvaCmdLineTokenizer<std::string>;

/// The value of the environment variable `name`, or an empty string when it
/// is not set. Reads the environment without a lock.
OVKIT_API std::string OrvaGetEnvironmentVariable(const std::string& name);

/// Replaces every `<NAME>` in `text` with the environment variable NAME.
/// The name is what stands between the first `<` and the first `>` behind it,
/// with no further reading: in `a<b<c>` the name is `b<c`. After each
/// replacement the search starts again from the front, so a value that holds
/// `<OTHER>` is expanded in turn, and a value that holds its own `<NAME>`
/// never finishes. A name that the environment does not know is replaced with
/// nothing. Text without a `<` followed later by a `>` comes back unchanged.
/// Logs at level 9 the text, each name looked up, and the result.
OVKIT_API std::string OrvaExpandString(const std::string& text);

/// As above, but each name is first looked up in `properties` (its first
/// value); only a name that the table does not hold is taken from the
/// environment, and one known to neither is replaced with nothing.
OVKIT_API std::string OrvaExpandString(const std::string& text, OrvaProperties<std::string>& properties);

} // namespace OrvaSupport

#endif // OVKIT_ORVATOKENIZER_H
