// The argument forms of both modes, from argc/argv and from one string, and
// the failures of a parse.
#include <ovkit/OrvaProgramOptions.h>

#include <ovkit/OrvaException.h>

#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using namespace OrvaSupport;

namespace
{

const char* const kShort = "ab:c";
const char* const kLong = ":help:file.:c.:";
const std::string kUnknown = "!OrvaProgramOptions::parse: Unrecognized option: -";
const std::string kNoData = "!OrvaProgramOptions::parse: option data not available for: -";

/// "name=v1,v2;" per option, then "|argument" per positional argument.
std::string describe(const OrvaProgramOptions& options)
{
    std::string text;
    for (const auto& entry : options.getProperties().getProperties())
    {
        text += entry.first + "=";
        for (std::size_t i = 0; i < entry.second.size(); ++i)
            text += (i ? "," : "") + entry.second[i];
        text += ";";
    }
    for (const std::string& argument : options.getArguments())
        text += "|" + argument;
    return text;
}

/// Parses "prog" and `words` from argc/argv and from one string, and returns
/// describe() or "!" and the exception text; fails when the two disagree.
std::string run(const std::string& words, bool strict, bool slash)
{
    std::vector<std::string> storage{"prog"};
    std::istringstream in(words);
    for (std::string word; in >> word;)
        storage.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : storage)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);
    const int argc = static_cast<int>(storage.size());

    std::string results[2];
    for (int form = 0; form < 2; ++form)
    {
        try
        {
            const std::string line = "prog " + words;
            if (strict)
                results[form] =
                    describe(form == 0 ? OrvaProgramOptions(argc, argv.data(), kShort, kLong, slash)
                                       : OrvaProgramOptions(line, kShort, kLong, slash));
            else
                results[form] = describe(form == 0 ? OrvaProgramOptions(argc, argv.data(), slash)
                                                   : OrvaProgramOptions(line, slash));
        }
        catch (const OrvaException& e)
        {
            EXPECT_EQ(e.getCode(), 0);
            results[form] = "!" + e.getText();
        }
    }
    EXPECT_EQ(results[0], results[1]) << "argv and string disagree on: " << words;
    return results[0];
}

} // namespace

TEST(OrvaProgramOptionsTest, ArgumentFormsInBothModes)
{
    struct Case
    {
        bool slash;
        const char* words;
        std::string freeMode;
        std::string strictMode;
    } cases[] = {
        {false, "x y", "|x|y", "|x|y"},
        // Double prefix: a long data option stores nothing and takes nothing.
        {false, "--help", "help=;", "help=;"},
        {false, "--help=yes", "help=yes;", "help=yes;"},
        {false, "--file x", "file=;|x", "|x"},
        {false, "--file=x", "file=x;", ""},
        {false, "--nope=1", "nope=1;", kUnknown + "-nope"},
        {false, "--", "", kUnknown + "-"},
        // Single prefix: long table first, then the short table.
        {false, "-help=v", "help=v;", "help=v;"},
        {false, "-file x y", "file=;|x|y", "file=x;|y"},
        {false, "-file=x y", "file=x;|y", "file=x=y;"},
        {false, "-c v", "c=;|v", "c=v;"}, // in both tables: long wins
        {false, "-ab", "ab=;", "a=;"},    // no flag clusters
        {false, "-a=1", "a=1;", "a=;"},
        {false, "-b v", "b=;|v", "b=v;"},
        {false, "-bvalue", "bvalue=;", "b=value;"},
        {false, "-b=value", "b=value;", "b==value;"},
        {false, "-x", "x=;", kUnknown + "x"},
        {false, "-#x", "", kUnknown + "#"},
        {false, "-", "", kUnknown}, // the zero character ends the text
        // Data options at the end of the line.
        {false, "-b", "b=;", kNoData + "b"},
        {false, "x -file", "file=;|x", kNoData + "file"},
        // Mixed and repeated.
        {false, "p -a q -a r", "a=,;|p|q|r", "a=,;|p|q|r"},
        {false, "-b 1 -b 2", "b=,;|1|2", "b=1,2;"},
        {false, "-k=1 -k=2", "k=1,2;", kUnknown + "k"},
        // The slash prefix, off and on.
        {false, "/a /-help", "|/a|/-help", "|/a|/-help"},
        {true, "/b x", "b=;|x", "b=x;"},
        {true, "/-help /-file x", "file=;help=;|x", "help=;|x"},
        {true, "/x -a", "a=;x=;", kUnknown + "x"},
    };
    for (const Case& c : cases)
    {
        EXPECT_EQ(run(c.words, false, c.slash), c.freeMode) << "free: " << c.words;
        EXPECT_EQ(run(c.words, true, c.slash), c.strictMode) << "strict: " << c.words;
    }
}

TEST(OrvaProgramOptionsTest, CommandLineStringAndArguments)
{
    OrvaProgramOptions options("/bin/tool -b \"a b\" 'c d' -a\t'it''s' last'q'", kShort, kLong);
    EXPECT_EQ(options.getProgramName(), "/bin/tool");
    EXPECT_EQ(describe(options), "a=;b=a b;|c d|it's|last'q'");
    OrvaProgramOptions empty(std::string(""));
    EXPECT_EQ(empty.getProgramName(), "");
    EXPECT_EQ(empty.getArgumentCount(), 0u);

    EXPECT_EQ(options.getArgument(2), "last'q'");
    EXPECT_EQ(ovkit_test::thrownText([&] { options.getArgument(3); }),
              "OrvaProgramOptions::getArgument: index out of bounds (0)");
    // A copy starts its own cursor at the front.
    EXPECT_EQ(options.nextArgument(), "c d");
    OrvaProgramOptions copy(options);
    EXPECT_EQ(copy.nextArgument(), "c d");
    EXPECT_EQ(options.nextArgument(), "it's");
}

TEST(OrvaProgramOptionsTest, LoneDashFoundInAShortTableHoldingAZeroReadsNoFurther)
{
    // A short table may hold the zero character, which a lone `-` stands for.
    // Its text behind that character is empty, so a data option takes the
    // next argument; the bytes that lie behind the argument's end are not
    // read (here a 'x' that a read past the end would take as the value).
    const std::string table("a\0:", 3);
    char dash[] = {'-', '\0', 'x', '\0'};
    char value[] = "v";
    char prog[] = "prog";
    char* argv[] = {prog, dash, value, nullptr};
    OrvaProgramOptions options(3, argv, table, "");
    EXPECT_EQ(options.getProperties().getPropertyValues(std::string(1, '\0')), std::vector<std::string>{"v"});
    EXPECT_EQ(options.getArgumentCount(), 0u);
    EXPECT_EQ(ovkit_test::thrownText([&] { OrvaProgramOptions(2, argv, table, ""); }),
              "OrvaProgramOptions::parse: option data not available for: - (0)"); // the zero ends the text
}
