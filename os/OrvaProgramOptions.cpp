#include <ovkit/OrvaProgramOptions.h>

#include <ovkit/OrvaException.h>
#include <ovkit/OrvaTokenizer.h>

#include <cstdlib>
#include <cstring>

namespace OrvaSupport
{

namespace
{

const char* const kUnrecognized = "OrvaProgramOptions::parse: Unrecognized option: -";
const char* const kNoData = "OrvaProgramOptions::parse: option data not available for: -";

/// An argv-style array built from the words of a command line: element 0 is
/// left null, each word lives in a block of its own. Owns the blocks.
class ArgumentArray
{
public:
    ArgumentArray() : m_pArgv(nullptr), m_nCount(1) {}
    ~ArgumentArray()
    {
        for (int i = 1; i < m_nCount; ++i)
            std::free(m_pArgv[i]);
        std::free(m_pArgv);
    }
    ArgumentArray(const ArgumentArray&) = delete;
    ArgumentArray& operator=(const ArgumentArray&) = delete;

    /// Appends a copy of `word`; a word that finds no memory is dropped.
    void append(const std::string& word)
    {
        char** grown = static_cast<char**>(std::realloc(m_pArgv, sizeof(char*) * (m_nCount + 1)));
        if (grown == nullptr)
            return;
        m_pArgv = grown;
        if (m_nCount == 1)
            m_pArgv[0] = nullptr;
        char* copy = static_cast<char*>(std::malloc(word.size() + 1));
        if (copy == nullptr)
            return;
        std::memcpy(copy, word.c_str(), word.size() + 1);
        m_pArgv[m_nCount++] = copy;
    }

