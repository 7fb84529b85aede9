// What the benchmarks share: how they are registered, and how one that cannot go on says so.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace morwen::bench {

// Thrown by whatever is measured when a step of it fails: a benchmark must not measure failures.
inline void Require(bool i_bDone, const std::string& i_what) {
    if (!i_bDone) {
        throw std::runtime_error(i_what);
    }
}

// Registers a benchmark that is timed by the clock on the wall. An exception ends it with its text.
benchmark::internal::Benchmark* Register(const std::string& i_name, std::function<void(benchmark::State&)> i_run);

// Each file's own, called once by the program.
void RegisterLogons();
void RegisterIdentities();
void RegisterCalls();
void RegisterCaches();
void RegisterMemory();
void RegisterWaits();
void RegisterHops();
void RegisterLives();

}  // namespace morwen::bench
