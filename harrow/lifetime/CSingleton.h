// The one object of a class.
#pragma once

#include <atomic>
#include <cstddef>
#include <new>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/CRefCount.h"
#include "harrow/locks/CS_Wrapper.h"

namespace Harrowlib201 {

// The counted object is made when first asked for, and let go when the library is unloaded. The end of the process
// leaves it: threads may be at work with it, and a host's static objects may still call the library.
template <class T>
class CSingleton {
public:
    // Throws what the object's constructor throws, and std::bad_alloc; nothing is kept then.
    static const CSmartRefCountPtr<T>& Get() {
        static const AtUnload s_letGo([] {
            State& kept = Kept();
            const CS_Locker locker(kept.m_section);
            kept.m_bMade.store(false, std::memory_order_release);
            kept.m_pObject = nullptr;
        });
        State& state = Kept();
        if (!state.m_bMade.load(std::memory_order_acquire)) {
            const CS_Locker locker(state.m_section);
            if (!state.m_pObject) {
                state.m_pObject = MakeCounted<T>();
            }
            state.m_bMade.store(true, std::memory_order_release);
        }
        return state.m_pObject;  // does not change before an unload, and needs no lock
    }

private:
    struct State {
        CS_Wrapper m_section;
        CSmartRefCountPtr<T> m_pObject;
        std::atomic<bool> m_bMade{false};
    };

    // No destructor of it runs.
    static State& Kept() noexcept {
        alignas(State) static std::byte s_aState[sizeof(State)];
        static State* const s_pState = new (s_aState) State;
        return *s_pState;
    }
};

}  // namespace Harrowlib201
