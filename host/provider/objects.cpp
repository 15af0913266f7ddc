#include "host/provider/objects.h"

namespace nalhost::provider {

HandleTable<Context, HandleKind::kContext>& Contexts() {
    static HandleTable<Context, HandleKind::kContext> table;
    return table;
}

HandleTable<Key, HandleKind::kKey>& Keys() {
    static HandleTable<Key, HandleKind::kKey> table;
    return table;
}

HandleTable<HashObject, HandleKind::kHash>& Hashes() {
    static HandleTable<HashObject, HandleKind::kHash> table;
    return table;
}

}  // namespace nalhost::provider
