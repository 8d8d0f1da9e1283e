// Program options in strict and free mode, from an argument vector or from
// one command-line string, with fuzzed option tables.
//
// Input: a selector byte, then fields: the short table, the long table, and
// the arguments (argv[1] on), or the command line as one field.
//   selector bit 0  strict mode (else free mode, which ignores the tables)
//            bit 1  one command-line string (else an argument vector)
//            bit 2  '/' counts as an option prefix
//            bit 3  empty arguments are null pointers in the vector
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaProgramOptions.h>
#include <ovkit/OrvaTokenizer.h>

#include "FuzzSupport.h"

#include <memory>
#include <string>
#include <vector>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

/// Reads the parsed object through every accessor; the cursor walks the
/// arguments that getArguments() lists.
void readBack(OrvaProgramOptions& options)
{
    const auto map = options.getProperties().getProperties();
    for (const auto& entry : map)
        OVKIT_FUZZ_CHECK(!entry.first.empty() && !entry.second.empty());
    const unsigned int count = options.getArgumentCount();
    OVKIT_FUZZ_CHECK(count == options.getArguments().size());
    for (unsigned int i = 0; i < count; ++i)
        OVKIT_FUZZ_CHECK(&options.getArgument(i) == &options.getArguments()[i]);
    try
    {
        options.getArgument(count);
        abort();
    }
    catch (const OrvaException&)
    {
    }
    unsigned int walked = 0;
    while (options.hasNextArgument())
        OVKIT_FUZZ_CHECK(options.nextArgument() == options.getArguments()[walked++]);
    OVKIT_FUZZ_CHECK(walked == count);
    try
    {
        options.nextArgument();
        abort();
    }
    catch (const OrvaException&)
    {
    }
    OrvaProgramOptions copy(options);
    OVKIT_FUZZ_CHECK(copy.getArguments() == options.getArguments() && copy.hasNextArgument() == (count > 0));
    copy = options;
    OVKIT_FUZZ_CHECK(copy.getProgramName() == options.getProgramName());
}

/// Free mode rejects nothing and never takes an argument as an option's
/// data: the positional arguments are exactly the words without a prefix.
void checkFreeArguments(const OrvaProgramOptions& options, const std::vector<const char*>& words, bool slash)
{
    std::vector<std::string> positional;
    for (const char* word : words)
        if (word && word[0] != '-' && !(slash && word[0] == '/'))
            positional.push_back(word);
    OVKIT_FUZZ_CHECK(options.getArguments() == positional);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    Input input(data, size);
    const std::uint8_t selector = input.byte();
    const bool strict = selector & 1, fromString = selector & 2, slash = selector & 4, nulls = selector & 8;
    const std::string shortTable = input.field();
    const std::string longTable = input.field();

    if (fromString)
    {
        const std::string line = input.rest();
        std::unique_ptr<OrvaProgramOptions> options;
        try
        {
            options.reset(strict ? new OrvaProgramOptions(line, shortTable, longTable, slash)
                                 : new OrvaProgramOptions(line, slash));
        }
        catch (const OrvaException&)
        {
            OVKIT_FUZZ_CHECK(strict);
            return 0;
        }
        readBack(*options);
        if (!strict)
        {
            // The same words as OrvaCmdLineTokenizer cuts them, the first
            // being the program name.
            OrvaCmdLineTokenizer<std::string> tokenizer(line);
            tokenizer.Init('\0');
            std::vector<std::string> words;
            while (tokenizer.hasMoreTokens())
                words.push_back(tokenizer.next());
            OVKIT_FUZZ_CHECK(options->getProgramName() == (words.empty() ? "" : words[0]));
            std::vector<const char*> rest;
            for (std::size_t i = 1; i < words.size(); ++i)
                rest.push_back(words[i].c_str());
            checkFreeArguments(*options, rest, slash);
        }
        return 0;
    }

    std::vector<std::string> arguments;
    while (!input.empty())
        arguments.push_back(input.field());
    std::vector<const char*> argv{"prog"};
    for (const std::string& argument : arguments)
        argv.push_back(nulls && argument.empty() ? nullptr : argument.c_str());
    std::vector<char*> mutableArgv;
    for (const char* argument : argv)
        mutableArgv.push_back(const_cast<char*>(argument));
    mutableArgv.push_back(nullptr);
    const int argc = static_cast<int>(argv.size());
    std::unique_ptr<OrvaProgramOptions> options;
    try
    {
        options.reset(strict ? new OrvaProgramOptions(argc, mutableArgv.data(), shortTable, longTable, slash)
                             : new OrvaProgramOptions(argc, mutableArgv.data(), slash));
    }
    catch (const OrvaException&)
    {
        OVKIT_FUZZ_CHECK(strict);
        return 0;
    }
    OVKIT_FUZZ_CHECK(options->getProgramName() == "prog");
    readBack(*options);
    if (!strict)
        checkFreeArguments(*options, std::vector<const char*>(argv.begin() + 1, argv.end()), slash);
    return 0;
}
