#include "platform/linux/kdc/KdcTransport.h"

#include <poll.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

#include "platform/linux/kdc/KdcAttempt.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"

namespace morwen {

namespace {

using Clock = std::chrono::steady_clock;
using Protocol = KdcAttempt::Protocol;
using Progress = KdcAttempt::Progress;
using std::chrono::milliseconds;

// How long a KDC may be silent before the next one is asked too.
constexpr milliseconds kPatience(1'000);

// The protocol's own error numbers; libkrb5's codes are counted from others.
constexpr krb5_ui_4 kServiceUnavailable = 29;
constexpr krb5_ui_4 kResponseTooBig = 52;

// The error number of a KRB-ERROR, 0 for any other answer.
krb5_ui_4 ErrorNumber(krb5_context i_context, const std::vector<uint8_t>& i_answer) {
    const krb5_data data = DataOf(i_answer);
    Krb5ErrorRecord record(i_context);
    return krb5_rd_error(i_context, &data, record.Receive()) == 0 ? record->error : 0;
}

// AS-REP, TGS-REP or KRB-ERROR by the tag; what is inside is for libkrb5 to judge.
bool LooksLikeAnswer(const std::vector<uint8_t>& i_answer) {
    return !i_answer.empty() && (i_answer[0] == 0x6B || i_answer[0] == 0x6D || i_answer[0] == 0x7E);
}

// One exchange: the attempts under way, and those still to be made.
class Exchanger {
public:
    Exchanger(krb5_context i_context, std::span<const uint8_t> i_request, KdcOutcome& o_outcome)
        : m_context(i_context), m_request(i_request), m_outcome(o_outcome) {}

    // False when no KDC has answered by the deadline, or every one has failed before.
    bool Run(const std::vector<KdcName>& i_kdcs, Clock::time_point i_deadline);

private:
    struct Plan {
        const KdcName* m_pKdc;
        KdcAddress m_address;  // length 0: still to be looked up
        Protocol m_eProtocol = Protocol::Tcp;
        bool m_bUdpPlanned = false;  // so that each address is asked over UDP once
    };
    struct Running {
        Plan m_plan;
        std::unique_ptr<KdcAttempt> m_pAttempt;
        bool m_bReady = false;  // Step has something to do
        bool m_bOver = false;
    };

    void StartNext();
    void OnSilence();
    void PlanUdp(Plan& io_plan, bool i_bAtOnce);
    void PollUntil(Clock::time_point i_time);
    bool StepAll();
    bool IsGood(Running& io_running);
    void KeepAnswer(const Running& i_running);
    void NoteFailure(const Plan& i_plan, const std::string& i_reason);

    krb5_context m_context;
    std::span<const uint8_t> m_request;
    KdcOutcome& m_outcome;
    std::deque<Plan> m_plans;
    std::vector<Running> m_running;
};

bool Exchanger::Run(const std::vector<KdcName>& i_kdcs, Clock::time_point i_deadline) {
    for (const KdcName& kdc : i_kdcs) {
        m_plans.push_back({&kdc, {}});
    }
    Clock::time_point silentAt = Clock::now() + kPatience;
    while (Clock::now() < i_deadline && (!m_plans.empty() || !m_running.empty())) {
        if (m_running.empty()) {
            StartNext();
            silentAt = Clock::now() + kPatience;
            continue;
        }
        const size_t nRunning = m_running.size();
        PollUntil(std::min(i_deadline, silentAt));
        if (StepAll()) {
            return true;
        }
        const bool bSilent = Clock::now() >= silentAt;
        if (bSilent) {
            OnSilence();
        }
        if (bSilent || m_running.size() < nRunning) {
            silentAt = Clock::now() + kPatience;
            // One more for the silence, or one in place of each that has ended.
            for (size_t nStarts = bSilent ? 1 : nRunning - m_running.size(); nStarts > 0 && !m_plans.empty();
                 --nStarts) {
                StartNext();
            }
        }
    }
    for (const Running& running : m_running) {
        NoteFailure(running.m_plan, running.m_pAttempt->Describe());
    }
    for (const Plan& plan : m_plans) {
        NoteFailure(plan, "not asked in time");
    }
    return !m_outcome.m_answer.empty();
}

void Exchanger::StartNext() {
    Plan plan = m_plans.front();
    m_plans.pop_front();
    if (plan.m_address.m_nLength != 0) {
        m_running.push_back({plan, std::make_unique<KdcAttempt>(plan.m_address, plan.m_eProtocol, m_request)});
        return;
    }
    const std::vector<KdcAddress> addresses = plan.m_pKdc->Resolve();
    if (addresses.empty()) {
        NoteFailure(plan, "host name not found");
        return;
    }
    plan.m_eProtocol = plan.m_pKdc->m_bTcp ? Protocol::Tcp : Protocol::Udp;
    plan.m_bUdpPlanned = !plan.m_pKdc->m_bTcp || !plan.m_pKdc->m_bUdp;
    for (auto itAddress = addresses.rbegin(); itAddress != addresses.rend(); ++itAddress) {
        plan.m_address = *itAddress;
        m_plans.push_front(plan);
    }
    StartNext();
}

void Exchanger::OnSilence() {
    for (Running& running : m_running) {
        running.m_pAttempt->Repeat();
        PlanUdp(running.m_plan, false);
    }
}

void Exchanger::PlanUdp(Plan& io_plan, bool i_bAtOnce) {
    if (!io_plan.m_bUdpPlanned) {
        io_plan.m_bUdpPlanned = true;
        Plan plan = io_plan;
        plan.m_eProtocol = Protocol::Udp;
        m_plans.insert(i_bAtOnce ? m_plans.begin() : m_plans.end(), plan);
    }
}

void Exchanger::PollUntil(Clock::time_point i_time) {
    std::vector<pollfd> descriptors;
    bool bNews = false;
    for (const Running& running : m_running) {
        descriptors.push_back({running.m_pAttempt->Descriptor(), running.m_pAttempt->Events(), 0});
        bNews = bNews || running.m_pAttempt->Descriptor() < 0;
    }
    const auto wait = std::chrono::ceil<milliseconds>(i_time - Clock::now());
    // Where there are news, the others' come next time: a process that may have no descriptors may not poll either. An
    // interrupted or failed poll shows nothing, and the caller looks at the clock before it polls again.
    if (!bNews && poll(descriptors.data(), descriptors.size(), std::max(0, static_cast<int>(wait.count()))) < 0) {
        return;
    }
    for (size_t i = 0; i < m_running.size(); ++i) {
        m_running[i].m_bReady = descriptors[i].fd < 0 || descriptors[i].revents != 0;
    }
}

// True, and the answer kept, when one is good. What has ended without one is taken out.
bool Exchanger::StepAll() {
    for (Running& running : m_running) {
        if (!std::exchange(running.m_bReady, false)) {
            continue;
        }
        const Progress eProgress = running.m_pAttempt->Step();
        running.m_bOver = eProgress != Progress::Waiting;
        if (eProgress == Progress::Answered) {
            if (IsGood(running)) {
                KeepAnswer(running);
                return true;
            }
        } else if (running.m_bOver) {
            NoteFailure(running.m_plan, running.m_pAttempt->Describe());
        }
        if (eProgress == Progress::Refused) {
            PlanUdp(running.m_plan, true);
        }
    }
    std::erase_if(m_running, [](const Running& i_running) { return i_running.m_bOver; });
    return false;
}

bool Exchanger::IsGood(Running& io_running) {
    const std::vector<uint8_t>& answer = io_running.m_pAttempt->Answer();
    if (!LooksLikeAnswer(answer)) {
        NoteFailure(io_running.m_plan, "answered with something that is not Kerberos");
        return false;
    }
    Plan& plan = io_running.m_plan;
    switch (ErrorNumber(m_context, answer)) {
        case kServiceUnavailable:
            NoteFailure(plan, "answered that it is not available");
            // Better than nothing, should nobody say better.
            KeepAnswer(io_running);
            return false;
        case kResponseTooBig:
            if (plan.m_eProtocol == Protocol::Udp && plan.m_pKdc->m_bTcp) {
                plan.m_eProtocol = Protocol::Tcp;
                m_plans.push_front(plan);
                return false;
            }
            return true;
        default:
            return true;
    }
}

void Exchanger::KeepAnswer(const Running& i_running) {
    m_outcome.m_answer = i_running.m_pAttempt->Answer();
    m_outcome.m_answeredBy = i_running.m_plan.m_pKdc->Text();
}

void Exchanger::NoteFailure(const Plan& i_plan, const std::string& i_reason) {
    std::string& failures = m_outcome.m_failures;
    failures.append(failures.empty() ? "" : "; ").append(i_plan.m_pKdc->Text());
    if (i_plan.m_address.m_nLength != 0) {
        failures.append(i_plan.m_eProtocol == Protocol::Tcp ? " (TCP)" : " (UDP)");
    }
    failures.append(" ").append(i_reason);
}

}  // namespace

krb5_error_code ExchangeWithKdcs(krb5_context i_context, const std::vector<KdcName>& i_kdcs,
                                 std::span<const uint8_t> i_request, Clock::time_point i_deadline,
                                 KdcOutcome& o_outcome) {
    o_outcome = {};
    return Exchanger(i_context, i_request, o_outcome).Run(i_kdcs, i_deadline) ? 0 : KRB5_KDC_UNREACH;
}

}  // namespace morwen
