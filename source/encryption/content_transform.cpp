#include "encryption/content_transform.h"

#include <algorithm>

#include "cms/outgoing.h"
#include "frame/failure.h"
#include "model/encoding.h"
#include "ork/provider.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr unsigned c_pieceHeader = 4;
constexpr std::size_t c_chunk = c_copyChunk / c_NAL_PIECE_SIZE * c_NAL_PIECE_SIZE;

std::size_t WithHeaders(std::size_t size, bool inPieces) {
    return size + (inPieces ? (size + c_NAL_PIECE_SIZE - 1) / c_NAL_PIECE_SIZE * c_pieceHeader : 0);
}

}  // namespace

ContentTransform::ContentTransform(unsigned long hKey, Direction direction, ContentSource& source, bool writesPieces, const char* context)
    : m_hKey(hKey),
      m_direction(direction),
      m_source(source),
      m_writesPieces(writesPieces),
      m_context(context),
      m_left(source.Size()),
      m_progress(source.Size()) {}

void ContentTransform::Run(unsigned char* data, std::size_t size) {
    m_left -= size;
    const BOOL final = m_left == 0;
    const auto length = static_cast<DWORD>(size);
    const bool done = m_direction == Encrypt ? ORKEncrypt(m_hKey, 0, final, data, length, static_cast<void*>(data))
                                             : ORKDecrypt(m_hKey, 0, final, data, length, static_cast<void*>(data));
    if (!done) ThrowProvider(m_context);
}

std::size_t ContentTransform::Next(unsigned char* out, std::size_t size) {
    size = static_cast<std::size_t>(std::min<std::uint64_t>(size, m_left));
    if (size == 0) return 0;
    const bool inBlocks = m_source.File() != nullptr || m_writesPieces;
    if (!m_writesPieces) m_source.Read(out, size);
    unsigned char* end = out;
    for (std::size_t left = size; left != 0;) {
        const std::size_t block = inBlocks ? std::min<std::size_t>(left, c_NAL_PIECE_SIZE) : left;
        if (m_writesPieces) {
            // The length always takes two bytes, so that the size of everything is known by the count of pieces.
            const unsigned char header[c_pieceHeader] = {asnt::tag::OctetString.number, 0x82, static_cast<unsigned char>(block >> 8),
                                                         static_cast<unsigned char>(block)};
            end = std::copy_n(header, sizeof header, end);
            m_source.Read(end, block);
        }
        Run(end, block);
        end += block;
        left -= block;
    }
    m_progress.Advance(size);
    return static_cast<std::size_t>(end - out);
}

void ContentTransform::ToMemory(unsigned char* out) {
    // Of memory all at once.
    const std::size_t chunk = m_source.File() != nullptr ? c_chunk : static_cast<std::size_t>(m_left);
    while (const std::size_t count = Next(out, chunk)) out += count;
}

void ContentTransform::ToSink(const FileContent::Sink& sink) {
    WipedBuffer buffer(WithHeaders(static_cast<std::size_t>(std::min<std::uint64_t>(c_chunk, m_left)), m_writesPieces));
    while (const std::size_t count = Next(buffer.bytes.GetData(), c_chunk)) sink({buffer.bytes.GetData(), count});
}

void DescribeContent(unsigned long hKey, std::uint64_t openSize, bool inPieces, const char* context, CNALEncryptedContentInfo& info) {
    CTOOString paramSet;
    IdentObj iv;
    constexpr DWORD withMeshing = 1;
    if (!ORKGetKeyParam(hKey, ORK_KEY_PARAM_CIPHER_PARAMS, paramSet) || !ORKGetKeyParam(hKey, ORK_KEY_PARAM_IV, iv) ||
        !ORKSetKeyParam(hKey, ORK_KEY_PARAM_MESHING, withMeshing)) {
        ThrowProvider(context);
    }
    const std::uint64_t encryptedSize = WithHeaders(openSize, inPieces);
    if (encryptedSize > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, context);
    info = CNALEncryptedContentInfo();
    info.contentEncryptionAlgorithm.m_algorithm = IdentObj(c_NAL_OID_GOST28147, sizeof c_NAL_OID_GOST28147 - 1);
    info.contentEncryptionAlgorithm.m_parameters = Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.OctetString(iv);
            writer.Oid(paramSet);
        });
    });
    info.contentFlags = c_NAL_ENCRYPTED_CONTENT | (inPieces ? c_NAL_ENCRYPTED_CONTENT_IN_PIECES : 0);
    info.openTextSize = static_cast<DWORD>(openSize);
    info.encryptedLength = static_cast<DWORD>(encryptedSize);
}

}  // namespace nal
