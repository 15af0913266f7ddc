#include "too/reference.h"

CTOOReference::~CTOOReference() = default;

long CTOOReference::Release() const noexcept {
    const long left = m_users.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}
