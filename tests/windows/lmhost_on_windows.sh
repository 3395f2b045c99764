#!/usr/bin/env bash
# What lmhost leaves on a machine. It puts settings back that it changed for its run.
# The archive root, its day folders and the log folder are open to other accounts. Wine shows a folder's access list as the
# mode of the Unix folder, the Users group as its group; a folder above them, which gets no rule, shows the difference.
set -eu
run_under_wine=$1 lmhost=$2 build=$3
drive=${WINEPREFIX:-$build/wineprefix0}/drive_c
rm -rf "$drive/AccessTest" "$drive/ProgramData/Kelvane/Logs/PrinterDriver"
settings='HKLM\SOFTWARE\Kelvane'
"$run_under_wine" reg add "$settings\ThermalPrinterSdk" /v LogLevelPos /t REG_DWORD /d 0x6 /f >/dev/null
"$run_under_wine" reg delete "$settings\PrinterDriver" /f >/dev/null 2>&1 || true
printf 'a receipt\n' >"$build/access-test.prn"
(cd "$build/bin" && "$run_under_wine" "$lmhost" print ../access-test.prn --archive 'C:\AccessTest\Jobs')

failed=0
left=$("$run_under_wine" reg query "$settings" /s | tr -d '\r' | sed -n 's/^    //p')
[ "$left" = 'LogLevelPos    REG_DWORD    0x6' ] || { echo "FAILED: the settings are: $left"; failed=1; }
expect() {  # mode pattern, folder ...
  local pattern=$1 mode
  shift
  for folder in "$@"; do
    mode=$(stat -c %A "$folder")
    # shellcheck disable=SC2254
    case "$mode" in $pattern) ;; *) echo "FAILED: $folder is $mode, not $pattern"; failed=1 ;; esac
  done
}
expect 'd???r-x*' "$drive/AccessTest"
expect 'd???rwx*' "$drive/AccessTest/Jobs" "$drive/AccessTest/Jobs"/2* "$drive/ProgramData/Kelvane/Logs/PrinterDriver"
rm -rf "$drive/AccessTest"
exit $failed
