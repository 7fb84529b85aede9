#include "harrow/threads/JTC.h"

#include <atomic>

namespace Harrowlib201 {

namespace {

constexpr uint32_t kSlots = 8;

std::atomic<uint32_t> s_nUsers{0};
std::atomic<uint64_t> s_nLastGeneration{0};
std::atomic<uint64_t> s_aGenerations[kSlots];  // of the key that a slot belongs to; 0: free

struct Slot {
    uint64_t m_nGeneration;  // of the key under which the value was set
    void* m_pvValue;
};
thread_local Slot t_aSlots[kSlots];

thread_local uint32_t t_nAdoptions;

void RequireAllocated(const JTCThreadKey& i_key) {
    if (i_key.m_nGeneration == 0 || i_key.m_nSlot >= kSlots ||
        s_aGenerations[i_key.m_nSlot].load(std::memory_order_acquire) != i_key.m_nGeneration) {
        throw JTCSystemCallException("the thread-local slot is not allocated");
    }
}

}  // namespace

JTCInitialize::JTCInitialize() noexcept {
    s_nUsers.fetch_add(1);
}

JTCInitialize::~JTCInitialize() {
    s_nUsers.fetch_sub(1);
}

bool JTCInitialize::initialized() noexcept {
    return s_nUsers.load() != 0;
}

JTCAdoptCurrentThread::JTCAdoptCurrentThread() noexcept {
    ++t_nAdoptions;
}

JTCAdoptCurrentThread::~JTCAdoptCurrentThread() {
    --t_nAdoptions;
}

bool JTCAdoptCurrentThread::isKnown() noexcept {
    return t_nAdoptions != 0;
}

JTCThreadKey JTCTSS::allocate() {
    const uint64_t nGeneration = s_nLastGeneration.fetch_add(1) + 1;
    for (uint32_t i = 0; i < kSlots; ++i) {
        uint64_t nFree = 0;
        if (s_aGenerations[i].compare_exchange_strong(nFree, nGeneration)) {
            return {i, nGeneration};
        }
    }
    throw JTCSystemCallException("all thread-local slots are taken");
}

void JTCTSS::release(const JTCThreadKey& i_key) noexcept {
    if (i_key.m_nGeneration != 0 && i_key.m_nSlot < kSlots) {
        uint64_t nGeneration = i_key.m_nGeneration;
        s_aGenerations[i_key.m_nSlot].compare_exchange_strong(nGeneration, 0);
    }
}

void* JTCTSS::get(const JTCThreadKey& i_key) {
    RequireAllocated(i_key);
    const Slot& slot = t_aSlots[i_key.m_nSlot];
    return slot.m_nGeneration == i_key.m_nGeneration ? slot.m_pvValue : nullptr;
}

void JTCTSS::set(const JTCThreadKey& i_key, void* i_pvValue) {
    RequireAllocated(i_key);
    t_aSlots[i_key.m_nSlot] = {i_key.m_nGeneration, i_pvValue};
}

}  // namespace Harrowlib201
