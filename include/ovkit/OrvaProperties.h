/// \file
/// Tables of named text settings, and the property files they are read from.
///
///     OrvaSmartPointer<OrvaProperties<std::string> > props(new OrvaProperties<std::string>());
///     props->loadProperties("/etc/agent/agent.properties", '=');   // throws if unreadable
///     std::string port = props->getProperty("port", std::string("8080"));
///
/// An OrvaProperties table maps a name to an ordered list of text values: one
/// value in the ordinary case, several when a name was added more than once.
/// All values are text; a client that wants a number parses the string.
///
/// The template is built into the library for four string types, and only
/// these may be used:
///
///     std::string, std::wstring          names compared character by character
///     ci_string, ci_wstring              names compared without regard to case
///                                        ("Path", "PATH" and "path" are one
///                                        name; the spelling added first is kept)
///
/// Duplicates. A table built multi-valued (the default) keeps every value of a
/// repeated name and answers with the first one; a later value never disturbs
/// an earlier one. A table built single-valued overwrites, and so answers with
/// the last one.
///
/// Property files. A line is a name and a value around a separator chosen by
/// the caller; there are no sections, quoting, escapes, continuations or
/// variables. For the line `name<sep>value`:
///   - a line whose very first character is '#' is a comment; a '#' anywhere
///     else is an ordinary character;
///   - the name is everything in front of the first separator, blanks and all
///     ("key = value" gives a name that ends in a blank);
///   - the value starts behind that separator, loses its leading blanks (0x20
///     only, not tabs) and keeps its trailing ones; it ends at the line's first
///     carriage return, else at its first line feed, else at the end of the
///     line (if that character stands in front of the separator, the value
///     runs to the end of the line); further separators belong to the value;
///   - a line without separator is a name with an empty value;
///   - a line with an empty name (empty, or starting with the separator)
///     stores nothing.
///
/// In the case-insensitive tables the search for the separator folds case too.
///
/// A file whose first two bytes are 0xFF 0xFE is read as 16-bit little-endian
/// text behind that byte order mark, lines ending at 0x000A (a 0x000D right in
/// front of it is dropped as well), surrogate pairs not combined, a lone last
/// byte dropped. Wide tables keep each 16-bit unit as one character; narrow
/// tables keep only the low byte, so anything beyond the first 256 code points
/// is damaged. Any other file is plain text read by lines up to a line feed:
/// narrow tables as bytes, wide tables decoded line by line with the conversion
/// of the global C++ locale at the time of the load (with the classic locale,
/// reading stops at the first line that holds a byte above 0x7F; that line is
/// not stored). Pipes, FIFOs and /dev/stdin read like files: the mark is looked
/// for without seeking, and the file is opened once. A plain file with CR LF
/// line ends keeps the carriage return in names of lines without a separator,
/// so each of its empty lines stores the name "\r" with an empty value. No
/// other byte order mark is known: a UTF-8 mark becomes part of the first name.
///
/// Loading merges into the table and never clears it. Saving always writes
/// plain text with "=", in the table's order, first values only, with no
/// escaping and no byte order mark, names and values cut at a zero character.
/// So a saved file loses comments, blank lines, the order of the file read and
/// every value but the first of a name; a name holding '=' comes back split
/// and a value starting with blanks comes back without them.
///
/// Threads. Single operations by name (add, set, remove and the getters by
/// name) take the table's lock. size(), getProperties(), forEach(), copying,
/// and saving do not; a load takes the lock once per stored line, so other
/// threads see the table grow line by line. A thread killed inside one of the
/// locked operations finishes it first (the operation allocates, and must not
/// be cut short), then dies; the table's lock is left free.
#ifndef OVKIT_ORVAPROPERTIES_H
#define OVKIT_ORVAPROPERTIES_H

#include <ovkit/OrvaCriticalSection.h>
#include <ovkit/OrvaException.h>
#include <ovkit/OrvaExport.h>
#include <ovkit/OrvaNotification.h>
#include <ovkit/OrvaObjectBase.h>
#include <ovkit/OrvaStringTraits.h>

#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// One entry of a property table as handed to OrvaPropertyIterator::process:
/// the name and a copy of all its values, in the order they were added.
template <class StringType>
class OrvaPropertyIteratorParameter
{
public:
    /// The values of one name.
    typedef std::vector<StringType> ValueVector;
    /// An entry of the table's map: the name and its values.
    typedef std::pair<const StringType, ValueVector> Entry;

    OrvaPropertyIteratorParameter() {}
    /// Copies the name and the values.
    OrvaPropertyIteratorParameter(const OrvaPropertyIteratorParameter& other)
        : m_sName(other.m_sName), m_vValues(other.m_vValues)
    {
    }
    /// Copies the entry's name and values; not explicit, so an entry converts.
    OrvaPropertyIteratorParameter(const Entry& entry) : m_sName(entry.first), m_vValues(entry.second) {}

