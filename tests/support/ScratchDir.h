// A fresh directory for one test's files, removed with its contents at the
// end of the scope, and whole files read and written as bytes.
#ifndef OVKIT_TESTS_SUPPORT_SCRATCHDIR_H
#define OVKIT_TESTS_SUPPORT_SCRATCHDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ovkit_test
{

class ScratchDir
{
public:
    ScratchDir() : m_sPath((std::filesystem::temp_directory_path() / "ovkit-test-XXXXXX").string())
    {
        if (!mkdtemp(&m_sPath[0]))
            abort();
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_sPath, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& path() const { return m_sPath; }
    std::string file(const std::string& name) const { return m_sPath + "/" + name; }

private:
    std::string m_sPath;
};

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/// The bytes of a file; empty when it cannot be read.
inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace ovkit_test

#endif // OVKIT_TESTS_SUPPORT_SCRATCHDIR_H
