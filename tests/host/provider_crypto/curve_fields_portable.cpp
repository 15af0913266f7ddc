#include "curve_fields_of.h"
#include "host/provider/crypto/curve/arithmetic_portable.h"

namespace nalhost::crypto::curve {
namespace {

// As the portable arithmetic is on processors without products of 64 bits and without carries.
struct Plain : Portable {
    static Limb Multiply(Limb a, Limb b, Limb& high) { return MultiplyHalves(a, b, high); }
    static Limb Add(Limb a, Limb b, Carry& carry) { return AddPlainly(a, b, carry); }
    static Limb Subtract(Limb a, Limb b, Carry& borrow) { return SubtractPlainly(a, b, borrow); }
};

}  // namespace

std::vector<FieldFunctions> PortableFields(const std::vector<Number>& montgomery) {
    std::vector<FieldFunctions> fields;
    MakeFields<Portable>(montgomery, fields);
    fields.push_back(FieldOf<FieldMontgomery<Plain>, 0>::Make("p of C, plainly", montgomery.at(0)));
    return fields;
}

}  // namespace nalhost::crypto::curve
