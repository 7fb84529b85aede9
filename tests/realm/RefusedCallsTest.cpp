// A kernel that refuses the calls by which a thread changes who it is, each in its turn.
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "errors/SSOException.h"
#include "handlers/StaticToken.h"
#include "realm/KeptContextTest.h"

namespace morwen {
namespace {

class RefusedCalls : public KeptContextTest {};

// Rules, from its construction on, over these calls of the thread that made it. Another thread decides each.
class StubbornKernel {
public:
    StubbornKernel() {
        std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
        for (const long nCall : {SYS_setresuid, SYS_setresgid, SYS_setgroups, SYS_capset, SYS_capget, SYS_geteuid,
                                 SYS_getegid, SYS_getgroups, SYS_getresuid, SYS_getresgid, SYS_prctl}) {
            filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(nCall), 0, 1));
            filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
        }
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
        const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        m_nListener =
            static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
        m_judge = std::thread([this] { Judge(); });
    }
    ~StubbornKernel() {
        m_bOver = true;
        syscall(SYS_getresgid, nullptr, nullptr, nullptr);  // for the judge to see it
        m_judge.join();
        close(m_nListener);
    }
    StubbornKernel(const StubbornKernel&) = delete;
    StubbornKernel& operator=(const StubbornKernel&) = delete;

