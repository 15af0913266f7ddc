#include "host/provider/objects.h"

#include "host/provider/crypto/immortal.h"

namespace nalhost::provider {

HandleTable<Context, HandleKind::kContext>& Contexts() {
    static crypto::Immortal<HandleTable<Context, HandleKind::kContext>> table;
    return *table;
}

HandleTable<Key, HandleKind::kKey>& Keys() {
    static crypto::Immortal<HandleTable<Key, HandleKind::kKey>> table;
    return *table;
}

HandleTable<HashObject, HandleKind::kHash>& Hashes() {
    static crypto::Immortal<HandleTable<HashObject, HandleKind::kHash>> table;
    return *table;
}

}  // namespace nalhost::provider
