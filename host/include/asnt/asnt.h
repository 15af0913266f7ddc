/// The whole ASN.1 toolkit. Include the small headers where few of them do.
#pragma once

#include "asnt/oid.h"
#include "asnt/records.h"
#include "asnt/time.h"
#include "asnt/view.h"
#include "asnt/writer.h"
