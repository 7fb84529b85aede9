// The one object of a class.
#pragma once

#include <atomic>
#include <cstddef>
#include <new>

#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CS_Wrapper.h"

namespace Harrowlib201 {

// Made when first asked for, and never destroyed: while the process ends, a host's threads and static objects may still
// call the library. It takes no memory of its own; what it holds must be given back by ordinary use, or it counts as
// lost when the library is unloaded.
template <class T>
class CSingleton {
public:
    // Throws what the object's constructor throws; nothing is kept then.
    static const CSmartRefCountPtr<T>& Get() {
        State& state = Kept();
        if (!state.m_bMade.load(std::memory_order_acquire)) {
            const CS_Locker locker(state.m_section);
            if (!state.m_pObject) {
                state.m_pObject = CSmartRefCountPtr<T>(new (state.m_aObject) T);
            }
            state.m_bMade.store(true, std::memory_order_release);
        }
        return state.m_pObject;  // does not change any more, and needs no lock
    }

private:
    struct State {
        CS_Wrapper m_section;
        CSmartRefCountPtr<T> m_pObject;  // a reference that never goes
        std::atomic<bool> m_bMade{false};
        alignas(T) std::byte m_aObject[sizeof(T)];
    };

    // No destructor of it runs.
    static State& Kept() noexcept {
        alignas(State) static std::byte s_aState[sizeof(State)];
        static State* const s_pState = new (s_aState) State;
        return *s_pState;
    }
};

}  // namespace Harrowlib201
