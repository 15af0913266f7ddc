// What the writers of all kinds of messages share.
#pragma once

#include <cstdint>
#include <list>

#include "asnt/writer.h"
#include "nal/signed_data.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/status.h"

namespace nal {

/// How much of a file's content is copied at a time: large enough that calls of the system do not show, small enough that a
/// host does not notice it.
inline constexpr std::size_t c_copyChunk = 256 * 1024;

/// Declares elements that are encoded already. @throws XTOOStatus(36) for one that is not one DER element
void WriteElements(asnt::Writer& writer, const std::list<IdentObj>& elements);

/// Declares a whole message by `declare(writer, withContent)`, whose size is then known and in bounds. Writes nothing.
/// @throws XTOOStatus: (36, context) when it cannot be encoded, (12, context) when it is too large with its content; what `declare`
///         throws of other statuses
template <class Declare>
void DeclareMessage(asnt::Writer& writer, const char* context, Declare&& declare) {
    // First without the content: what fails here cannot be encoded, and what fails with it is too large.
    try {
        asnt::Writer trial;
        declare(trial, false);
    } catch (const XTOOStatus& status) {
        if (status.GetCode() != TOO_E_ENCODE) throw;
        throw XTOOStatus(TOO_E_ENCODE, context);
    }
    try {
        declare(writer, true);
    } catch (const XTOOStatus&) {
        throw XTOOStatus(TOO_E_TOO_LARGE, context);
    }
    if (writer.Size() > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, context);
}

/// Whether two open files are one, or an open file is the one that a path names now, through links.
bool IsSameFile(const CTOOFile& a, const CTOOFile& b);
bool IsSameFile(const CTOOFile& file, const CTOOString& path);

/// Cuts a file back to its length before, unless what was written is complete.
class FileUndo {
public:
    explicit FileUndo(CTOOFile& file) : m_file(file), m_length(file.Length()) {}
    FileUndo(const FileUndo&) = delete;
    FileUndo& operator=(const FileUndo&) = delete;
    ~FileUndo();
    void Done() { m_done = true; }

private:
    CTOOFile& m_file;
    std::uint64_t m_length;
    bool m_done = false;
};

}  // namespace nal
