// Message sets: a base file and its language and country overlays, read for
// one locale, and texts looked up by key.
//
// Input: a selector byte, then fields: the base file, the language file, the
// country file, and keys to look up.
//   selector bit 0     the set's locale is C.UTF-8 (else C); the overlays
//                      are named after its codes as OrvaLocaleFactory gives
//                      them
//            bit 1     global C++ locale C.UTF-8 during the load (else
//                      classic), which decodes plain files
//            bits 2-4  the base, language, country file is missing
// A file that starts with 0xFF 0xFE is 16-bit text.
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaLocaleFactory.h>
#include <ovkit/OrvaMessageSet.h>

#include "FuzzSupport.h"

#include <cstdio>
#include <fstream>
#include <locale>
#include <memory>
#include <string>

using namespace OrvaSupport;
using ovkit_fuzz::Input;

namespace
{

void place(const std::string& path, const std::string& bytes, bool missing)
{
    std::remove(path.c_str());
    if (!missing)
        std::ofstream(path, std::ios::binary) << bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > ovkit_fuzz::c_nMaxInput)
        return 0;
    static const std::locale utf8("C.UTF-8");
    Input input(data, size);
    const std::uint8_t selector = input.byte();
    const std::locale setLocale = (selector & 1) ? utf8 : std::locale::classic();
    const std::string base = ovkit_fuzz::scratchDir() + "/messages";
    const std::string language = base + "_" + OrvaLocaleFactory::getLanguage(setLocale);
    const std::string country = language + "_" + OrvaLocaleFactory::getCountry(setLocale);
    place(base + ".pro", input.field(), selector & 4);
    place(language + ".pro", input.field(), selector & 8);
    place(country + ".pro", input.field(), selector & 16);

    std::locale::global((selector & 2) ? utf8 : std::locale::classic());
    std::unique_ptr<OrvaMessageSet> messages;
    try
    {
        messages.reset(new OrvaMessageSet(base, setLocale));
        OVKIT_FUZZ_CHECK(!(selector & 4));
    }
    catch (const OrvaException&)
    {
        OVKIT_FUZZ_CHECK(selector & 4); // only the base file must be there
    }
    if (messages)
    {
        while (!input.empty())
        {
            const std::string key = input.field();
            try
            {
                messages->getMessage(key);
            }
            catch (const OrvaException&)
            {
            }
        }
    }
    std::locale::global(std::locale::classic());
    return 0;
}
