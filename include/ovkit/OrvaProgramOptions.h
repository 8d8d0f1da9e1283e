/// \file
/// Command-line options: a parsed command line as a property table of options
/// and a list of positional arguments.
///
///     OrvaProgramOptions options(argc, argv, "vf:", ":help:config.:");   // throws OrvaException
///     if (options.getProperties().getPropertyValues("v").size() > 0) ...
///     std::string file = options.getProperties().getProperty("f", std::string("a.conf"));
///     while (options.hasNextArgument()) process(options.nextArgument());
///
/// Two modes, chosen by the constructor:
/// - strict (with option tables): every option must be in a table, or the
///   constructor throws OrvaException;
/// - free (no tables): every option-like argument is stored as a `key=value`
///   property, nothing is rejected, and no argument is ever taken as data.
///
/// The short table is a string of option characters; a character followed by
/// ':' takes data ("ab:c": a and c are flags, b takes data). The long table is
/// a string of names, each between two colons; a name directly followed by '.'
/// takes data (":help:file.:": help is a flag, file takes data). Neighbouring
/// names share a colon. Both tables are searched as plain text, so any part of
/// a table that has the searched form matches.
///
/// Argument forms (a prefix '/' counts as '-' only when `slash` is true; with
/// `slash` false "/x" and "/-x" are positional):
///
///     form      free mode               strict mode
///     word      positional              positional
///     --text    property from text      long table: a flag is stored (with any
///                                       "=value"); a data option stores nothing
///                                       and takes no data; unknown fails
///     -text     property from text      long table first (a data option takes
///                                       the next argument as its value), then
///                                       the short table on the first character
///                                       of text alone; unknown fails
///
/// Odd corners of strict mode, all deliberate:
/// - `--name` and `--name=value` for a long data option store nothing; a
///   following word stays positional. Only `-name value` delivers the data.
/// - `-name=value` for a long flag stores value under name; for a long data
///   option, `-name=x value` stores value under the key "name=x".
/// - A name in both tables counts as long when given with a single prefix.
/// - Flag clusters are not expanded: `-ab` sets a only.
/// - A short data option takes the rest of its argument as it stands: `-bvalue`
///   and `-b=value` store "value" and "=value"; `-b` alone takes the next
///   argument.
/// - `--` does not end the options. `-` and `--` alone are looked up under the
///   empty name (the table text "::" or ":.:"), and otherwise fail.
///
/// Repeating an option adds a further value under its key (the table is
/// multi-valued). Free mode drops an option whose text starts with '#'.
///
/// All failures are OrvaException with code 0:
///
///     "OrvaProgramOptions::parse: Unrecognized option: --" + name
///     "OrvaProgramOptions::parse: Unrecognized option: -" + character (for
///         `-` alone a zero character, so that the text ends at the '-')
///     "OrvaProgramOptions::parse: option data not available for: -" + name
///     "OrvaProgramOptions::getArgument: index out of bounds"
///     "OrvaProgramOptions::nextArgument: no more arguments"
#ifndef OVKIT_ORVAPROGRAMOPTIONS_H
#define OVKIT_ORVAPROGRAMOPTIONS_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaProperties.h>

#include <string>
#include <vector>

namespace OrvaSupport
{

/// A parsed command line. All parsing happens in the constructor, which
/// throws OrvaException on a bad line in strict mode; a half-parsed object is
/// never seen. Not safe for concurrent use while the argument cursor moves.
class OVKIT_API OrvaProgramOptions
{
public:
    /// The positional arguments, in command-line order.
    typedef std::vector<std::string> ArgumentVector;

