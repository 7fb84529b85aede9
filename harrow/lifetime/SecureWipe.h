// Overwriting memory that held a secret.
#pragma once

#include <cstddef>

namespace Harrowlib201 {

// Sets the bytes to zero in a way that the compiler may not leave out. A null pointer goes with length 0.
void SecureWipe(void* io_pvMemory, size_t i_nLength) noexcept;

}  // namespace Harrowlib201
