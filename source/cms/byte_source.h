// Where an encoded message is read from: a memory block or an open file. Both are read by the same code.
#pragma once

#include <cstddef>
#include <cstdint>

#include "asnt/view.h"
#include "too/file.h"
#include "too/ident_obj.h"

namespace nal {

class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    virtual std::uint64_t Size() const = 0;
    /// Copies bytes that lie within the source.
    /// @throws XTOOFile(TOO_E_READ) when the file has become shorter
    virtual void Read(std::uint64_t offset, void* out, std::size_t size) = 0;
};

class MemorySource : public ByteSource {
public:
    /// @param bytes  must outlive this object
    explicit MemorySource(asnt::View bytes) : m_bytes(bytes) {}

    std::uint64_t Size() const override { return m_bytes.size; }
    void Read(std::uint64_t offset, void* out, std::size_t size) override;

private:
    asnt::View m_bytes;
};

/// A file, of which only what is asked for is read. Headers lie close together, so small reads go through a window.
class FileSource : public ByteSource {
public:
    /// @param file  must stay open; its position moves
    explicit FileSource(const CTOOFile& file) : m_file(file), m_size(file.Length()) {}

    std::uint64_t Size() const override { return m_size; }
    void Read(std::uint64_t offset, void* out, std::size_t size) override;

private:
    // As long as headers of pieces tend to be apart: a longer one would read the pieces too.
    static constexpr std::size_t c_window = 512;

    const CTOOFile& m_file;
    std::uint64_t m_size;
    unsigned char m_window[c_window];
    std::uint64_t m_windowStart = 0;
    std::size_t m_windowSize = 0;
};

}  // namespace nal
