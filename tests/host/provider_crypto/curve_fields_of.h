// Makes the functions of curve_fields.h of a kernel's arithmetic. Included by one file for each.
#pragma once

#include "curve_fields.h"
#include "host/provider/crypto/curve/field_above.h"
#include "host/provider/crypto/curve/field_below.h"
#include "host/provider/crypto/curve/field_montgomery.h"
#include "host/provider/crypto/curve/inverse.h"

namespace nalhost::crypto::curve {

// Number `slot` of the fields of one type.
template <typename Field, int slot>
struct FieldOf {
    static Field*& Pointer() {
        static Field* field = nullptr;
        return field;
    }
    static const Field& Get() { return *Pointer(); }

    static FieldFunctions Make(const char* name, const Number& prime) {
        static Field field(prime);
        Pointer() = &field;
        return {name,
                prime,
                [](const Number& a, const Number& b) { return Get().Add(a, b); },
                [](const Number& a, const Number& b) { return Get().Subtract(a, b); },
                [](const Number& a, const Number& b) { return Get().Multiply(a, b); },
                [](const Number& a) { return Get().Square(a); },
                [](const Number& a) { return Get().Half(a); },
                [](const Number& a) { return Get().FromPlain(a); },
                [](const Number& a) { return Get().ToPlain(a); },
                [](const Number& a) { return Inverter<typename Field::Arithmetic>(Get().Prime()).Invert(a); },
                [](const Number& a) { return Get().IsZero(a); },
                false};
    }
};

template <typename Arithmetic>
void MakeFields(const std::vector<Number>& montgomery, std::vector<FieldFunctions>& fields) {
    using Below = FieldBelow<Arithmetic, 617>;
    using Above = FieldAbove<Arithmetic, 3225>;
    using General = FieldMontgomery<Arithmetic>;
    fields = {FieldOf<Below, 0>::Make("2^256 - 617", Below::kPrime),
              FieldOf<Above, 0>::Make("2^255 + 3225", Above::kPrime),
              FieldOf<General, 0>::Make("general 0", montgomery.at(0)),
              FieldOf<General, 1>::Make("general 1", montgomery.at(1)),
              FieldOf<General, 2>::Make("general 2", montgomery.at(2)),
              FieldOf<General, 3>::Make("general 3", montgomery.at(3))};
    fields[0].takesAll = true;
}

}  // namespace nalhost::crypto::curve
