// Makes an allocation of the calling thread fail.
#pragma once

#include <atomic>

namespace morwen {

struct AllocationFault {
    long m_nLeft;        // counted allocations until one fails; 0: none does
    bool m_bCounted;     // now
    bool m_bFromThenOn;  // all that follow fail too
    bool m_bForeignToo;  // also those that another library asks for
    bool m_bHit;
};
extern constinit thread_local AllocationFault t_fault;
extern constinit std::atomic<long> g_nBlocks;  // that the process holds

}  // namespace morwen
