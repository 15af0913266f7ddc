/// The tools library: everything that it declares.
#pragma once

#include "too/bit_blob.h"
#include "too/config_file.h"
#include "too/export.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/ident_obj.h"
#include "too/last_error.h"
#include "too/locker.h"
#include "too/path.h"
#include "too/rec_file.h"
#include "too/reference.h"
#include "too/status.h"
#include "too/string.h"
#include "too/text.h"
#include "too/time.h"
#include "too/types.h"
