#include "model/integer_order.h"

#include <algorithm>

namespace nal {

IdentObj Reversed(asnt::View bytes) {
    IdentObj result = bytes.Copy();
    std::reverse(result.GetData(), result.GetData() + result.GetSize());
    return result;
}

bool ToSerial16(asnt::View number, unsigned char (&out)[16]) {
    std::size_t size = number.size;
    if (size > 1 && number[size - 1] == 0) --size;
    if (size == 0 || size > sizeof(out)) return false;
    std::fill(std::copy(number.data, number.data + size, out), std::end(out), static_cast<unsigned char>(0));
    return true;
}

IdentObj ToProviderOrder(asnt::View signature) {
    return Reversed(signature);
}

}  // namespace nal
