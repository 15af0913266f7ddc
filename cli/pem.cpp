#include "cli/pem.h"

namespace cli {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";

bool StartsWith(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

}  // namespace

bool LooksLikePem(std::string_view head) {
    if (head.empty() || head[0] == '\x30') {
        // 0x30 is both the start of every DER structure and the digit "0"; text has no control characters behind it.
        if (head.size() < 2 || static_cast<unsigned char>(head[1]) >= 0x80 || head.find('\0') != std::string_view::npos) return false;
    }
    std::size_t at = head.find(kBegin);
    while (at != std::string_view::npos && at != 0 && head[at - 1] != '\n' && head[at - 1] != '\r') at = head.find(kBegin, at + 1);
    return at != std::string_view::npos;
}

std::vector<PemBlock> ReadPem(std::string_view text, const std::string& name) {
    std::vector<PemBlock> blocks;
    for (std::size_t at = 0; (at = text.find(kBegin, at)) != std::string_view::npos;) {
        if (at != 0 && text[at - 1] != '\n' && text[at - 1] != '\r') {
            at += kBegin.size();
            continue;
        }
        const std::size_t labelAt = at + kBegin.size();
        const std::size_t labelEnd = text.find("-----", labelAt);
        const std::size_t lineEnd = text.find_first_of("\r\n", labelAt);
        const auto bad = [&](const char* what) {
            throw Fault(kInput, name + " is damaged: its PEM text " + what, "Fetch it again.", TOO_E_BAD_STRUCTURE);
        };
        if (labelEnd == std::string_view::npos || lineEnd == std::string_view::npos || labelEnd > lineEnd) bad("has a line that is cut short");
        PemBlock block;
        block.label = text.substr(labelAt, labelEnd - labelAt);
        const std::size_t bodyEnd = text.find(kEnd, lineEnd);
        if (bodyEnd == std::string_view::npos) bad("has no end");
        if (!TOO_MIMEBase64Decode(text.data() + lineEnd, bodyEnd - lineEnd, block.der)) bad("is not base64");
        blocks.push_back(std::move(block));
        at = bodyEnd + kEnd.size();
    }
    return blocks;
}

void PemDecoder::Flush(std::string& out, bool all) {
    const std::size_t whole = all ? m_base64.size() : m_base64.size() / 4 * 4;
    if (whole == 0) return;
    IdentObj decoded;
    if (TOO_MIMEBase64Decode(m_base64.data(), whole, decoded)) {
        out.append(reinterpret_cast<const char*>(decoded.GetData()), decoded.GetSize());
    } else {
        m_bad = true;
    }
    // Padding ends the content, so nothing may come behind it.
    if (m_base64[whole - 1] == '=' && !all) m_bad = true;
    m_base64.erase(0, whole);
}

void PemDecoder::Line(std::string_view line, std::string& out) {
    if (m_state == State::Before && StartsWith(line, kBegin)) {
        m_state = State::Inside;
    } else if (m_state == State::Inside && StartsWith(line, kEnd)) {
        Flush(out, true);
        m_state = State::After;
    } else if (m_state == State::Inside) {
        for (const char c : line) {
            if (c != ' ' && c != '\t' && c != '\r') m_base64 += c;
        }
        // The last group waits for what follows: padding is allowed in it alone.
        if (m_base64.size() > 0x10000) {
            std::string last = m_base64.substr(m_base64.size() - m_base64.size() % 4 - 4);
            m_base64.resize(m_base64.size() - last.size());
            Flush(out, false);
            m_base64 += last;
        }
    }
}

void PemDecoder::Feed(std::string_view piece, std::string& out) {
    for (const char c : piece) {
        if (c == '\n' || m_line.size() > 0x10000) {
            if (c != '\n') m_line += c;
            Line(m_line, out);
            m_line.clear();
        } else {
            m_line += c;
        }
    }
    // A text need not end with a line end; its last line is looked at when it is the end of the block.
    if (m_state == State::Inside && StartsWith(m_line, kEnd) && m_line.size() > kEnd.size() + 5 &&
        m_line.compare(m_line.size() - 5, 5, "-----") == 0) {
        Line(m_line, out);
        m_line.clear();
    }
}

}  // namespace cli
