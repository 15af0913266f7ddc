// A store's file page by page, without the database: for files that it must not be trusted with. Integers are in the machine's order.
//
//   offset  size  header of every page           offset  size  item of a leaf, at the offset that the index gives
//        8     4  the page's own number               0     2  size (in the page)
//       12     4  previous page, 0 for none           2     1  type: 1 in the page, 3 on overflow pages; 0x80: deleted
//       16     4  next page, 0 for none               3        in the page: the bytes
//       20     2  leaf: number of items               4     4  on overflow pages: the first one's number
//       22     2  overflow: bytes in this page        8     4  and the size
//       25     1  type: 5 leaf, 7 overflow
//       26        leaf: index, 2 bytes an item;  overflow: the bytes
//
// Items come in pairs, a key and its value. Free pages have type 0, so what was deleted does not come back.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "asnt/view.h"
#include "certstorage/unique_fd.h"

namespace nal {

/// Time and memory are bounded by the file's size, whatever is in it: each overflow page is read once. For one thread.
class StorePages {
public:
    /// @return 0 or an errno
    int Open(const std::string& path);

    using TakeRecord = std::function<void(asnt::View key, asnt::View value)>;
    using TakeValue = std::function<void(asnt::View value)>;
    using TakeFault = std::function<void(std::uint32_t page, const char* what)>;

    /// Hands out every record whose pages are whole, and tells of those whose pages are not.
    void ForEachRecord(const TakeRecord& record, const TakeFault& fault);
    /// After ForEachRecord: the contents of overflow pages that no record led to.
    void ForEachLostValue(const TakeValue& value);

private:
    enum class Type : unsigned char { Leaf = 5, Overflow = 7 };

    std::size_t FindPageSize() const;
    bool ReadPage(std::uint32_t number, Type type, std::vector<unsigned char>& page) const;
    bool ReadItem(const std::vector<unsigned char>& page, std::size_t index, bool& deleted, std::vector<unsigned char>& bytes);
    bool ReadChain(std::uint32_t first, std::optional<std::uint32_t> size, std::vector<unsigned char>& bytes);

    UniqueFd m_file;
    std::size_t m_pageSize = 0;
    std::uint32_t m_pages = 0;
    std::vector<bool> m_taken;  // overflow pages
};

}  // namespace nal