    bool Works() const { return m_nListener >= 0; }
    // The call of this number, counted from 1 and from now, fails; on request those that follow too, until 0 calls it
    // off. An error of 0 is a lie: "done", by the calls that change something. Gives whether the one asked for before
    // has come.
    bool Refuse(size_t i_nCall, bool i_bAndAllThatFollow = false, int i_nError = EPERM) {
        const bool bCame = m_nCalls >= m_nRefused;
        m_nCalls = 0;
        m_nRefused = i_nCall;
        m_bRefuseAll = i_bAndAllThatFollow;
        m_nError = i_nError;
        return bCame;
    }

private:
    void Judge() {
        seccomp_notif asked{};
        while (Works() && !(m_bOver && asked.data.nr == SYS_getresgid)) {
            asked = {};
            seccomp_notif_resp answer{};
            if (ioctl(m_nListener, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) {
                continue;
            }
            const auto nWhich = static_cast<long>(asked.data.nr);
            const bool bChanges = nWhich == SYS_setresuid || nWhich == SYS_setresgid || nWhich == SYS_setgroups ||
                                  nWhich == SYS_capset ||
                                  (nWhich == SYS_prctl && asked.data.args[1] == PR_CAP_AMBIENT_RAISE);
            const size_t nCall = m_nRefused == 0 || (m_nError == 0 && !bChanges) ? 0 : ++m_nCalls;
            const bool bRefused = nCall != 0 && (m_bRefuseAll ? nCall >= m_nRefused : nCall == m_nRefused);
            answer.id = asked.id;
            answer.error = bRefused ? -m_nError : 0;
            answer.flags = bRefused ? 0 : SECCOMP_USER_NOTIF_FLAG_CONTINUE;
            ioctl(m_nListener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
        }
    }

    int m_nListener = -1;
    std::atomic<bool> m_bOver = false, m_bRefuseAll = false;
    std::atomic<size_t> m_nRefused = 0, m_nCalls = 0;
    std::atomic<int> m_nError = 0;
    std::thread m_judge;
};

// The context behind the key gets fresh tickets from the realm, on this thread; whether it worked.
bool Renew(const std::string& i_key) {
    try {
        return StaticTokenPtr(reinterpret_cast<StaticToken*>(std::stoull(i_key)))->RenegotiateImpl();
    } catch (const SSOException&) {
        return false;
    }
}

TEST_F(RefusedCalls, LeaveNoThreadWhoItIsNotSaidToBe) {
    const ParasSeq spn = {u"" SSO_KEY_SPN, SSO_PARAMETER_STRING, u"fwd/localhost", nullptr};
    ASSERT_EQ(SSOInitProvider(u"SSPI", &spn), SSO_OK);
    const std::string alice = KeptLogin({"", "", "fwd/localhost"});
    const std::string bin = KeptLogin(PasswordOf("bin"));
    std::thread([&] {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct aData[2] = {};
        syscall(SYS_capget, &header, aData);
        aData[0].inheritable = 1U << CAP_SETUID | 1U << CAP_KILL;  // one of them is ambient too
        syscall(SYS_capset, &header, aData);
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_SETUID, 0, 0);
        const ThreadState service = CurrentThreadState();
        StubbornKernel kernel;
        if (!kernel.Works()) {
            GTEST_SKIP() << "refusing system calls needs root and a kernel with seccomp notifications";
        }
        const std::pair<bool, int> kWays[] = {{false, EPERM}, {false, 0}, {true, EAGAIN}, {true, 0}};
        for (const auto& [bAll, nError] : kWays) {
            size_t nStuck = 0;
            bool bCame = true;
            for (size_t nCall = 1; bCame; ++nCall) {
                SCOPED_TRACE(std::to_string(nCall) + " error " + std::to_string(nError) + (bAll ? " and all" : ""));
                const Bytes token = HalfLogin().m_token;
                const std::string spare = KeptLogin({"", "", "fwd/localhost"});
                ThreadState state = service;
                // What has succeeded is so; what has not has changed nothing, unless the thread is then refused
                // everything but a revert.
                const auto step = [&](bool i_bDone, const ThreadState& i_after) {
                    state = i_bDone ? i_after : state;
                    if (CurrentThreadState() == state) {
                        return;
                    }
                    ++nStuck;
                    EXPECT_FALSE(i_bDone);
                    EXPECT_EQ(AcceptLogin(token).m_verdict, "100/61215");
                    EXPECT_EQ(StartLogin().m_verdict, "100/61215");
                    EXPECT_EQ(CaptureThread(), "100/61217");
                    EXPECT_EQ(SSOImpersonate(Wide(bin).c_str()), SSO_ERROR);
                    state = CurrentThreadState();
                };
                kernel.Refuse(nCall, bAll, nError);
                step(SSOImpersonate(Wide(alice).c_str()) == SSO_OK, StateOf(service, 65534));
                const bool bAccepted = AcceptLogin(token).m_verdict == "1";
                m_nHalfDone += bAccepted ? 1 : 0;
                step(bAccepted, state);
                // Both let tickets go in the end, when the call has its result already.
                const bool bStarted = StartLogin(PasswordOf("bin")).m_verdict == "1";
                m_nHalfDone += bStarted ? 1 : 0;
                step(bStarted, state);
                step(SSOReleaseSecurityContext(Wide(spare).c_str()) == SSO_OK, state);
                step(SSOImpersonate(Wide(bin).c_str()) == SSO_OK, StateOf(service, 2));
                step(SSORevert(Wide(bin).c_str()) == SSO_OK, service);
                bCame = kernel.Refuse(0);
                EXPECT_EQ(SSORevert(Wide(alice).c_str()), SSO_OK);
                EXPECT_EQ(CurrentThreadState(), service);
                EXPECT_EQ(SSOImpersonate(Wide(bin).c_str()), SSO_OK);
                EXPECT_EQ(CurrentThreadState(), StateOf(service, 2));
                EXPECT_EQ(SSORevert(Wide(bin).c_str()), SSO_OK);
                m_trace.Said({"failed to revert"});
            }
            EXPECT_TRUE(nStuck != 0 || !bAll);
            // The thread that renews has no host to revert it.
            bCame = true;
            for (size_t nCall = 1; bCame; ++nCall) {
                SCOPED_TRACE("renewal " + std::to_string(nCall));
                kernel.Refuse(nCall, bAll, nError);
                EXPECT_TRUE(!Renew(alice) || CurrentThreadState() == service);
                bCame = kernel.Refuse(0);
                EXPECT_TRUE(Renew(alice) || Renew(alice));
                EXPECT_EQ(CurrentThreadState(), service);
                m_trace.Said({"failed to revert"});
            }
        }
    }).join();
}

}  // namespace
}  // namespace morwen
