#include "certstorage/store_pages.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "certstorage/file_copy.h"

namespace nal {
namespace {

constexpr std::size_t kHeader = 26;
constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;
constexpr std::size_t kUsualPage = 4096;

template <class Number>
Number At(const unsigned char* bytes, std::size_t offset) {
    Number number{};
    std::memcpy(&number, bytes + offset, sizeof number);
    return number;
}

}  // namespace

int StorePages::Open(const std::string& path) {
    m_file = OpenFd(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat info{};
    if (!m_file || fstat(m_file.Get(), &info) != 0) return errno;
    if (!S_ISREG(info.st_mode)) return S_ISDIR(info.st_mode) ? EISDIR : EUCLEAN;
    m_pageSize = kSmallestPage;
    m_pages = static_cast<std::uint32_t>(std::min<off_t>(info.st_size / static_cast<off_t>(m_pageSize), UINT32_MAX));
    m_pageSize = FindPageSize();
    // The last page may have been cut.
    const auto whole = static_cast<off_t>(m_pageSize);
    m_pages = static_cast<std::uint32_t>(std::min<off_t>((info.st_size + whole - 1) / whole, UINT32_MAX));
    m_taken.assign(m_pages, false);
    return 0;
}

// The first page says it. If that one is lost, the size under which most pages carry their own number.
std::size_t StorePages::FindPageSize() const {
    unsigned char header[kHeader] = {};
    if (pread(m_file.Get(), header, sizeof header, 0) == static_cast<ssize_t>(sizeof header) &&
        At<std::uint32_t>(header, 12) == 0x053162) {
        const std::size_t said = At<std::uint32_t>(header, 20);
        if (said >= kSmallestPage && said <= kLargestPage && (said & (said - 1)) == 0) return said;
    }
    std::size_t best = kUsualPage;
    unsigned bestCount = 0;
    for (std::size_t size = kSmallestPage; size <= kLargestPage; size *= 2) {
        unsigned count = 0;
        for (std::uint32_t number = 1; number < 1000; ++number) {
            const auto offset = static_cast<off_t>(number * size);
            if (pread(m_file.Get(), header, sizeof header, offset) != static_cast<ssize_t>(sizeof header)) break;
            const bool known = header[25] == 3 || header[25] == 5 || header[25] == 7;
            if (known && At<std::uint32_t>(header, 8) == number) ++count;
        }
        if (count <= bestCount) continue;
        best = size;
        bestCount = count;
    }
    return best;
}

bool StorePages::ReadPage(std::uint32_t number, Type type, std::vector<unsigned char>& page) const {
    page.resize(m_pageSize);
    const off_t offset = static_cast<off_t>(number) * static_cast<off_t>(m_pageSize);
    return number != 0 && number < m_pages &&
           pread(m_file.Get(), page.data(), m_pageSize, offset) == static_cast<ssize_t>(m_pageSize) &&
           page[25] == static_cast<unsigned char>(type) && At<std::uint32_t>(page.data(), 8) == number;
}

bool StorePages::ReadChain(std::uint32_t first, std::optional<std::uint32_t> size, std::vector<unsigned char>& bytes) {
    bytes.clear();
    std::vector<unsigned char> page;
    for (std::uint32_t number = first, previous = 0; number != 0;) {
        if (!ReadPage(number, Type::Overflow, page) || m_taken[number]) return false;
        m_taken[number] = true;
        const std::size_t count = At<std::uint16_t>(page.data(), 22);
        if (At<std::uint32_t>(page.data(), 12) != previous || count > m_pageSize - kHeader) return false;
        bytes.insert(bytes.end(), page.data() + kHeader, page.data() + kHeader + count);
        if (size && bytes.size() > *size) return false;
        previous = number;
        number = At<std::uint32_t>(page.data(), 16);
    }
    return !size || bytes.size() == *size;
}

bool StorePages::ReadItem(const std::vector<unsigned char>& page, std::size_t index, bool& deleted,
                          std::vector<unsigned char>& bytes) {
    constexpr std::size_t kOnPage = 3;
    constexpr std::size_t kOnOverflow = 12;
    const std::size_t offset = At<std::uint16_t>(page.data(), kHeader + 2 * index);
    if (offset < kHeader || offset + kOnPage > m_pageSize) return false;
    const unsigned char* item = page.data() + offset;
    deleted = deleted || (item[2] & 0x80) != 0;
    switch (item[2] & 0x7F) {
        case 1: {
            const std::size_t size = At<std::uint16_t>(item, 0);
            if (offset + kOnPage + size > m_pageSize) return false;
            bytes.assign(item + kOnPage, item + kOnPage + size);
            return true;
        }
        case 3:
            return offset + kOnOverflow <= m_pageSize && ReadChain(At<std::uint32_t>(item, 4), At<std::uint32_t>(item, 8), bytes);
        default:
            return false;
    }
}

void StorePages::ForEachRecord(const TakeRecord& record, const TakeFault& fault) {
    std::vector<unsigned char> page;
    std::vector<unsigned char> key;
    std::vector<unsigned char> value;
    for (std::uint32_t number = 1; number < m_pages; ++number) {
        if (!ReadPage(number, Type::Leaf, page)) continue;
        const std::size_t items = At<std::uint16_t>(page.data(), 20);
        if (items % 2 != 0 || kHeader + 2 * items > m_pageSize) {
            fault(number, "its index is damaged");
            continue;
        }
        for (std::size_t index = 0; index < items; index += 2) {
            bool deleted = false;
            // Both, so that neither's pages are taken for lost ones.
            const bool hasKey = ReadItem(page, index, deleted, key);
            const bool hasValue = ReadItem(page, index + 1, deleted, value);
            if (deleted) continue;
            if (hasKey && hasValue) {
                record({key.data(), key.size()}, {value.data(), value.size()});
            } else {
                fault(number, hasKey ? "the value of a record cannot be read" : "the key of a record cannot be read");
                if (hasValue) record({}, {value.data(), value.size()});
            }
        }
    }
}

void StorePages::ForEachLostValue(const TakeValue& value) {
    std::vector<unsigned char> page;
    std::vector<unsigned char> bytes;
    for (std::uint32_t number = 1; number < m_pages; ++number) {
        if (m_taken[number] || !ReadPage(number, Type::Overflow, page) || At<std::uint32_t>(page.data(), 12) != 0) continue;
        if (ReadChain(number, std::nullopt, bytes)) value({bytes.data(), bytes.size()});
    }
}

}  // namespace nal