    /// Copies the name and the values; nothing on self-assignment.
    OrvaPropertyIteratorParameter& operator=(const OrvaPropertyIteratorParameter& other)
    {
        if (this != &other)
        {
            m_sName = other.m_sName;
            m_vValues = other.m_vValues;
        }
        return *this;
    }
    /// Copies the entry's name and values.
    OrvaPropertyIteratorParameter& operator=(const Entry& entry)
    {
        m_sName = entry.first;
        m_vValues = entry.second;
        return *this;
    }

    StringType m_sName;    ///< The name.
    ValueVector m_vValues; ///< Its values, in the order they were added.
};

namespace OrvaSupport
{

template <class StringType>
class OrvaProperties;

/// The visitor of OrvaProperties::forEach. Clients derive from it and
/// override process(), which does nothing here.
template <class StringType>
class OVKIT_API OrvaPropertyIterator
{
public:
    OrvaPropertyIterator() {}
    ///@{
    /// The base class holds nothing: copying does nothing.
    OrvaPropertyIterator(const OrvaPropertyIterator&) {}
    OrvaPropertyIterator& operator=(const OrvaPropertyIterator&) { return *this; }
    ///@}
    virtual ~OrvaPropertyIterator() {}

    /// Called once per entry, in the table's order.
    virtual void process(const ::OrvaPropertyIteratorParameter<StringType>&) {}
};

/// Adapts an iterator to the standard algorithms: each entry it is applied
/// to becomes a parameter that is passed to the iterator's process(). Holds
/// a reference: the iterator must outlive the functor.
template <class StringType>
class OrvaPropertyIteratorFunctor
{
public:
    /// Refers to `iterator`, which must outlive the functor.
    explicit OrvaPropertyIteratorFunctor(OrvaPropertyIterator<StringType>& iterator) : m_rIterator(iterator)
    {
    }

    /// Copies the entry into a parameter and passes it to process().
    void operator()(const std::pair<const StringType, std::vector<StringType>>& entry)
    {
        ::OrvaPropertyIteratorParameter<StringType> parameter(entry);
        m_rIterator.process(parameter);
    }

private:
    OrvaPropertyIterator<StringType>& m_rIterator;
};

/// Function object that stores each line it is applied to in a table with
/// OrvaProperties::addProperty(line, separator). Holds a reference to the
/// table.
template <class StringType>
class PopulateTable
{
public:
    /// The character type of the table's strings.
    typedef typename StringType::value_type Char;

    /// Refers to `table`, which must outlive the function object; lines are
    /// cut at `separator`.
    PopulateTable(OrvaProperties<StringType>& table, Char separator)
        : m_rTable(table), m_cSeparator(separator)
    {
    }

    /// table.addProperty(line, separator).
    void operator()(const StringType& line) { m_rTable.addProperty(line, m_cSeparator); }

private:
    OrvaProperties<StringType>& m_rTable;
    Char m_cSeparator;
};

/// A notification that names a changed property, for clients that want to
/// tell the dependents of a table about their own changes. The table itself
/// never sends it, nor any other notification: its changes reach dependents
/// only if the client notifies them.
class OVKIT_API PropertyChanged : public OrvaNotification
{
public:
    /// Id 0 and an empty name.
    PropertyChanged();
    /// The name of the changed property, and an id.
    explicit PropertyChanged(const std::string& name, int id = 0);
    ///@{
    /// Copies the id and the name.
    PropertyChanged(const PropertyChanged& other);
    PropertyChanged& operator=(const PropertyChanged& other);
    ///@}
    ~PropertyChanged() override;

    /// The name of the changed property.
    const std::string& getPropertyName() const { return m_sPropertyName; }
    /// Replaces the name.
    void setPropertyName(const std::string& name) { m_sPropertyName = name; }

private:
    std::string m_sPropertyName;
};

/// A table of named text settings; see the top of this file for the file
/// format and the rules for repeated names. Reference-counted, so it can be
/// shared through OrvaSmartPointer, and a collaborator, so dependents can be
/// attached, although the table never notifies them itself.
template <class StringType>
class OVKIT_API OrvaProperties : public OrvaObjectBase, public OrvaCollaborator
{
public:
    /// The character type of the names and values.
    typedef typename StringType::value_type Char;
    /// The values of one name, in the order they were added.
    typedef std::vector<StringType> ValueVector;
    /// The entries, ordered by name (the string type's own order: without
    /// regard to case for the case-insensitive types).
    typedef std::map<StringType, ValueVector> PropertyMap;

    /// An empty multi-valued table.
    OrvaProperties();
    /// An empty table; `multiValued` false makes a repeated name overwrite.
    explicit OrvaProperties(bool multiValued);
    /// Copies the entries and the multi-valued flag, without locking the
    /// source. The copy has a lock of its own, no dependents and a reference
    /// count of 0.
    OrvaProperties(const OrvaProperties& other);
    /// Copies the entries and the flag under the lock of this table only (the
    /// source is read unlocked). Dependents and the reference count stay as
    /// they were. Self-assignment does nothing.
    OrvaProperties& operator=(const OrvaProperties& other);
    ~OrvaProperties() override;

