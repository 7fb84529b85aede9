#include "harrow/threads/Uncancellable.h"

#include <pthread.h>

namespace Harrowlib201 {

Uncancellable::Uncancellable() noexcept {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nBefore);
}

Uncancellable::~Uncancellable() noexcept(false) {
    pthread_setcancelstate(m_nBefore, nullptr);
}

}  // namespace Harrowlib201
