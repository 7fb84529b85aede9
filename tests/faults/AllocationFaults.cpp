// The allocation functions of the whole process: a program's own come before those of every library.
#include "faults/AllocationFaults.h"

#include <cerrno>
#include <cstdlib>
#include <new>

// What allocates in truth: the sanitizer where there is one, else the C library. And the borders of the program.
// NOLINTBEGIN(bugprone-reserved-identifier, misc-new-delete-overloads): no header declares these; new and delete for
// arrays and without exceptions call those of one object
extern "C" {
#ifdef MORWEN_SANITIZED
#define MORWEN_REAL(name) __interceptor_##name
#else
#define MORWEN_REAL(name) __libc_##name
#endif
void* MORWEN_REAL(malloc)(size_t i_nBytes);
void* MORWEN_REAL(calloc)(size_t i_nCount, size_t i_nBytes);
void* MORWEN_REAL(realloc)(void* i_pv, size_t i_nBytes);
void MORWEN_REAL(free)(void* i_pv);
extern const char __executable_start, etext;
}

namespace morwen {
constinit thread_local AllocationFault t_fault{};
constinit std::atomic<long> g_nBlocks{0};
}  // namespace morwen

namespace {

bool Fails(const void* i_pvCaller) noexcept {
    auto& fault = morwen::t_fault;
    const bool bForeign = i_pvCaller < &__executable_start || i_pvCaller >= &etext;
    if (!fault.m_bCounted || fault.m_nLeft == 0 || (bForeign && !fault.m_bForeignToo) || --fault.m_nLeft != 0) {
        return false;
    }
    fault.m_nLeft = fault.m_bFromThenOn ? 1 : 0;
    fault.m_bHit = true;
    errno = ENOMEM;
    return true;
}

void* Made(void* i_pv) noexcept {
    morwen::g_nBlocks += i_pv != nullptr ? 1 : 0;
    return i_pv;
}

}  // namespace

extern "C" {
void* malloc(size_t i_nBytes) noexcept {
    return Fails(__builtin_return_address(0)) ? nullptr : Made(MORWEN_REAL(malloc)(i_nBytes));
}
void* calloc(size_t i_nCount, size_t i_nBytes) noexcept {
    return Fails(__builtin_return_address(0)) ? nullptr : Made(MORWEN_REAL(calloc)(i_nCount, i_nBytes));
}
void* realloc(void* i_pv, size_t i_nBytes) noexcept {
    if (Fails(__builtin_return_address(0))) {
        return nullptr;
    }
    morwen::g_nBlocks -= i_pv != nullptr ? 1 : 0;
    return Made(MORWEN_REAL(realloc)(i_pv, i_nBytes));
}
void free(void* i_pv) noexcept {
    morwen::g_nBlocks -= i_pv != nullptr ? 1 : 0;
    MORWEN_REAL(free)(i_pv);
}
}
void* operator new(size_t i_nBytes) {
    void* const pv = malloc(i_nBytes != 0 ? i_nBytes : 1);
    return pv != nullptr ? pv : throw std::bad_alloc();
}
void operator delete(void* i_pv) noexcept {
    free(i_pv);
}
void operator delete(void* i_pv, size_t) noexcept {
    free(i_pv);
}
// NOLINTEND(bugprone-reserved-identifier, misc-new-delete-overloads)
