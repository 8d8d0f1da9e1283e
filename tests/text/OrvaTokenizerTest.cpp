// The word cutters on quotes, tabs, runs of blanks and empty input, and the
// expansion of <NAME> from properties and the environment.
#include <ovkit/OrvaTokenizer.h>

#include <ovkit/OrvaProperties.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using namespace OrvaSupport;

namespace
{

typedef std::vector<std::string> Words;
typedef std::pair<const char*, Words> WordsCase;

Words tokenized(const std::string& line)
{
    OrvaCmdLineTokenizer<std::string> tokenizer(line);
    tokenizer.Init('\0');
    Words words;
    while (tokenizer.hasMoreTokens())
        words.push_back(tokenizer.next());
    EXPECT_EQ(tokenizer.next(), "") << line; // used up
    return words;
}

} // namespace

TEST(OrvaTokenizerTest, TokenizerForms)
{
    Words tokens{"stale"};
    char block[] = "a\0b c\0\0ignored";
    OrvaTokenizer(block, tokens);
    EXPECT_EQ(tokens, (Words{"a", "b c"}));
    OrvaTokenizer(static_cast<char*>(nullptr), tokens);
    EXPECT_TRUE(tokens.empty());
    // Without delimiters the text is one token; an empty text gives none.
    OrvaTokenizer(std::string("a b\tc"), tokens);
    EXPECT_EQ(tokens, (Words{"a b\tc"}));
    OrvaTokenizer(std::string(), tokens);
    EXPECT_TRUE(tokens.empty());

    // With delimiters a run counts as one, and quotes mean nothing.
    OrvaTokenizer(std::string(" \t a\t\tb \"c d\"\t"), " \t", tokens);
    EXPECT_EQ(tokens, (Words{"a", "b", "\"c", "d\""}));
    tokens.push_back("stale");
    OrvaTokenizer(std::string(), ",", tokens);
    EXPECT_TRUE(tokens.empty());
    const std::string kept("x;y"); // cut in a copy
    OrvaTokenizer(kept, ";", tokens);
    EXPECT_EQ(tokens, (Words{"x", "y"}));
    EXPECT_EQ(kept, "x;y");
}

TEST(OrvaTokenizerTest, ExtractFirstString)
{
    const char* const cases[][3] = {
        {"\"a b\" c", "a b", " c"}, {"\"a b", "a b", "a b"}, {"\"\"x", "", "x"},   {"a\tb c", "a", "b c"},
        {"a  b", "a", " b"},        {" a", "", "a"},         {"word", "word", ""}, {"", "", ""},
    };
    for (const auto& c : cases)
    {
        std::string rest = "stale";
        EXPECT_EQ(OrvaExtractFirstString(c[0], rest), c[1]) << c[0];
        EXPECT_EQ(rest, c[2]) << c[0];
    }
    // The usual loop passes the same string as text and rest.
    std::string line = "\"first word\" second";
    EXPECT_EQ(OrvaExtractFirstString(line, line), "first word");
    EXPECT_EQ(line, " second");
}

TEST(OrvaTokenizerTest, CommandLinesCutAtBlanksAndQuotes)
{
    // OrvaParseCommandLine: blanks separate, tabs do not; double quotes protect.
    const WordsCase parsed[] = {
        {"prog \"a b\" c", {"prog", "a b", "c"}},
        {"prog a\"b c\"d e", {"prog", "ab cd", "e"}},
        {"prog \"a b", {"prog", "a b"}},
        {"a\tb c", {"a\tb", "c"}},
        {"  a   b  ", {"a", "b"}},
        {"\"a\tb\"  \"\"  c", {"a\tb", "c"}},
        {"\"ab\"\"cd\"", {"b\"cd"}},
        {"a\" \"\" \"b", {"a  b"}},
        {"   ", {}},
    };
    for (const WordsCase& c : parsed)
    {
        Words words{"stale"};
        OrvaParseCommandLine(c.first, words);
        EXPECT_EQ(words, c.second) << c.first;
    }
    Words kept{"kept"};
    OrvaParseCommandLine("", kept); // an empty line changes nothing
    EXPECT_EQ(kept, (Words{"kept"}));

    // OrvaCmdLineTokenizer: blanks and tabs separate; either quote protects.
    const WordsCase tokens[] = {
        {"a 'b c' d", {"a", "b c", "d"}},
        {"a 'bc'", {"a", "'bc'"}},                          // no delimiter left: kept as it stands
        {"'it''s' x", {"it's", "x"}},                       // a doubled quote inside quotes
        {"\"it's\" 'a \"b\"' x", {"it's", "a \"b\"", "x"}}, // the other quote is kept inside
        {"a\t \tb  c", {"a", "b", "c"}},
        {"pre'a b'post x", {"prea bpost", "x"}},
        {" a", {"", "a"}},
        {"'open x", {"open x"}},
        {"", {""}},
    };
    for (const WordsCase& c : tokens)
        EXPECT_EQ(tokenized(c.first), c.second) << c.first;
}

TEST(OrvaTokenizerTest, ExpandFromPropertiesThenEnvironment)
{
    ::setenv("OVKIT_A", "<OVKIT_B>/a", 1);
    ::setenv("OVKIT_B", "b", 1);
    ::setenv("b<c", "inner", 1);
    ::unsetenv("OVKIT_NONE");
    EXPECT_EQ(OrvaExpandString("no brackets"), "no brackets");
    EXPECT_EQ(OrvaExpandString("a>b<"), "a>b<");
    EXPECT_EQ(OrvaExpandString("x<OVKIT_A>y<OVKIT_B>"), "xb/ayb"); // values are expanded in turn
    EXPECT_EQ(OrvaExpandString("a<b<c>"), "ainner");               // from the first '<' to the next '>'
    EXPECT_EQ(OrvaExpandString("1<OVKIT_NONE>2"), "12");           // a name known nowhere is removed
    ::setenv("OVKIT_OPEN", "<OVKIT_", 1);                          // each replacement restarts at the front
    EXPECT_EQ(OrvaExpandString("<OVKIT_OPEN>B>"), "b");

    OrvaProperties<std::string> properties;
    properties.addProperty("OVKIT_B", "first");
    properties.addProperty("OVKIT_B", "second");
    properties.addProperty("P", "<OVKIT_A>-<Q>");
    properties.addProperty("Q", "q");
    EXPECT_EQ(OrvaExpandString("<OVKIT_B>", properties), "first");
    EXPECT_EQ(OrvaExpandString("[<P>]", properties), "[first/a-q]");
    EXPECT_EQ(OrvaExpandString("[<OVKIT_NONE>]", properties), "[]");
}
