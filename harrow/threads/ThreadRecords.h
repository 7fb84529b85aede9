// What threads hold until they give it back, or have ended.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>

#include "harrow/threads/ThreadMark.h"

namespace Harrowlib201 {

// One record for each thread that has made one. A thread_local with a destructor would keep the library loaded, so the
// records of threads that have ended stay until somebody looks for them. One object for each T in the process; who
// calls from several threads locks, but for Mine.
template <class T>
class ThreadRecords {
public:
    struct Record;
    using Records = std::list<Record>;
    struct Record {
        ThreadMark m_mark;
        T m_value{};
        typename Records::iterator m_self{};
    };

    // The calling thread's; null when it has none.
    static T* Mine() noexcept { return t_pMine != nullptr ? &t_pMine->m_value : nullptr; }

    // A record for the calling thread, which has none yet. To be made before the lock is taken; throws std::bad_alloc.
    static Records Make() { return Records(1); }
    T& Add(Records io_made) noexcept {
        m_records.splice(m_records.end(), io_made);
        t_pMine = &m_records.back();
        t_pMine->m_self = std::prev(m_records.end());
        return t_pMine->m_value;
    }
    // The calling thread's, which it has no more; to be let go of without the lock.
    Records Take() noexcept {
        Records taken;
        if (t_pMine != nullptr) {
            taken.splice(taken.end(), m_records, t_pMine->m_self);
        }
        t_pMine = nullptr;
        return taken;
    }

    // Those of threads that have ended, among so many; those that were not looked at come first the next time.
    Records TakeGone(size_t i_nMost) noexcept {
        Records gone;
        for (size_t nLeft = std::min(i_nMost, m_records.size()); nLeft > 0; --nLeft) {
            const auto it = m_records.begin();
            const bool bGone = &*it != t_pMine && it->m_mark.IsGone();
            Records& goesTo = bGone ? gone : m_records;
            goesTo.splice(goesTo.end(), m_records, it);
        }
        return gone;
    }

    template <class Work>
    void ForEach(Work i_work) noexcept {
        for (Record& record : m_records) {
            i_work(record.m_value);
        }
    }

private:
    static inline constinit thread_local Record* t_pMine = nullptr;

    Records m_records;
};

}  // namespace Harrowlib201
