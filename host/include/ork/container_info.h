/// The record that describes one key of a container, as provider parameter 102 gives it.
#pragma once

#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

/// One key of a container.
struct ORKKeyInfo {
    CTOOString m_name;         ///< the entry's name, which opens the container with this entry current
    DWORD m_keyType = 0;       ///< ORK_KEY_EXCHANGE or ORK_KEY_SIGNATURE
    DWORD m_algId = 0;         ///< the key's ALG_ID
    CTOOFileTime m_created;    ///< when the key came into the container, in whole seconds
    IdentObj m_publicKeyInfo;  ///< the public key, a DER SubjectPublicKeyInfo
};

/// The container-info record. Its DER form:
///
///   ContainerInfo ::= SEQUENCE {
///       version        INTEGER (1),
///       container      UTF8String,        -- the container's unique name
///       key            SEQUENCE {
///           name       UTF8String,
///           keyType    INTEGER,
///           algorithm  INTEGER,           -- ALG_ID
///           created    GeneralizedTime,
///           publicKey  SubjectPublicKeyInfo } }
///
/// Names are the bytes of paths; they are UTF-8 where the file system's are. Plain value, owned throughout.
class NAL_HOST_EXPORT ASNContainerInfo {
public:
    ASNContainerInfo() = default;
    ASNContainerInfo(const CTOOString& container, const ORKKeyInfo& key) : m_container(container), m_key(key) {}

    /// Reads a record; bytes behind it are left alone.
    /// @return the number of bytes that the record took; 0 for a null pointer or size 0, and then nothing is changed
    /// @throws XTOOStatus 206 for a record that is damaged or of another version; the object is unchanged then
    unsigned ReadData(const void* data, unsigned size);

    /// @return the DER record @throws XTOOStatus 36 when a field cannot be encoded
    IdentObj WriteData() const;

    /// @return the container's unique name
    const CTOOString& GetContainerName() const { return m_container; }
    /// @return the key that the record describes
    const ORKKeyInfo& GetKeyInfo() const { return m_key; }

private:
    CTOOString m_container;
    ORKKeyInfo m_key;
};
