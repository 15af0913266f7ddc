#include "host/provider/objects.h"

namespace nalhost::provider {

namespace {

// Never destroyed: a host's globals and its running threads may use handles while the process exits.
template <class Table>
Table& Immortal() {
    static Table* const table = std::make_unique<Table>().release();
    return *table;
}

}  // namespace

HandleTable<Context, HandleKind::kContext>& Contexts() {
    return Immortal<HandleTable<Context, HandleKind::kContext>>();
}

HandleTable<Key, HandleKind::kKey>& Keys() {
    return Immortal<HandleTable<Key, HandleKind::kKey>>();
}

HandleTable<HashObject, HandleKind::kHash>& Hashes() {
    return Immortal<HandleTable<HashObject, HandleKind::kHash>>();
}

}  // namespace nalhost::provider
