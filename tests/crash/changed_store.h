// What the tests of changes share: stores whose content is told by the first bytes of the key identifiers.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "certstorage/cert_store.h"
#include "certstorage/store_access.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"

namespace nal_test {

inline nal::CertStore& StoreOf(const StorePtr& store) { return *nal::CertStore::FromHandle(store.get()); }

/// Keys whose first byte is the letter; certificates are what the store takes for one, not what a decoder does.
inline nal::KeyIdentifier Letter(char letter) { return Identifier(static_cast<unsigned char>(letter)); }

inline int Put(const StorePtr& store, char letter, const std::string& value = "value") {
    return StoreOf(store).storeCert(Letter(letter), AsView(value), nal::PutMode::Overwrite);
}

/// One whole change. @return 0 or the errno with which it failed
inline int Change(const StorePtr& store, const std::function<int()>& make) {
    nal::StoreChange change(StoreOf(store));
    if (change.Error() != 0) return change.Error();
    if (make() == nal::kTreeError) return errno;
    return change.Commit();
}

/// The letters of all records, read as one search. @throws std::runtime_error when the store cannot be searched
inline std::string Letters(const StorePtr& store) {
    if (!store) throw std::runtime_error("the store does not open");
    const nal::StoreSearch search(StoreOf(store));
    if (search.Error() != 0) throw std::runtime_error("no search: " + std::to_string(search.Error()));
    std::string letters;
    StoreOf(store).SetCursorOp(nal::CertStore::CursorOp::First);
    StoreOf(store).WalkUntil([&](const nal::RecordKey& key, asnt::View) {
        letters += static_cast<char>(key.identifier.front());
        return false;
    });
    return letters;
}

inline std::string Letters(const std::string& path) { return Letters(OpenFile(path)); }

/// A store with a record for each letter, closed again.
inline void MakeStore(const std::string& path, const std::string& letters) {
    const StorePtr store = OpenFile(path);
    for (const char letter : letters) Put(store, letter, std::string(3000, letter));
}

inline bool Exists(const std::string& path) { return std::filesystem::exists(path); }

}  // namespace nal_test
