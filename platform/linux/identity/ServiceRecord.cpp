#include "platform/linux/identity/ServiceRecord.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include "harrow/lifetime/AtUnload.h"
#include "harrow/lifetime/NeverDestroyed.h"
#include "harrow/locks/CS_Wrapper.h"
#include "harrow/log/STrace.h"

namespace morwen {

using Harrowlib201::CS_Locker;

namespace {

struct Record {
    Harrowlib201::CS_Wrapper m_section;
    std::optional<ThreadCredentials> m_service S_GUARDED_BY(m_section);
    std::set<uid_t> m_users S_GUARDED_BY(m_section);
};

Record& TheRecord() noexcept {
    static Harrowlib201::NeverDestroyed<Record> s_record;
    return *s_record;
}

// An impersonation changes the effective id alone: the saved one tells it from a thread that is the user for good.
bool IsInherited(Record& i_record, int& o_nError) S_REQUIRES(i_record.m_section) {
    uid_t nReal = 0;
    uid_t nEffective = 0;
    uid_t nSaved = 0;
    if (syscall(SYS_getresuid, &nReal, &nEffective, &nSaved) < 0) {
        o_nError = errno;
        return false;
    }
    return i_record.m_service && nEffective != i_record.m_service->m_account.m_nUser && nEffective != nSaved &&
           i_record.m_users.contains(nEffective);
}

// What it holds must not count as lost when the library is unloaded.
const Harrowlib201::AtUnload s_clear([] {
    Record& record = TheRecord();
    const CS_Locker locker(record.m_section);
    record.m_service.reset();
    record.m_users.clear();
});

}  // namespace

void KeepServiceRecord(const ThreadCredentials& i_service, uid_t i_nUser) {
    Record& record = TheRecord();
    const CS_Locker locker(record.m_section);
    if (record.m_service != i_service) {
        auto service = i_service;  // all of it or nothing
        record.m_service = std::move(service);
    }
    record.m_users.insert(i_nUser);
}

bool IsServiceAccount(const UnixAccount& i_account) {
    // The saved id stays the process's own when a thread gets another effective one.
    uid_t nReal = 0;
    uid_t nEffective = 0;
    uid_t nSaved = 0;
    if (getresuid(&nReal, &nEffective, &nSaved) == 0 && nSaved == i_account.m_nUser) {
        return true;
    }
    Record& record = TheRecord();
    const CS_Locker locker(record.m_section);
    return record.m_service && record.m_service->m_account.m_nUser == i_account.m_nUser;
}

bool IsThreadInherited() noexcept {
    Record& record = TheRecord();
    const CS_Locker locker(record.m_section);
    int nError = 0;
    return IsInherited(record, nError) || nError != 0;
}

int RestoreInheritedThread() noexcept {
    Record& record = TheRecord();
    const CS_Locker locker(record.m_section);
    int nError = 0;
    if (!IsInherited(record, nError)) {
        return nError;
    }
    S_TRACE("ssoplugin: RestoreInheritedThread() -- The thread began as a user that its maker acted as.");
    return record.m_service->Restore();
}

}  // namespace morwen