    int count() const { return m_nCount; }
    char** argv() const { return m_pArgv; }

private:
    char** m_pArgv;
    int m_nCount;
};

} // namespace

OrvaProgramOptions::OrvaProgramOptions(int argc, char** argv, const std::string& shortOptions,
                                       const std::string& longOptions, bool slash)
    : m_itCurrent(m_vecArguments.begin())
{
    if (argc > 0 && argv != nullptr && argv[0] != nullptr)
        m_sProgramName = argv[0];
    parse(argc, argv, shortOptions, longOptions, true, slash);
}

OrvaProgramOptions::OrvaProgramOptions(int argc, char** argv, bool slash)
    : m_itCurrent(m_vecArguments.begin())
{
    if (argc > 0 && argv != nullptr && argv[0] != nullptr)
        m_sProgramName = argv[0];
    parse(argc, argv, "", "", false, slash);
}

OrvaProgramOptions::OrvaProgramOptions(const std::string& commandLine, const std::string& shortOptions,
                                       const std::string& longOptions, bool slash)
    : m_itCurrent(m_vecArguments.begin())
{
    parse(commandLine, shortOptions, longOptions, true, slash);
}

OrvaProgramOptions::OrvaProgramOptions(const std::string& commandLine, bool slash)
    : m_itCurrent(m_vecArguments.begin())
{
    parse(commandLine, "", "", false, slash);
}

OrvaProgramOptions::OrvaProgramOptions(const OrvaProgramOptions& other)
    : m_sProgramName(other.m_sProgramName), m_oProperties(other.m_oProperties),
      m_vecArguments(other.m_vecArguments), m_itCurrent(m_vecArguments.begin())
{
}

OrvaProgramOptions& OrvaProgramOptions::operator=(const OrvaProgramOptions& other)
{
    if (this != &other)
    {
        m_sProgramName = other.m_sProgramName;
        m_oProperties = other.m_oProperties;
        m_vecArguments = other.m_vecArguments;
        m_itCurrent = m_vecArguments.begin();
    }
    return *this;
}

OrvaProgramOptions::~OrvaProgramOptions() {}

bool OrvaProgramOptions::longOption(const std::string& name, const std::string& longOptions, bool strict)
{
    if (!strict)
    {
        m_oProperties.addProperty(name, '=');
        return true;
    }
    const std::string key = name.substr(0, name.find('='));
    if (longOptions.find(":" + key + ":") != std::string::npos)
    {
        m_oProperties.addProperty(name, '=');
        return true;
    }
    if (longOptions.find(":" + key + ".:") != std::string::npos)
        return false;
    throw OrvaException(kUnrecognized + std::string("-") + key, 0);
}

void OrvaProgramOptions::shortOption(int& index, int argc, char** argv, const std::string& shortOptions)
{
    const char* arg = argv[index];
    const char c = arg[1];
    // A lone prefix stands for the zero character, which a table may hold;
    // nothing stands behind it, and nothing behind the argument is read.
    const char* rest = c == '\0' ? arg + 1 : arg + 2;
    const std::string key(1, c);
    const std::string::size_type found = shortOptions.find(c);
    if (found == std::string::npos)
        throw OrvaException(kUnrecognized + key, 0);
    if (found + 1 >= shortOptions.size() || shortOptions[found + 1] != ':')
    {
        // A flag; anything behind the character is ignored.
        m_oProperties.addProperty(key, std::string());
    }
    else if (*rest != '\0')
    {
        m_oProperties.addProperty(key, std::string(rest));
    }
    else
    {
        if (++index >= argc || argv[index] == nullptr)
            throw OrvaException(kNoData + key, 0);
        m_oProperties.addProperty(key, std::string(argv[index]));
    }
}

void OrvaProgramOptions::parseOption(int& index, int argc, char** argv, const std::string& shortOptions,
                                     const std::string& longOptions, bool strict)
{
    const char* arg = argv[index];
    if (arg[1] == '-')
    {
        // A double prefix never takes the next argument, even where the long
        // table says the option needs data.
        longOption(arg + 2, longOptions, strict);
        return;
    }
    if (!strict)
    {
        m_oProperties.addProperty(std::string(arg + 1), '=');
        return;
    }
    bool needsData = false;
    try
    {
        needsData = !longOption(arg + 1, longOptions, strict);
    }
    catch (OrvaException&)
    {
        shortOption(index, argc, argv, shortOptions);
    }
    if (needsData)
    {
        if (++index >= argc || argv[index] == nullptr)
            throw OrvaException(kNoData + std::string(arg + 1), 0);
        m_oProperties.addProperty(std::string(arg + 1), std::string(argv[index]));
    }
}

void OrvaProgramOptions::parse(int argc, char** argv, const std::string& shortOptions,
                               const std::string& longOptions, bool strict, bool slash)
{
    for (int i = 1; argv != nullptr && i < argc; ++i)
    {
        const char* arg = argv[i];
        if (arg == nullptr)
            continue;
        if (arg[0] != '-' && !(slash && arg[0] == '/'))
        {
            m_vecArguments.push_back(arg);
            continue;
        }
        parseOption(i, argc, argv, shortOptions, longOptions, strict);
    }
    m_itCurrent = m_vecArguments.begin();
}

void OrvaProgramOptions::parse(const std::string& commandLine, const std::string& shortOptions,
                               const std::string& longOptions, bool strict, bool slash)
{
    OrvaCmdLineTokenizer<std::string> words(commandLine);
    words.Init('\0');
    if (words.hasMoreTokens())
        m_sProgramName = words.next();
    ArgumentArray arguments;
    while (words.hasMoreTokens())
        arguments.append(words.next());
    parse(arguments.count(), arguments.argv(), shortOptions, longOptions, strict, slash);
}

const std::string& OrvaProgramOptions::getArgument(unsigned int index) const
{
    if (index >= m_vecArguments.size())
        throw OrvaException("OrvaProgramOptions::getArgument: index out of bounds", 0);
    return m_vecArguments[index];
}

const std::string& OrvaProgramOptions::nextArgument()
{
    if (m_itCurrent == m_vecArguments.end())
        throw OrvaException("OrvaProgramOptions::nextArgument: no more arguments", 0);
    return *m_itCurrent++;
}

} // namespace OrvaSupport
