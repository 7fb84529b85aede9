#!/usr/bin/env bash
# install_test.sh: the Debian packages, unpacked into an empty folder, must be enough to build the example hosts and run them.
set -euo pipefail
cd "$(dirname "$0")/../.."

scripts/package
packages=(build/package/packages/*.deb)
[ ${#packages[@]} -eq 4 ]
lintian --allow-root --fail-on error,warning "${packages[@]}"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Each package with what it depends on, so that each has the pages that its pages name.
for package in libmorwenplugin1 morwen-tools libmorwenplugin-dev python3-morwen; do
    dpkg-deb -x build/package/packages/${package}_*.deb "$scratch/$package"
    case $package in
        libmorwenplugin-dev) cp -a "$scratch"/{libmorwenplugin1,morwen-tools}/usr "$scratch/$package" ;;
        morwen-tools | python3-morwen) cp -a "$scratch/libmorwenplugin1/usr" "$scratch/$package" ;;
    esac
    broken=$(find "$scratch/$package" -name '*.md' -exec grep -HoP '\]\((?!https?:)\K[^)#@]+(?=[)#])' {} + |
        while IFS=: read -r page link; do [ -e "$(dirname "$page")/$link" ] || echo "${page#"$scratch"/}: no $link"; done)
    [ -z "$broken" ] || { echo "$broken" >&2; exit 1; }
    cp -a "$scratch/$package/usr" "$scratch"
done
libraries=$(dirname "$(find "$scratch" -path "$scratch/usr/*" -name libmorwenplugin.so)")
export LD_LIBRARY_PATH=$libraries
for package in libmorwenplugin1 libmorwenplugin-dev morwen-tools python3-morwen; do
    grep -q '^License: Expat' "$scratch/usr/share/doc/$package/copyright"
done

# A page for every name that the libraries export.
mapfile -t names < <(nm --dynamic --defined-only "$libraries"/*.so | sed -n 's/.* T \([A-Za-z]*\).*/\1/p')
[ ${#names[@]} -eq 26 ]
for name in "${names[@]}" morwenplugin harrow_log; do
    [ -s "$scratch/usr/share/man/man3/$name.3.gz" ] || { echo "install_test: no page for $name" >&2; exit 1; }
done
gunzip "$scratch"/usr/share/man/man[137]/*
mandoc -T lint -W warning "$scratch"/usr/share/man/man[137]/*

# The CMake package, from the installed copy of the examples; each must take the library from the packages.
cmake -S "$scratch/usr/share/doc/morwen/examples" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$scratch/usr" \
    -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$scratch/bin"
cmake --build "$scratch/build"
ldd "$scratch/bin/sso_server" | grep -F "libmorwenplugin.so.1 => $libraries/"
scripts/realm scripts/demo in-realm "$scratch/bin"
scripts/realm "$scratch/bin/first_login" morwen/localhost | grep '^logged on: S-1-22-1-'
PYTHONPATH=$scratch/usr/lib/python3/dist-packages scripts/realm python3 "$scratch/usr/share/doc/morwen/examples/first_login.py" \
    morwen/localhost | grep '^logged on: S-1-22-1-'

# The administrators' command finds nothing in a realm that is well, and says so when it is not.
scripts/realm "$scratch/usr/bin/morwen-doctor" client --spn morwen/localhost
{ scripts/realm env KRB5CCNAME=FILE:/none "$scratch/usr/bin/morwen-doctor" client || [ $? -eq 1 ]; } | grep 'ERROR.*cache-missing'

# The pkg-config file and the layer for C++.
export PKG_CONFIG_PATH=$libraries/pkgconfig  # which lies where nobody said that it would
printf '#include <morwen/host.hpp>\nint main() { morwen::host::Package().Use(SSO_PROVIDER_SSPI); }\n' >"$scratch/host.cpp"
# shellcheck disable=SC2046  # the flags are words
g++ -std=c++17 "$scratch/host.cpp" -o "$scratch/host" $(pkg-config --cflags --libs morwen)
"$scratch/host"
