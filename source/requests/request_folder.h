// Where the files of requests lie in a transport folder.
#pragma once

#include <list>

#include "too/string.h"

namespace nal {

enum class RequestKind { Own, External };

/// The request storages of one kind, sorted; none when the folder is missing. @throws XTOOFile
std::list<CTOOString> ListRequestStorages(const CTOOString& transportFolder, RequestKind kind);

}  // namespace nal