    /// Strict mode over argv[1..argc-1]; the program name is argv[0].
    OrvaProgramOptions(int argc, char** argv, const std::string& shortOptions, const std::string& longOptions,
                       bool slash = false);
    /// Free mode over argv[1..argc-1]; the program name is argv[0].
    explicit OrvaProgramOptions(int argc, char** argv, bool slash = false);
    /// Strict mode over a command line in one string, whose first word is the
    /// program name. Words are cut as by OrvaCmdLineTokenizer: blanks and tabs
    /// separate, double and single quotes protect, and the last word keeps
    /// any quotes it holds. A line that starts with a blank has an empty
    /// program name, and its first word becomes an argument.
    OrvaProgramOptions(const std::string& commandLine, const std::string& shortOptions,
                       const std::string& longOptions, bool slash = false);
    /// Free mode over a command line in one string (see above).
    explicit OrvaProgramOptions(const std::string& commandLine, bool slash = false);

    /// Guards against a table string being taken for the `slash` flag, which
    /// would silently select free mode.
    OrvaProgramOptions(int argc, char** argv, const char* shortOptions) = delete;
    OrvaProgramOptions(const std::string& commandLine, const char* shortOptions) = delete;

    /// Copies name, options and arguments; the copy's cursor is at its first
    /// argument.
    OrvaProgramOptions(const OrvaProgramOptions& other);
    /// As the copy; the cursor goes back to the first argument. Self-assignment
    /// does nothing.
    OrvaProgramOptions& operator=(const OrvaProgramOptions& other);
    ~OrvaProgramOptions();

    /// Parses argv[1..argc-1] and adds what it finds to this object: options
    /// to the properties, positional arguments behind the ones already held.
    /// argv[0] is never read, and neither is the program name set. A null
    /// argv, or a null element, is passed over. Afterwards the cursor stands
    /// at the first argument. Throws OrvaException only.
    void parse(int argc, char** argv, const std::string& shortOptions, const std::string& longOptions,
               bool strict, bool slash);
    /// Cuts `commandLine` into words, takes the first as the program name
    /// (replacing any earlier one) and parses the rest as above.
    void parse(const std::string& commandLine, const std::string& shortOptions,
               const std::string& longOptions, bool strict, bool slash);

    /// Deals with a long option `name` (the text behind its prefix, with any
    /// "=value"). Free mode: stores it as `key=value` and returns true. Strict
    /// mode: a flag of `longOptions` is stored and gives true; a data option
    /// stores nothing and gives false (it still needs its data); any other
    /// name throws "OrvaProgramOptions::parse: Unrecognized option: --" and
    /// the name up to its first '='.
    bool longOption(const std::string& name, const std::string& longOptions, bool strict);

    /// argv[0], or the first word of the command-line string.
    const std::string& getProgramName() const { return m_sProgramName; }
    ///@{
    /// The options: one name per option, with one value per occurrence
    /// (empty for a flag).
    const OrvaProperties<std::string>& getProperties() const { return m_oProperties; }
    OrvaProperties<std::string>& getProperties() { return m_oProperties; }
    ///@}
    /// The positional arguments, in command-line order.
    const ArgumentVector& getArguments() const { return m_vecArguments; }
    /// How many positional arguments there are.
    unsigned int getArgumentCount() const { return static_cast<unsigned int>(m_vecArguments.size()); }
    /// The positional argument `index`; throws OrvaException
    /// "OrvaProgramOptions::getArgument: index out of bounds" (code 0) when
    /// `index` is not below getArgumentCount().
    const std::string& getArgument(unsigned int index) const;

    /// True while the cursor has not passed the last positional argument.
    bool hasNextArgument() const { return m_itCurrent != m_vecArguments.end(); }
    /// The argument at the cursor, which then moves on by one; throws
    /// OrvaException "OrvaProgramOptions::nextArgument: no more arguments"
    /// (code 0) when hasNextArgument() is false.
    const std::string& nextArgument();

private:
    void parseOption(int& index, int argc, char** argv, const std::string& shortOptions,
                     const std::string& longOptions, bool strict);
    void shortOption(int& index, int argc, char** argv, const std::string& shortOptions);

    std::string m_sProgramName;
    OrvaProperties<std::string> m_oProperties;
    ArgumentVector m_vecArguments;
    ArgumentVector::const_iterator m_itCurrent;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAPROGRAMOPTIONS_H
