#!/usr/bin/env bash
# The field test as a customer unpacks it, in a prefix of its own; it takes its share of the cases from the claims.
# field_test.sh FILES WORK CLAIMS   FILES: the folder with the programs of the Windows build
set -eu
files=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
claims=$(realpath "$3")
rm -rf "$2"
mkdir -p "$2"
cd "$2"
export WINEPREFIX=$PWD/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree=;mshtml=;winspool.drv,spoolss=n,b"
failed=0
fail() { echo "FAILED: $1"; failed=1; }
trap 'wineserver -k 2>/dev/null || true' EXIT

"$here/../../package/make_release.sh" 9.8.7 "$files" release
unzip -q release/*-fieldtest.zip
mv kelvane_lm-*-fieldtest fieldtest
wineboot -i >/dev/null 2>&1
wineserver -w
wine net start spooler >/dev/null

# A machine that has something of the monitor is left alone.
key='HKLM\SOFTWARE\Kelvane\ThermalPrinterSdk'
wine reg add "$key" /v LogLevelPos /t REG_DWORD /d 2 /f >/dev/null
got=0
wine cmd /c 'fieldtest\fieldtest.cmd' >refused.txt || got=$?
[ $got -eq 2 ] && grep -q '^Nothing was done: something of the monitor' refused.txt && [ ! -e report ] || fail "$got: $(cat refused.txt)"
wine reg delete 'HKLM\SOFTWARE\Kelvane' /f >/dev/null

got=0
package=$(echo release/*-x64.msi | tr / '\\') shared=$(realpath --relative-to=. "$claims" | tr / '\\')
wine cmd /c "fieldtest\\fieldtest.cmd --install $package --claims $shared" >test.txt || got=$?
tr -d '\r' <test.txt | grep -v '^ok '
[ $got -eq 0 ] || fail "the field test ended with $got"
grep -q ', 0 failed, 4 not here; ' test.txt || fail "what Wine cannot show has another number"
grep -q '"failed": 0' report/report.json && grep -q 'every check held' report/report.html || fail "the report says otherwise"
exit $failed
