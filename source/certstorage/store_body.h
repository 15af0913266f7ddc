// What all the stores of one file in this process share: the open tree with its lock. A memory store has one to itself.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "certstorage/store_access.h"
#include "certstorage/tree.h"

namespace nal {

class StoreBody {
public:
    using Identity = std::pair<std::uint64_t, std::uint64_t>;  ///< device and inode

    /// The body of a memory store.
    StoreBody() = default;

    /// Gives the body of the file `path`: the one that is open in this process, told by device and inode, or a new one. A file
    /// that this process has not verified in its present state is verified first (store_file.h), and refused unchanged when it is
    /// damaged. A file that is not there is made. A change that a process left unfinished is undone.
    /// @return null with errno: EINVAL for an empty path, EISDIR, EUCLEAN for a damaged file or another kind of file, or the system's
    static std::shared_ptr<StoreBody> OpenFile(const std::string& path);

    /// Gives a body back: writes out its file and, when no other store uses it, closes it. The pointer is null afterwards.
    static void Close(std::shared_ptr<StoreBody>& body);

    Tree& GetTree() { return m_tree; }
    /// Who may search and change it at this moment.
    StoreAccess& Access() { return m_access; }
    bool HasFile() const { return m_tree.HasFile(); }

private:
    Tree m_tree;
    StoreAccess m_access{m_tree};
    Identity m_identity;
};

/// The path of the one store file that all system stores share, computed once per process: "/ormatek/storage/cstore.dat" in the
/// provider's directory.
const std::string& SystemStorePath();

}  // namespace nal
