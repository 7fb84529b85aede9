#!/usr/bin/env bash
# zip_test.sh: the archive for Windows holds all that a host there needs; a host built on it alone starts.
set -euo pipefail
cd "$(dirname "$0")/../.."
rm -rf build/windows/packages
(cd build/windows && cpack)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
(cd "$scratch" && cmake -E tar xf "$OLDPWD"/build/windows/packages/morwen-*-windows-x64.zip)
root=$(echo "$scratch"/morwen-*)
for file in LICENSE CHANGELOG.md docs/README.md bin/{morwenplugin,harrowlog}.dll lib/{morwenplugin,harrowlog}.lib \
    lib/lib{morwenplugin,harrowlog}.dll.a include/morwen/{morwenplugin.h,harrow_log.h,host.hpp} \
    lib/cmake/morwen/morwen-config{,-version}.cmake docs/windows.md examples/first_login.cpp; do
    [ -s "$root/$file" ] || { echo "zip_test: $file is missing" >&2; exit 1; }
done
cmp LICENSE "$root/LICENSE"

cmake -G Ninja -S "$root/examples" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$root" \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$scratch/bin" -DCMAKE_EXE_LINKER_FLAGS=-static
cmake --build "$scratch/build" --target first_login
cp "$root"/bin/*.dll "$scratch/bin"
{ scripts/wine "$scratch/bin/first_login.exe" morwen/nowhere 2>&1 || [ $? -eq 2 ]; } | grep '^SSOStartLogin: code 100: '
