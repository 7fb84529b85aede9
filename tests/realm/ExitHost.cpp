// A host that ends while its threads are anywhere in the library: RunHost, for ExitTest.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "morwen/harrow_log.h"
#include "morwen/host.hpp"

namespace {

using namespace morwen::host;

constexpr int kStatus = 7;

// Not destroyed when the process ends, as the threads go on.
std::atomic<int> s_nLogons, s_nSaid;

void Listen(uint32_t, const char*, int, const char*, void*) {
    ++s_nSaid;
}

void LogOnAndAct() {
    ClientLogin client("morwen/localhost");
    ServerLogin server;
    while (!client.IsDone()) {
        client.Continue(server.Accept(client.NextToken()));
    }
    server.Close();
    const Context context = server.TakeContext();
    const auto key = Wide(context.Key());
    if (SSOImpersonate(key.c_str()) == SSO_OK) {
        SSORevert(key.c_str());
    }
    context.IsAlive();
    ++s_nLogons;
}

void FailAndConfigure() {
    SSOError* pError = nullptr;
    SSORevert(u"nothing");
    SSOGetError(SSO_ERROR, &pError);
    SSOFreeError(pError);
    SSOInitProvider(u"SSPI", Parameters().Set(SSO_KEY_CACHE_CONTEXTS, true).Chain());
}

void StartAndEnd() {
    if (SSOInitPackage() == SSO_OK) {
        SSOTermPackage();
    }
}

// Endlessly, each on a thread of its own.
void Keep(void (*i_pfnWork)()) {
    std::thread([i_pfnWork] {
        for (;;) {
            try {
                i_pfnWork();
            } catch (const Error&) {
                // The package, or the process, has ended.
            }
        }
    }).detach();
}

const std::map<std::string, void (*)()> kWays = {
    {"exit", [] { std::exit(kStatus); }},
    {"ended",
     [] {
         SSOTermPackage();
         std::exit(kStatus);
     }},
    {"ending",
     [] {
         std::thread([] { SSOTermPackage(); }).detach();
         std::exit(kStatus);
     }},
    {"restarting",
     [] {
         Keep(StartAndEnd);
         SSOTermPackage();
         Keep(StartAndEnd);
         std::exit(kStatus);
     }},
    {"thread",
     [] {
         std::thread([] { std::exit(kStatus); }).detach();
         for (;;) {
             FailAndConfigure();
         }
     }},
    {"static",
     [] {
         SSOTermPackage();
         static const Package s_package;  // ends among the host's static objects
         std::exit(kStatus);
     }},
    {"sink",
     [] {
         const auto end = [](uint32_t, const char*, int, const char*, void*) {
             static std::atomic<bool> s_bEnding;
             if (!s_bEnding.exchange(true)) {  // one thread at a time may end the process
                 std::exit(kStatus);
             }
         };
         HarrowLogSetSink(end, nullptr, HARROW_LOG_TRACE);
         pause();
     }},
};

}  // namespace

// Ends the process in the way named; threads log on, act as the user, fail, start and end meanwhile.
extern "C" __attribute__((visibility("default"))) void RunHost(const char* i_pszWay) {
    // What a program still has to write is written after all destructors have run, here slowly: nobody is lucky.
    const auto write = [](void*, const char*, size_t i_nLength) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return static_cast<ssize_t>(i_nLength);
    };
    static_cast<void>(std::fputs("the end", fopencookie(nullptr, "w", {nullptr, write, nullptr, nullptr})));
    tzset();  // first here: the thread sanitizer does not see the C library's lock around it
    HarrowLogSetSink(Listen, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    SSOInitPackage();
    FailAndConfigure();
    for (int i = 0; i < 6; ++i) {
        Keep(LogOnAndAct);
    }
    Keep(FailAndConfigure);
    Keep(StartAndEnd);
    while (s_nLogons == 0) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(std::random_device{}() % 3000));
    kWays.at(i_pszWay)();
}
