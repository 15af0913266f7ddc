/// Configuration files: sections of key=value.
#pragma once

#include <list>
#include <memory>

#include "too/export.h"
#include "too/string.h"

namespace nalhost {
class ConfigText;
}

/// One key of a section.
struct CConfigFileKeyListItem {
    CTOOString m_key;
    CTOOString m_value;
};

/// One section.
struct CConfigFileSectionListItem {
    CTOOString m_name;
    std::list<CConfigFileKeyListItem> m_keys;
};

/// A configuration file.
///
/// A line is empty, a comment (first character ';' or '#'), a section "[name]", or "key=value" of the section above it;
/// keys above the first section belong to the section with the empty name. Blanks around names, keys and values do not
/// count; a value may stand in double quotes, which keep its own blanks and do not belong to it. Names and keys are
/// compared without regard to the case of A-Z. A section or key may occur repeatedly: sections of one name are one
/// section, and of repeated keys GetValue gives the first. The file is bytes, by convention UTF-8.
///
/// Reading calls answer from what was last read. A Put or Delete works on the file as it then is, under an
/// inter-process lock: it reads the file anew, changes only the lines that it must, keeps comments, order and line
/// ends, and replaces the file whole or not at all. After a failure file and object are what they were.
///
/// Errors are XTOOFile, which name the file and, where it helps, the line: 4 no such file, 5 a line that is none of the
/// above or holds a zero byte, 12 a file or line over its bound, 28 a name, key or value that cannot be written (an
/// empty key or section name, a line end or zero byte anywhere, "=" or a blank edge in a key, "]" in a section name),
/// and those of CTOOFile. One object is for one thread at a time.
class NAL_HOST_EXPORT CTOOConfigInfoFile {
public:
    static constexpr unsigned long c_defaultMaxSize = 1024 * 1024;
    static constexpr unsigned long c_defaultMaxLine = 8192;

    /// Reads the file.
    ///
    /// @param file          its path
    /// @param mayBeMissing  a file that is not there counts as empty, and the first Put makes it
    /// @param maxSize       the most bytes that the file may have, 0 for the default
    /// @param maxLine       the most bytes that a line may have, 0 for the default
    explicit CTOOConfigInfoFile(const char* file, bool mayBeMissing = true, unsigned long maxSize = c_defaultMaxSize,
                                unsigned long maxLine = c_defaultMaxLine);
    CTOOConfigInfoFile(const CTOOConfigInfoFile&) = delete;
    CTOOConfigInfoFile& operator=(const CTOOConfigInfoFile&) = delete;
    virtual ~CTOOConfigInfoFile();

    const CTOOString& GetName() const noexcept { return m_file; }

    /// Reads the file anew.
    void ReRead();

    /// Gives the keys of a section in the file's order.
    /// @param keys  replaced; empty when there is no such section
    /// @return whether there is such a section
    bool GetSection(const CTOOString& section, std::list<CConfigFileKeyListItem>* keys) const;

    /// Makes `keys` the keys of a section: keys in the file that are not among them go, new ones come behind the rest.
    void PutSection(const CTOOString& section, const std::list<CConfigFileKeyListItem>& keys);

    /// Gives all sections in the file's order, the one with the empty name only if it has keys.
    void GetAllSections(std::list<CConfigFileSectionListItem>* sections) const;

    /// Makes `sections` the sections of the file, each as PutSection does; others go, with the comments in them.
    void PutAllSections(const std::list<CConfigFileSectionListItem>& sections);

    /// @return whether the key is there; otherwise `value` is unchanged
    bool GetValue(const CTOOString& section, const CTOOString& key, CTOOString* value) const;

    /// Sets one key, the first of that name, and leaves the others of the section alone.
    void PutValue(const CTOOString& section, const CTOOString& key, const CTOOString& value);

    /// Removes a section with all its lines. @return whether it was there
    bool DeleteSection(const CTOOString& section);

private:
    template <class Change>
    void Update(Change change);
    std::unique_ptr<nalhost::ConfigText> Load() const;

    CTOOString m_file;
    bool m_mayBeMissing;
    unsigned long m_maxSize;
    unsigned long m_maxLine;
    std::unique_ptr<nalhost::ConfigText> m_text;
};