    /// Stores `value` under `name`: a new name gets this one value; a known
    /// name gets it appended (multi-valued table; the first value, which the
    /// getters return, is unchanged) or has its first value overwritten
    /// (single-valued table). An empty name stores nothing and is no error.
    void addProperty(const StringType& name, const StringType& value);
    /// Parses one line of a property file (see the top of this file) and
    /// stores its name and value as the other addProperty does. Comments and
    /// lines with an empty name store nothing. Never rejects a line.
    void addProperty(const StringType& line, Char separator);
    /// Replaces the first value of a known name, keeping any further values;
    /// an unknown name is added.
    void setProperty(const StringType& name, const StringType& value);
    /// Erases the name with all its values. An unknown name is no error.
    void removeProperty(const StringType& name);

    /// The first value of `name`, or `defaultValue` itself when the name is
    /// unknown. The reference is used after the lock is given back: a
    /// concurrent setProperty or removeProperty may change or invalidate the
    /// value it refers to. Tables shared between threads should use
    /// getPropertyValue instead.
    const StringType& getProperty(const StringType& name, const StringType& defaultValue) const;
    /// A copy of the first value of `name`; throws OrvaPropertyNotFound with
    /// the text "Property not found: " and the name when it is unknown.
    StringType getProperty(const StringType& name) const;
    /// Copies the first value of `name` into `value` and returns true; returns
    /// false and leaves `value` alone when the name is unknown.
    bool getPropertyValue(const StringType& name, StringType& value) const;
    /// All values of `name` in the order they were added; empty when unknown.
    ValueVector getPropertyValues(const StringType& name) const;
    /// A copy of the whole table, taken without the lock.
    PropertyMap getProperties() const;
    /// The number of names (not of values), read without the lock.
    int size() const;

    /// Calls iterator.process() once per entry, in the table's order, with a
    /// copy of the entry. Takes no lock: the caller keeps other threads away
    /// from the table meanwhile. An exception from process() ends the walk
    /// and reaches the caller.
    void forEach(OrvaPropertyIterator<StringType>& iterator);

    /// Reads a property file into the table (see loadPropertiesImpl); returns
    /// true, or throws OrvaException (code 0) with the text
    /// "OrvaProperties<StringType>::loadProperties: couldn't open file " and
    /// the path when the file cannot be opened. The words are literal for all
    /// four string types.
    bool loadProperties(const std::string& path, Char separator);
    /// Reads a property file into the table, merging with what is there, and
    /// returns true; returns false, with the table unchanged, when the file
    /// cannot be opened. Logs both cases at level 5, and at global log level 9
    /// exactly dumps the whole table ("DebugPrintProperty: name=value (n)",
    /// first values only, n their length in characters).
    bool loadPropertiesImpl(const std::string& path, Char separator);
    /// Stores each of the first `count` C strings as a line with
    /// addProperty(line, separator); a count of 0 or less does nothing. A
    /// null pointer among the lines is skipped.
    void loadProperties(const Char** lines, int count, Char separator);
    /// Stores each element as a line with addProperty(line, separator).
    void loadProperties(const std::vector<StringType>& lines, Char separator);
    /// Writes the table to a file (see savePropertiesImpl); returns true, or
    /// throws OrvaException (code 0) with the text
    /// "OrvaProperties<StringType>::saveProperties: couldn't open file " and
    /// the path.
    bool saveProperties(const std::string& path);
    /// Replaces the file with one line "name=first value" per entry, in the
    /// table's order, each line flushed; narrow tables write bytes, wide
    /// tables through a wide stream under the global C++ locale. Returns false
    /// when the file cannot be created. Writes are not checked: a full disk
    /// shows only in the file. Takes no lock.
    bool savePropertiesImpl(const std::string& path);

protected:
    mutable OrvaCriticalSectionObject m_oPropertyLock; ///< Guards the entries.
    PropertyMap m_mapProperties;                       ///< The entries.
    bool m_bMultiValued;                               ///< False: a repeated name replaces its values.
    /// Unused; kept empty.
    StringType m_sReserved;

private:
    void readPlainLines(std::istream& bytes, const std::string& path, Char separator);
    void readUnicodeLines(std::istream& bytes, Char separator);
    void debugPrintProperties() const;
};

extern template class OVKIT_API OrvaPropertyIterator<std::string>;
extern template class OVKIT_API OrvaPropertyIterator<std::wstring>;
extern template class OVKIT_API OrvaPropertyIterator<ci_string>;
extern template class OVKIT_API OrvaPropertyIterator<ci_wstring>;

extern template class OVKIT_API OrvaProperties<std::string>;
extern template class OVKIT_API OrvaProperties<std::wstring>;
extern template class OVKIT_API OrvaProperties<ci_string>;
extern template class OVKIT_API OrvaProperties<ci_wstring>;

extern template class OVKIT_API OrvaSmartPointer<OrvaProperties<std::string>>;

} // namespace OrvaSupport

#endif // OVKIT_ORVAPROPERTIES_H
