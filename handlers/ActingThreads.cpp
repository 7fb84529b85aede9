#include "handlers/ActingThreads.h"

#include <limits>
#include <utility>

#include "handlers/StaticToken.h"
#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/threads/ThreadRecords.h"
#include "platform/Platform.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

struct Acting {
    StaticToken* m_pToken = nullptr;  // null when it has ended since
    bool m_bActing = false;
};
using Threads = Harrowlib201::ThreadRecords<Acting>;

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
    if (const Acting* const pMine = Threads::Mine(); pMine != nullptr && !pMine->m_bActing) {
        End();
    }
}

void ActingThreads::Place::Begin(StaticToken& i_token) const noexcept {
    const CS_Locker locker(TheRegistry().m_section);
    ++i_token.m_nImpersonationCount;
    CountOut(std::exchange(*Threads::Mine(), {&i_token, true}).m_pToken);
}

void ActingThreads::Place::Refuse(bool i_bItself) const noexcept {
    const CS_Locker locker(TheRegistry().m_section);
    CountOut(std::exchange(*Threads::Mine(), {nullptr, !i_bItself}).m_pToken);
}

void ActingThreads::CountOut(StaticToken* i_pToken) noexcept {
    if (i_pToken != nullptr) {
        --i_pToken->m_nImpersonationCount;
    }
}

void ActingThreads::End() noexcept {
    Threads::Records ended;  // let go of after the lock
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    ended = registry.m_threads.Take();
    for (const auto& record : ended) {
        CountOut(record.m_value.m_pToken);
    }
}

bool ActingThreads::Revert() noexcept {
    if (Threads::Mine() == nullptr) {
        return true;
    }
    if (!Platform::Tokens().RevertToSelf()) {
        return false;
    }
    End();
    return true;
}

void ActingThreads::Forget(StaticToken& i_token) noexcept {
    if (i_token.GetImpersonationCount() == 0) {
        return;  // and nobody can begin any more
    }
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    registry.m_threads.ForEach([&](Acting& io_acting) {
        if (io_acting.m_pToken == &i_token) {
            io_acting.m_pToken = nullptr;
        }
    });
}

void ActingThreads::ForgetEnded() noexcept {
    Threads::Records ended;
    Registry& registry = TheRegistry();
    const CS_Locker locker(registry.m_section);
    ended = registry.m_threads.TakeGone(std::numeric_limits<size_t>::max());
    for (const auto& record : ended) {
        CountOut(record.m_value.m_pToken);
    }
}

}  // namespace morwen
