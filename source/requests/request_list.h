// Reading the list file's content, apart from the file.
#pragma once

#include <list>

#include "nal/request_files.h"

namespace nal {

// All records of a list file.
// path: for the failure's text
// Throws XTOOFile 5, which names the record and its place, for a damaged record or bytes behind the last one.
std::list<CNALCertRequestStatus> ReadRequestList(const IdentObj& bytes, const CTOOString& path);

}  // namespace nal
