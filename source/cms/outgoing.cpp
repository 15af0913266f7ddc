#include "cms/outgoing.h"

#include <sys/stat.h>

namespace nal {

void WriteElements(asnt::Writer& writer, const std::list<IdentObj>& elements) {
    for (const IdentObj& element : elements) {
        asnt::Header header;
        if (asnt::ParseHeader(element, asnt::Rules::Der, header) != asnt::HeaderState::Read ||
            header.size + header.contentSize != element.GetSize()) {
            throw XTOOStatus(TOO_E_ENCODE);
        }
        writer.Raw(element);
    }
}

namespace {

bool IsSame(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

bool IsSameFile(const CTOOFile& a, const CTOOFile& b) {
    struct stat first {};
    struct stat second {};
    return fstat(a.GetDescriptor(), &first) == 0 && fstat(b.GetDescriptor(), &second) == 0 && IsSame(first, second);
}

bool IsSameFile(const CTOOFile& file, const CTOOString& path) {
    struct stat open {};
    struct stat named {};
    return fstat(file.GetDescriptor(), &open) == 0 && stat(path.c_str(), &named) == 0 && IsSame(open, named);
}

FileUndo::~FileUndo() {
    if (m_done) return;
    try {
        if (m_file.Length() > m_length) m_file.SetLength(m_length);
    } catch (const XTOOStatus&) {
        // The failure that led here is on its way to the caller already.
    }
}

}  // namespace nal
