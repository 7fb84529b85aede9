// The live objects of one kind, and the handles under which callers know them.
#pragma once

#include <map>
#include <memory>
#include <utility>

#include "harrow/locks/CS_Wrapper.h"
#include "platform/OsTypes.h"

namespace morwen {

// A handle is a number that is not given again (before a counter of the width of a pointer comes round) and the mark of
// the kind, so a stale, foreign or empty handle finds nothing. Any method on any thread; who has found an object keeps
// it alive while another thread removes it.
template <class T>
class HandleTable {
public:
    explicit HandleTable(uintptr_t i_nKind) noexcept : m_nKind(i_nKind) {}

    // Throws std::bad_alloc.
    SecHandle Add(std::shared_ptr<T> i_pObject) {
        const Harrowlib201::CS_Locker locker(m_section);
        do {
            ++m_nLast;
        } while (m_nLast == 0 || !m_objects.try_emplace(m_nLast, i_pObject).second);
        return {m_nLast, m_nKind};
    }

    std::shared_ptr<T> Find(const SecHandle* i_pHandle) const noexcept {
        if (i_pHandle == nullptr || i_pHandle->dwUpper != m_nKind) {
            return nullptr;
        }
        const Harrowlib201::CS_Locker locker(m_section);
        const auto it = m_objects.find(i_pHandle->dwLower);
        return it != m_objects.end() ? it->second : nullptr;
    }

    // What the handle named, for the caller to let go outside the lock; null when it named nothing.
    std::shared_ptr<T> Remove(const SecHandle* i_pHandle) noexcept {
        if (i_pHandle == nullptr || i_pHandle->dwUpper != m_nKind) {
            return nullptr;
        }
        const Harrowlib201::CS_Locker locker(m_section);
        const auto it = m_objects.find(i_pHandle->dwLower);
        if (it == m_objects.end()) {
            return nullptr;
        }
        std::shared_ptr<T> pObject = std::move(it->second);
        m_objects.erase(it);
        return pObject;
    }

private:
    const uintptr_t m_nKind;
    // Held for a search: one for readers would cost more than they keep each other waiting.
    mutable Harrowlib201::CS_Wrapper m_section;
    uintptr_t m_nLast S_GUARDED_BY(m_section) = 0;
    // A map holds no memory while it is empty: nothing is lost when the library is unloaded.
    std::map<uintptr_t, std::shared_ptr<T>> m_objects S_GUARDED_BY(m_section);
};

}  // namespace morwen
