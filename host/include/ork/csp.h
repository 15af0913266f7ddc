/// The cryptographic service provider: everything of its interface.
#pragma once

#include "ork/constants.h"
#include "ork/container_info.h"
#include "ork/handles.h"
#include "ork/oid_info.h"
#include "ork/provider.h"
