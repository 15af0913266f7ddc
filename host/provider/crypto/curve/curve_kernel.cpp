#include "host/provider/crypto/curve/curve_kernel.h"

#include <array>

namespace nalhost::crypto::curve {
namespace {

std::unique_ptr<CurveKernel> MakeKernel(const char* oid, Kernel kernel) {
    const CurveParameters parameters = LoadCurveParameters(oid);
    std::unique_ptr<CurveKernel> made = kernel >= Kernel::kAvx2 ? MakeMulxCurveKernel(parameters) : nullptr;
    return made ? std::move(made) : MakePortableCurveKernel(parameters);
}

}  // namespace

CurveKernel::~CurveKernel() = default;

const GeneratorTable& CurveKernel::Generator() const {
    std::call_once(m_once, [this] {
        auto table = std::make_unique<GeneratorTable>();
        FillTable(*table);
        m_generator = std::move(table);
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
    constexpr std::size_t most = 16;  // parameter sets
    // Never destroyed: threads of the host may still verify when its globals are gone.
    static auto& slots = *std::make_unique<std::array<std::array<Slot, most>, 2>>().release();
    const auto set = static_cast<std::size_t>(&parameters - AllKeyParameters().data());
    Slot& slot = slots.at(kernel >= Kernel::kAvx2 ? 1 : 0).at(set);
    std::call_once(slot.once, [&] { slot.kernel = MakeKernel(parameters.oid, kernel); });
    return slot.kernel.get();
}

}  // namespace nalhost::crypto::curve
