// Threads are not cancelled here.
#include "harrow/threads/Uncancellable.h"

namespace Harrowlib201 {

Uncancellable::Uncancellable() noexcept = default;
Uncancellable::~Uncancellable() noexcept(false) = default;

}  // namespace Harrowlib201
