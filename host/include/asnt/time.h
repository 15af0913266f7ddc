/// UTCTime and GeneralizedTime to file times and back. Nothing here depends on the locale or the time zone.
///
/// Read: "YYMMDDHHMMSSZ" and "YYYYMMDDHHMMSS[.f]Z", where f is 1 to 7 digits without a trailing zero (a file time
/// counts 100 nanoseconds); any date that the Gregorian calendar does not have, a second 60 and a year before 1601 are
/// refused. In a UTCTime 50 to 99 mean 1950 to 1999 and 00 to 49 mean 2000 to 2049. Source: X.690 sections 11.7, 11.8;
/// RFC 5280 section 4.1.2.5.
#pragma once

#include <string>

#include "asnt/view.h"
#include "too/export.h"
#include "too/types.h"

namespace asnt {

/// @param type  tag::UtcTime or tag::GeneralizedTime
/// @param time  receives the time; untouched on failure
/// @return false for another type and for content that is not such a time
NAL_HOST_EXPORT bool DecodeTime(Tag type, View content, FILETIME& time);

/// Writes `time` as `type`, cut to whole seconds.
/// @param content  receives the content octets; untouched on failure
/// @return false when the type cannot say the year: 1950 to 2049 for UTCTime, 1601 to 9999 for GeneralizedTime
NAL_HOST_EXPORT bool EncodeTime(Tag type, const FILETIME& time, std::string& content);

/// The type that RFC 5280 wants for `time`: UTCTime through 2049, GeneralizedTime from 2050 on (and before 1950).
NAL_HOST_EXPORT Tag TimeTag(const FILETIME& time);

}  // namespace asnt
