// The process's contexts, keys and hashes by their handles.
#pragma once

#include <memory>
#include <mutex>

#include "host/provider/context.h"
#include "host/provider/crypto/hash.h"
#include "host/provider/handle_table.h"
#include "host/provider/key.h"

namespace nalhost::provider {

// A running or finished hash. Calls hold its mutex.
struct HashObject {
    HashObject(std::shared_ptr<Context> owner, DWORD algorithm, const crypto::HashParameters& parameters,
               AsymmetricKeyRef signer)
        : context(std::move(owner)), algId(algorithm), key(std::move(signer)), hash(parameters) {}
    HashObject(const HashObject& other)
        : context(other.context), algId(other.algId), key(other.key), hash(other.hash), isEmpty(other.isEmpty) {}
    HashObject& operator=(const HashObject&) = delete;
    ~HashObject() = default;

    std::mutex mutex;
    std::shared_ptr<Context> context;
    DWORD algId;
    AsymmetricKeyRef key;  // signs; null: the current entry's
    crypto::Hash hash;
    bool isEmpty = true;  // nothing was hashed, no value set
};

HandleTable<Context, HandleKind::kContext>& Contexts();
HandleTable<Key, HandleKind::kKey>& Keys();
HandleTable<HashObject, HandleKind::kHash>& Hashes();

}  // namespace nalhost::provider
