#include "host/provider/crypto/curve/curve_kernel.h"

#include <array>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/immortal.h"

namespace nalhost::crypto::curve {
namespace {

template <typename Action>
void WithMemory(const Action& action) {
    try {
        action();
    } catch (const std::bad_alloc&) {
        throw CryptoError(Failure::kNoMemory, "no memory for the tables of a curve");
    }
}

std::unique_ptr<CurveKernel> MakeKernel(const char* oid, Kernel kernel) {
    const CurveParameters parameters = LoadCurveParameters(oid);
    std::unique_ptr<CurveKernel> made = kernel >= Kernel::kAvx2 ? MakeMulxCurveKernel(parameters) : nullptr;
    return made ? std::move(made) : MakePortableCurveKernel(parameters);
}

}  // namespace

CurveKernel::~CurveKernel() = default;

const GeneratorTable& CurveKernel::Generator() const {
    std::call_once(m_once, [this] {
        WithMemory([this] {
            auto table = std::make_unique<GeneratorTable>();
            FillTable(*table);
            m_generator = std::move(table);
        });
    });
    return *m_generator;
}

bool HasCurveKernels() {
#if defined(__SIZEOF_INT128__)
    return true;
#else
    return false;
#endif
}

const CurveKernel* FindCurveKernel(const KeyParameters& parameters, Kernel kernel) {
    struct Slot {
        std::once_flag once;
        std::unique_ptr<CurveKernel> kernel;
    };
    static Immortal<std::array<std::array<Slot, kCurveCount>, 2>> slots;
    Slot& slot = (*slots).at(kernel >= Kernel::kAvx2 ? 1 : 0).at(parameters.curve);
    std::call_once(slot.once, [&] { WithMemory([&] { slot.kernel = MakeKernel(parameters.oid, kernel); }); });
    return slot.kernel.get();
}

}  // namespace nalhost::crypto::curve
