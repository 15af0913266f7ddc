/// Everything that the library exports, and the tools types that travel through its interface.
#pragma once

#include "nal/algorithm.h"
#include "nal/attributes.h"
#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/crl.h"
#include "nal/errors.h"
#include "nal/export.h"
#include "nal/extensions.h"
#include "nal/name.h"
#include "nal/name_codec.h"
#include "nal/pkcs10.h"
#include "nal/progress.h"
#include "nal/signed_envelope.h"
#include "nal/wide_string.h"
#include "nal/wincrypt.h"
#include "too/too.h"
