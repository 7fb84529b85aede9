#include "harrow/lifetime/SecureWipe.h"

#include <cstring>

namespace Harrowlib201 {

namespace {
// Called through a volatile pointer, so that nobody can know that it is memset on memory that is read no more.
void* (*volatile s_pfnFill)(void*, int, size_t) = std::memset;
}  // namespace

void SecureWipe(void* io_pvMemory, size_t i_nLength) noexcept {
    if (i_nLength != 0) {
        s_pfnFill(io_pvMemory, 0, i_nLength);
    }
}

}  // namespace Harrowlib201
