// soak MINUTES: logons, refused ones, impersonations, renewals, starts and ends from many threads, for so long; what
// the process holds is sampled meanwhile and must not grow. Runs in a realm: see scripts/soak. Status 1: something went
// wrong or grew.
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <random>
#include <syncstream>
#include <thread>

#include "morwen/harrow_log.h"
#include "morwen/host.hpp"

namespace {

using namespace morwen::host;
using Clock = std::chrono::steady_clock;

constexpr auto kShortLife = std::chrono::seconds(62);  // of contexts with brief/localhost: renewed once a minute
constexpr size_t kKept = 256, kKeptShort = 24;

std::atomic<uint64_t> s_nLogons, s_nRefused, s_nActed, s_nRenewed, s_nLapsed, s_nStarts, s_nFaults;
std::atomic<bool> s_bEnd;
thread_local std::string s_traces;  // of the logon that the thread is at

void Fault(const std::string& i_text) {
    if (s_nFaults++ < 20) {
        std::osyncstream(std::cerr) << "soak: " << i_text << '\n' << s_traces << std::flush;
    }
}

void Listen(uint32_t i_nKind, const char*, int, const char* i_pszText, void*) {
    if (i_nKind == HARROW_LOG_ASSERTION) {
        Fault(i_pszText);
    } else if (s_traces.size() < 65536) {
        s_traces.append("    ").append(i_pszText).append("\n");
    }
}

Parameters For(const char* i_pszSpn) {
    return Parameters().Set(SSO_KEY_SPN, i_pszSpn);
}

Context LogOn(const char* i_pszSpn, const char* i_pszUser = "", const char* i_pszPassword = "") {
    s_traces.clear();
    ClientLogin client(For(i_pszSpn), i_pszUser, i_pszPassword);
    ServerLogin server;
    while (!client.IsDone()) {
        client.Continue(server.Accept(client.NextToken()));
    }
    server.Close();
    ++s_nLogons;
    if (server.Information().m_userSid.empty()) {
        Fault("a logon without its user");
    }
    return server.TakeContext();
}

// The work must be refused.
template <class Work>
void Refused(const char* i_pszWhat, Work i_work) {
    try {
        i_work();
        Fault(std::string("let in: ") + i_pszWhat);
    } catch (const Error&) {
        ++s_nRefused;
    }
}

void Act(const Context& i_context, uid_t i_nUser) {
    const uid_t nService = geteuid();
    Impersonation thread = i_context.Impersonate();
    if (geteuid() != i_nUser) {
        Fault("a thread acts as " + std::to_string(geteuid()) + " and not as " + std::to_string(i_nUser));
    }
    thread.Revert();
    if (geteuid() != nService) {
        Fault("a thread is not the service again");
    }
    ++s_nActed;
}

// Every kept context is used, and at last let go, by another thread than the one that made it.
class KeptContexts {
public:
    void Exchange(Context io_context, uid_t i_nUser) {
        {
            const std::lock_guard lock(m_mutex);
            m_contexts.push_back(std::move(io_context));
            if (m_contexts.size() <= kKept) {
                return;
            }
            io_context = std::move(m_contexts.front());
            m_contexts.pop_front();
        }
        Act(io_context, i_nUser);
    }

private:
    std::mutex m_mutex;
    std::deque<Context> m_contexts;
};

void Users(KeptContexts& i_kept, uid_t i_nAlice) {
    for (uint64_t i = 0; !s_bEnd; ++i) {
        i_kept.Exchange(LogOn("morwen/localhost"), i_nAlice);
        if (i % 256 == 0) {
            LogOn("morwen/localhost", "MORWEN\\bob", "bob-secret");
        }
    }
}

// Every login is attacked, and succeeds all the same: one that is left half done would stay until the package ends.
void Strangers() {
    std::mt19937 random(std::random_device{}());
    const auto damaged = [&random](Token i_token) {
        // At its end, which is a ciphertext: not every bit before that is protected.
        i_token[i_token.size() - 1 - random() % 50] ^= static_cast<uint8_t>(1U << random() % 8);
        return i_token;
    };
    for (uint64_t i = 0; !s_bEnd; ++i) {
        s_traces.clear();
        ClientLogin client("morwen/localhost");
        const Token token = client.NextToken();
        Refused("a damaged token", [&] { ServerLogin().Accept(damaged(token)); });
        ServerLogin server;
        const Token reply = server.Accept(token);
        Refused("a token seen before", [&] { ServerLogin().Accept(token); });
        Refused("a damaged answer", [&] { client.Continue(damaged(reply)); });
        Refused("an answer that is none", [&] { client.Continue(token); });
        client.Continue(reply);
        server.Close();
        Refused("a guessed key", [&] { Impersonation(std::to_string(random())); });
        if (i % 256 == 0) {
            Refused("a wrong password", [] { ClientLogin(For("morwen/localhost"), "MORWEN\\bob", "secret"); });
        }
    }
}

// Contexts that live for about a minute are renewed, in the background, for as long as they are kept.
void Renewals() {
    struct Kept {
        Context m_context;
        Clock::time_point m_due;  // when it lapses, unless it has been renewed
    };
    std::vector<Kept> kept(kKeptShort);
    for (; !s_bEnd; std::this_thread::sleep_for(std::chrono::milliseconds(200))) {
        for (Kept& entry : kept) {
            if (!entry.m_context || !entry.m_context.IsAlive()) {
                s_nLapsed += entry.m_context ? 1 : 0;  // its ticket was an old one that ran out between two passes
                entry.m_context = {};
                try {
                    entry = {LogOn("brief/localhost"), Clock::now() + kShortLife};
                } catch (const Error&) {
                    if (s_traces.find("the ticket expired at") == std::string::npos) {
                        throw;
                    }
                    ++s_nLapsed;  // on its way to the server, on a busy machine
                }
            } else if (Clock::now() > entry.m_due) {
                entry.m_due += kShortLife;
                ++s_nRenewed;
            }
        }
    }
}

// Other users of the package in the process come and go, which costs the rest nothing and takes nothing from them.
void StartsAndEnds() {
    constexpr auto kMost = std::chrono::seconds(5);  // on a busy machine
    for (; !s_bEnd; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
        s_traces.clear();
        const auto begin = Clock::now();
        {
            Package package;
            package.Use(SSO_PROVIDER_THREADTOKEN);
            const Context context = Context::OfThread();
            if (!context.IsAlive()) {
                Fault("a context is gone that has just been kept");
            }
        }
        if (Clock::now() - begin > kMost) {
            Fault("a start and an end have waited for others");
        }
        ++s_nStarts;
    }
}

// What the process holds.
struct Held {
    uint64_t m_nResidentKiB, m_nDescriptors, m_nThreads;

