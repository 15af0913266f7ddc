#include "curve_fields_of.h"
#include "host/provider/crypto/curve/arithmetic_portable.h"

namespace nalhost::crypto::curve {

std::vector<FieldFunctions> PortableFields(const std::vector<Number>& montgomery) {
    std::vector<FieldFunctions> fields;
    MakeFields<Portable>(montgomery, fields);
    return fields;
}

}  // namespace nalhost::crypto::curve
