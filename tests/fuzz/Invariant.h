// What must hold whatever the input: else the fuzzer stops and keeps the input.
#pragma once

#include <cstdio>
#include <cstdlib>

#define MORWEN_INVARIANT(condition) \
    ((condition) ? void() : (std::fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #condition), std::abort()))
