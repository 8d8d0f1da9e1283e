// The word cutters: OrvaParseCommandLine, OrvaCmdLineTokenizer, the four
// OrvaTokenizer forms and OrvaExtractFirstString, each on the same text.
//
// Input: two fields, the text and the delimiters of the strtok forms.
#include <ovkit/OrvaTokenizer.h>

#include "FuzzSupport.h"

#include <cstring>
#include <string>
#include <vector>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

void checkCommandLine(const std::string& text)
{
    std::vector<std::string> arguments{"kept"};
    OrvaParseCommandLine(text, arguments);
    if (text.empty())
    {
        OVKIT_FUZZ_CHECK(arguments.size() == 1 && arguments[0] == "kept");
        return;
    }
    const bool quoted = text.find('"') != std::string::npos;
    for (const std::string& word : arguments)
    {
        // Runs of blanks and empty quotes give no empty words, and only
        // quotes protect a blank.
        OVKIT_FUZZ_CHECK(!word.empty());
        OVKIT_FUZZ_CHECK(quoted || word.find(' ') == std::string::npos);
    }
}

void checkCmdLineTokenizer(const std::string& text)
{
    OrvaCmdLineTokenizer<std::string> words(text);
    words.Init('\0');
    // Every word moves the position on, so the loop ends.
    unsigned int position = 0;
    bool first = true;
    while (words.hasMoreTokens())
    {
        OVKIT_FUZZ_CHECK(first || words.getPosition() > position);
        position = words.getPosition();
        first = false;
        words.next();
    }
    OVKIT_FUZZ_CHECK(words.next().empty());

    // Without Init there are no delimiters: one word, the whole text.
    OrvaCmdLineTokenizer<std::string> whole(text);
    OVKIT_FUZZ_CHECK(whole.next() == text && !whole.hasMoreTokens());
}

/// Tokens of the strtok forms hold no delimiter and are never empty.
void checkSplit(const std::vector<std::string>& tokens, const std::string& delimiters)
{
    const std::string cut = delimiters.substr(0, delimiters.find('\0'));
    for (const std::string& token : tokens)
        OVKIT_FUZZ_CHECK(!token.empty() && token.find_first_of(cut) == std::string::npos &&
                         token.find('\0') == std::string::npos);
}

void checkTokenizers(const std::string& text, const std::string& delimiters)
{
    std::vector<std::string> fromString{"old"};
    OrvaTokenizer(text, delimiters, fromString);
    checkSplit(fromString, delimiters);
    std::vector<char> buffer(text.begin(), text.end());
    buffer.push_back('\0');
    std::vector<std::string> fromBuffer{"old"};
    OrvaTokenizer(buffer.data(), delimiters, fromBuffer);
    OVKIT_FUZZ_CHECK(fromBuffer == fromString);

    // The block of C strings: the text's own zeros cut it, two more end it.
    std::vector<char> block(text.begin(), text.end());
    block.push_back('\0');
    block.push_back('\0');
    std::vector<std::string> fromBlock{"old"};
    OrvaTokenizer(block.data(), fromBlock);
    for (const std::string& token : fromBlock)
        OVKIT_FUZZ_CHECK(!token.empty());
    std::vector<std::string> single{"old"};
    OrvaTokenizer(text, single);
    const std::string head = text.substr(0, text.find('\0'));
    OVKIT_FUZZ_CHECK(head.empty() ? single.empty() : single.size() == 1 && single[0] == head);
    std::vector<std::string> none{"old"};
    OrvaTokenizer(static_cast<char*>(nullptr), none);
    OVKIT_FUZZ_CHECK(none.empty());
}

void checkExtractFirstString(const std::string& text)
{
    std::string rest = "old";
    const std::string word = OrvaExtractFirstString(text, rest);
    OVKIT_FUZZ_CHECK(word.size() <= text.size() && rest.size() <= text.size());
    // `rest` may be the text itself.
    std::string same = text;
    OVKIT_FUZZ_CHECK(OrvaExtractFirstString(same, same) == word && same == rest);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const std::string text = input.field();
    const std::string delimiters = input.rest();
    checkCommandLine(text);
    checkCmdLineTokenizer(text);
    checkTokenizers(text, delimiters);
    checkExtractFirstString(text);
    return 0;
}