    static Held Now() {
        uint64_t nPages = 0;
        std::ifstream("/proc/self/statm").ignore(64, ' ') >> nPages;
        const auto count = [](const char* i_pszFolder) {
            const std::filesystem::directory_iterator all(i_pszFolder);
            return static_cast<uint64_t>(std::distance(begin(all), end(all)));
        };
        return {nPages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024, count("/proc/self/fd"),
                count("/proc/self/task")};
    }
};

// The largest of the second half against the largest of the first.
void RequireFlat(const char* i_pszWhat, const std::vector<Held>& i_samples, uint64_t Held::*i_pWhat,
                 uint64_t i_nTolerance) {
    const auto less = [&](const Held& a, const Held& b) { return a.*i_pWhat < b.*i_pWhat; };
    const auto middle = i_samples.begin() + static_cast<ptrdiff_t>(i_samples.size() / 2);
    const uint64_t nBefore = *std::max_element(i_samples.begin(), middle, less).*i_pWhat;
    const uint64_t nAfter = *std::max_element(middle, i_samples.end(), less).*i_pWhat;
    std::cout << "soak: " << i_pszWhat << ": at most " << nBefore << " in the first half, " << nAfter
              << " in the second" << std::endl;
    if (nAfter > nBefore + i_nTolerance) {
        Fault(std::string(i_pszWhat) + " grow");
    }
}

}  // namespace

int main(int argc, char** argv) {
    const double fMinutes = argc == 2 ? std::strtod(argv[1], nullptr) : 0;
    if (fMinutes <= 0) {
        std::cerr << "usage: soak MINUTES\n";
        return 2;
    }
    const passwd* const pNobody = getuid() == 0 ? getpwnam("nobody") : nullptr;
    const uid_t nAlice = pNobody != nullptr ? pNobody->pw_uid : getuid();
    HarrowLogSetSink(Listen, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    std::vector<Held> samples;
    try {
        Package package;
        package.Use(
            SSO_PROVIDER_SSPI,
            For("brief/localhost").Set(SSO_KEY_CACHE_CONTEXTS, true).Set(SSO_KEY_CACHE_EXPIRY, int64_t{24} * 60 * 60));
        KeptContexts kept;
        std::vector<std::jthread> threads;
        const auto work = [&](auto i_work) {
            threads.emplace_back([i_work] {
                try {
                    i_work();
                } catch (const std::exception& error) {
                    Fault(error.what());
                }
            });
        };
        for (int i = 0; i < 4; ++i) {
            work([&] { Users(kept, nAlice); });
        }
        work(Strangers);
        work(Strangers);
        work(Renewals);
        work(StartsAndEnds);

        constexpr int kSamples = 240;  // of which the first quarter counts as warming up
        const auto pause = std::chrono::duration<double>(fMinutes * 60 / kSamples);
        for (int i = 1; i <= kSamples && s_nFaults == 0; ++i) {
            std::this_thread::sleep_for(pause);
            const Held held = Held::Now();
            if (i > kSamples / 4) {
                samples.push_back(held);
            }
            if (i % (kSamples / 12) == 0) {
                std::cout << "soak: " << i * 100 / kSamples << " %: " << s_nLogons << " logons, " << s_nRefused
                          << " refused, " << s_nActed << " impersonations, " << s_nRenewed << " renewed, " << s_nLapsed
                          << " lapsed, " << s_nStarts << " starts; " << held.m_nResidentKiB << " KiB, "
                          << held.m_nDescriptors << " descriptors, " << held.m_nThreads << " threads" << std::endl;
            }
        }
        s_bEnd = true;
    } catch (const std::exception& error) {
        Fault(error.what());
    }
    if (s_nFaults == 0) {
        RequireFlat("resident KiB", samples, &Held::m_nResidentKiB, 1024);
        RequireFlat("descriptors", samples, &Held::m_nDescriptors, 4);
        RequireFlat("threads", samples, &Held::m_nThreads, 0);
        if (fMinutes > 2.5 && s_nRenewed == 0) {
            Fault("no context has been renewed");
        }
    }
    return s_nFaults == 0 ? 0 : 1;
}
