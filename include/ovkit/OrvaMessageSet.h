/// \file
/// Translated texts for one locale, read from a base file and its language and
/// country overlays.
///
///     OrvaMessageSet messages("/opt/agent/messages", std::locale("de_DE.UTF-8"));
///     std::wstring text = messages.getMessage("greeting");   // throws if no file has it
///
/// For the base name B and a locale whose language code is `de` and country
/// code `DE` (as OrvaLocaleFactory::getLanguage and getCountry give them), a
/// set reads, in this order, into one table:
///
///     B.pro          must exist: otherwise OrvaException, code 0, with the text
///                    "OrvaProperties<StringType>::loadProperties: couldn't open file "
///                    and the path; nothing else is read
///     B_de.pro       optional
///     B_de_DE.pro    optional; tried also when B_de.pro is missing
///
/// A key in a later file replaces the text of an earlier one, so an overlay
/// holds only what differs. An empty code ends the list there. The codes are
/// taken as they come: under the "C" locale both are "C" (B_C.pro, B_C_C.pro);
/// a locale of mixed categories, whose name reads "LC_CTYPE=...;...", gives
/// the language "LC". A missing overlay leaves only the level 5 log message of
/// the property load.
///
/// The files are property files with the separator '=' (see OrvaProperties.h):
/// names are taken as they stand, so "key = text" stores the name "key " with
/// the text "text". No argument is substituted: a text comes back as written,
/// percent signs and braces included.
///
/// Characters. The set's locale chooses the files only; it is not used to read
/// them. A plain file is decoded with the global C++ locale of the moment of
/// loading: under the classic locale, the load stops silently at the first
/// line that holds a byte above 0x7F. A file that starts with the 16-bit byte
/// order mark 0xFF 0xFE is read unit by unit whatever the locale, characters
/// beyond U+FFFF as their two surrogates. Write files with anything beyond
/// ASCII in the 16-bit form.
///
/// Threads. getMessage() may run on any thread, also while loadSet() adds
/// texts; each text is read and stored under the table's lock.
#ifndef OVKIT_ORVAMESSAGESET_H
#define OVKIT_ORVAMESSAGESET_H

#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaProperties.h>

#include <locale>
#include <string>

namespace OrvaSupport
{

/// A table of texts by key for one locale; see the top of this file.
class OVKIT_API OrvaMessageSet
{
public:
    /// Keeps the locale and loads the set with loadSet(baseName); an
    /// exception from it leaves the constructor.
    OrvaMessageSet(const std::string& baseName, std::locale locale);
    virtual ~OrvaMessageSet();

    /// Reads the base file and the overlays of the set's locale into the
    /// table, adding to what it holds. Throws OrvaException when the base
    /// file cannot be opened, before reading anything.
    void loadSet(const std::string& baseName);

    /// The text of `key`. An ASCII key is found under any global locale;
    /// other bytes are decoded as plain files are, and a key that cannot be
    /// decoded is missing. An empty text is a text. Throws
    /// OrvaMissingMessageException, with the text
    /// "OrvaMissingMessageException - Missing " and the key, when no file
    /// holds the key.
    std::wstring getMessage(const std::string& key) const;

protected:
    /// The locale of the constructor: its language and country name the
    /// overlay files.
    std::locale m_oLocale;
    /// Single-valued: a repeated key keeps its last text.
    OrvaProperties<std::wstring> m_oMessages;
};

} // namespace OrvaSupport

#endif // OVKIT_ORVAMESSAGESET_H
