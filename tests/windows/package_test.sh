#!/usr/bin/env bash
# package_test.sh PROGRAM ARGUMENTS...: runs it, in a realm, where the test package answers in the place of Kerberos: in a
# copy of the Wine prefix. In a zone that has daylight saving, under a name that C runtimes misread.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/wine cmd /c exit
export MORWEN_WINEPREFIX=$PWD/build/wine-package TZ='<+01>-1<+02>,M3.5.0,M10.5.0/3'
trap 'scripts/wine --end; rm -rf "$MORWEN_WINEPREFIX"' EXIT
rm -rf "$MORWEN_WINEPREFIX"
# Links, because a prefix is large; but Wine writes its registry in place where it has two names.
cp -al build/wine "$MORWEN_WINEPREFIX"
rm "$MORWEN_WINEPREFIX"/*.reg
cp build/wine/*.reg "$MORWEN_WINEPREFIX"
control='HKLM\System\CurrentControlSet\Control'
scripts/wine reg delete "$control\\Lsa\\Kerberos" /f
scripts/wine reg add "$control\\Lsa\\test_package" /f
scripts/wine reg add "$control\\SecurityProviders" /v SecurityProviders /d test_package.dll /f
scripts/realm scripts/wine "$@"
