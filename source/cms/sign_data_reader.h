// Reads a SignedData message from memory or from a file; the two differ only in what becomes of the content.
#pragma once

#include <cstdint>

#include "cms/byte_source.h"
#include "nal/signed_data.h"

namespace nal {

inline constexpr char c_readContext[] = "CNALSignData::ReadObject";

/// Reads the message at the start of `bytes` with its content. @throws XTOOStatus as CNALSignData::ReadObject
CNALSignData ReadSignData(asnt::View bytes);

/// Reads the message at `offset` of a file; attached content is named.
/// @param end  receives where the message ends, if not null @throws XTOOStatus as CNALSignData::ReadObject
CNALSignData ReadSignData(const CTOOFile& file, std::uint64_t offset, std::uint64_t* end = nullptr);

/// Read one element of SignedData, with nothing behind it.
void ReadDigestAlgorithms(asnt::View element, CNALSignData& message);
void ReadEncapContentInfo(asnt::View element, CNALSignData& message);
void ReadCertificates(asnt::View element, CNALSignData& message);
void ReadCrls(asnt::View element, CNALSignData& message);

}  // namespace nal
