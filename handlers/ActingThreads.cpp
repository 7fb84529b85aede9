#include "handlers/ActingThreads.h"

#include <limits>
#include <utility>

#include "handlers/StaticToken.h"
#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/threads/ThreadRecords.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

using Threads = Harrowlib201::ThreadRecords<StaticToken*>;

struct Registry {
    Harrowlib201::CS_Wrapper m_section;
    Threads m_threads S_GUARDED_BY(m_section);
};

Registry& TheRegistry() noexcept {
    static Harrowlib201::NeverDestroyed<Registry> s_registry;
    return *s_registry;
}

// What a thread leaves behind must not count as lost when the library is unloaded; one that lives may still use it.
const Harrowlib201::AtUnload s_forget([] { ActingThreads::ForgetEnded(); });

}  // namespace

ActingThreads::Place::Place() {
    if (Threads::Mine() == nullptr) {
        auto made = Threads::Make();
        Registry& registry = TheRegistry();
        const CS_Locker locker(registry.m_section);
        registry.m_threads.Add(std::move(made));
    }
}

ActingThreads::Place::~Place() {
    if (!IsActing()) {
        End();
    }
}

void ActingThreads::Place::Begin(StaticToken& i_token) const noexcept {
    const CS_Locker locker(TheRegistry().m_section);
    StaticToken* const pEarlier = std::exchange(*Threads::Mine(), &i_token);
    ++i_token.m_nImpersonationCount;
    if (pEarlier != nullptr) {
        --pEarlier->m_nImpersonationCount;
    }
}

void ActingThreads::End() noexcept {
    Threads::Records ended;  // let go of after the lock
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    ended = registry.m_threads.Take();
    for (const auto& record : ended) {
        if (record.m_value != nullptr) {
            --record.m_value->m_nImpersonationCount;
        }
    }
}

bool ActingThreads::IsActing() noexcept {
    const auto* const pMine = Threads::Mine();
    return pMine != nullptr && *pMine != nullptr;
}

void ActingThreads::Forget(StaticToken& i_token) noexcept {
    if (i_token.GetImpersonationCount() == 0) {
        return;  // and nobody can begin any more
    }
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    registry.m_threads.ForEach([&](StaticToken*& io_pToken) {
        if (io_pToken == &i_token) {
            io_pToken = nullptr;
        }
    });
}

void ActingThreads::ForgetEnded() noexcept {
    Threads::Records ended;
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    ended = registry.m_threads.TakeGone(std::numeric_limits<size_t>::max());
    for (const auto& record : ended) {
        if (record.m_value != nullptr) {
            --record.m_value->m_nImpersonationCount;
        }
    }
}

}  // namespace morwen
