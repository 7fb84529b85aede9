#include "harrow/lifetime/CRefCount.h"

#include <cstdlib>
#include <limits>

namespace Harrowlib201 {

namespace {
constexpr uint32_t kSaturated = std::numeric_limits<uint32_t>::max();
}

void CRefCount::addRef() noexcept {
    uint32_t nCount = m_nRefCount.load(std::memory_order_relaxed);
    while (nCount != kSaturated && !m_nRefCount.compare_exchange_weak(nCount, nCount + 1, std::memory_order_relaxed)) {
    }
}

void CRefCount::release() noexcept {
    uint32_t nCount = m_nRefCount.load(std::memory_order_acquire);
    if (nCount == 1) {
        delete this;  // nobody else has a reference that could be copied now
        return;
    }
    do {
        if (nCount == kSaturated) {
            return;
        }
        if (nCount == 0) {
            std::abort();
        }
    } while (!m_nRefCount.compare_exchange_weak(nCount, nCount - 1, std::memory_order_acq_rel));
    if (nCount == 1) {
        delete this;
    }
}

}  // namespace Harrowlib201
