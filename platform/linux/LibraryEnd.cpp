// The end of a shared library that has the C++ library inside.

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the C++ library's own

// Gives back what the C++ library keeps for exceptions that are thrown when there is no memory.
void __freeres();  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

}  // namespace __gnu_cxx

namespace {

// With the first priority, so that it runs after all other ends: a host that loads and unloads would lose that memory
// each time.
[[gnu::destructor(101)]] void GiveBackLast() {
    __gnu_cxx::__freeres();
}

}  // namespace
