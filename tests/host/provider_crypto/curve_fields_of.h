// Makes the functions of curve_fields.h of a kernel's arithmetic. Included by one file for each.
#pragma once

#include <utility>

#include "curve_fields.h"
#include "host/provider/crypto/curve/field_above.h"
#include "host/provider/crypto/curve/field_below.h"
#include "host/provider/crypto/curve/field_montgomery.h"
#include "host/provider/crypto/curve/inverse.h"

namespace nalhost::crypto::curve {

// Number `slot` of the fields of one type.
template <typename Field, std::size_t slot>
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
                [](const Number& a) { return Inverter<typename Field::Arithmetic>(Get().Modulus()).Invert(a); },
                [](const Number& a) { return Get().IsZero(a); },
                false};
    }
};

template <typename Arithmetic>
void MakeFields(const std::vector<Number>& montgomery, std::vector<FieldFunctions>& fields) {
    using Below = FieldBelow<Arithmetic, 617>;
    using Above = FieldAbove<Arithmetic, 3225>;
    fields = {FieldOf<Below, 0>::Make("2^256 - 617", Below::kPrime),
              FieldOf<Above, 0>::Make("2^255 + 3225", Above::kPrime)};
    fields[0].takesAll = true;
    static constexpr const char* c_names[c_generalFields] = {
        "p of C", "p of the test set", "q of the test set", "q of A", "q of B", "q of C", "2^256 - 1"};
    [&]<std::size_t... slot>(std::index_sequence<slot...>) {
        (fields.push_back(FieldOf<FieldMontgomery<Arithmetic>, slot>::Make(c_names[slot], montgomery.at(slot))), ...);
    }
    (std::make_index_sequence<c_generalFields>());
}

}  // namespace nalhost::crypto::curve
