// The arithmetic of the curves' fields against libgcrypt's: every field with every kernel's arithmetic.
#include <gtest/gtest.h>

#include "curve_fields.h"
#include "gcrypt_oracle.h"
#include "host/provider/crypto/kernel_choice.h"

namespace nalhost::crypto::curve {
namespace {

using nal_test::FromMpi;
using nal_test::InvertModulo;
using nal_test::Modular;
using nal_test::MultiplyModulo;
using nal_test::Near;
using nal_test::Remainder;

constexpr Number c_noPrime = {{~Limb{0}, ~Limb{0}, ~Limb{0}, ~Limb{0}}};

class CurveField : public testing::TestWithParam<Kernel> {
protected:
    void SetUp() override {
        if (GetParam() > ProcessorKernel()) GTEST_SKIP() << "not for this processor";
        StartCrypto();
        std::vector<Number> modules = {LoadCurveParameters("1.2.643.2.2.35.3").p,
                                       LoadCurveParameters("1.2.643.2.2.35.0").p};
        for (const char* oid : {"1.2.643.2.2.35.0", "1.2.643.2.2.35.1", "1.2.643.2.2.35.2", "1.2.643.2.2.35.3"})
            modules.push_back(LoadCurveParameters(oid).q);
        modules.push_back(c_noPrime);
        m_fields = GetParam() == Kernel::kAvx2 ? MulxFields(modules) : PortableFields(modules);
        ASSERT_FALSE(m_fields.empty());
    }

    static void Check(const FieldFunctions& field, const Number& a, const Number& b) {
        const Number& p = field.prime;
        const Number x = field.toPlain(a);
        const Number y = field.toPlain(b);
        auto expect = [&](const Number& expected, const Number& element, const char* what) {
            EXPECT_TRUE(nal_test::operator==(expected, field.toPlain(element))) << field.name << ", " << what;
            if (!field.takesAll) {
                EXPECT_TRUE(nal_test::operator==(element, Remainder(element, p))) << what << " is not reduced";
            }
        };
        expect(Modular(gcry_mpi_addm, x, y, p), field.add(a, b), "sum");
        expect(Modular(gcry_mpi_subm, x, y, p), field.subtract(a, b), "difference");
        expect(MultiplyModulo(x, y, p), field.multiply(a, b), "product");
        expect(MultiplyModulo(x, x, p), field.square(a), "square");
        expect(x, field.add(field.half(a), field.half(a)), "half");
        expect(x, field.fromPlain(x), "conversion");
        EXPECT_EQ(IsZeroMask(x), field.isZero(a)) << field.name;
    }

    static void CheckInverse(const FieldFunctions& field, const Number& a) {
        const Number x = field.toPlain(a);
        if (IsEqualMask(field.prime, c_noPrime) != 0) return;
        const Number expected = IsZeroMask(x) != 0 ? Number{} : InvertModulo(x, field.prime);
        EXPECT_TRUE(nal_test::operator==(expected, field.invertPlain(x))) << field.name;
    }

    // What an element of the field may be.
    static Number Element(const FieldFunctions& field, const Number& number) {
        return field.takesAll ? number : Remainder(number, field.prime);
    }

    std::vector<FieldFunctions> m_fields;
};

INSTANTIATE_TEST_SUITE_P(Kernels, CurveField, testing::Values(Kernel::kPortable, Kernel::kAvx2),
                         [](const auto& info) { return KernelName(info.param); });

TEST_P(CurveField, IsExactAtItsEdges) {
    for (const FieldFunctions& field : m_fields) {
        std::vector<Number> edges;
        const Number zero{};
        const Number top = {{0, 0, 0, Limb{1} << 63}};
        const Number middle = {{0, 0, 1, 0}};
        for (const Number& corner : {zero, field.prime, top, middle}) {
            for (const int distance : {0, 1, 2, 616, 617, 618, 1234, 3224, 3225, 3226, 6449, 6450, 6451, 12900}) {
                edges.push_back(Element(field, Near(corner, distance)));
                edges.push_back(Element(field, Near(corner, -distance)));
            }
        }
        for (const Number& a : nal_test::SomeOf(edges)) {
            CheckInverse(field, a);
            for (const Number& b : edges)
                Check(field, a, b);
            if (HasFailure()) return;
        }
    }
}

TEST_P(CurveField, IsExactForAnyNumbers) {
    nal_test::NumberSource source;
    for (int i = nal_test::CaseCount(3000); i > 0 && !HasFailure(); --i) {
        const Number a = source.Next();
        const Number b = source.Next();
        for (const FieldFunctions& field : m_fields) {
            Check(field, Element(field, a), Element(field, b));
            CheckInverse(field, Element(field, a));
        }
    }
}

}  // namespace
}  // namespace nalhost::crypto::curve
