#!/usr/bin/env bash
# The tables of the installation package: what Windows' installer demands and Wine's does not look at. Each rule is shown to
# find a package that breaks it.
# package_tables_test.sh FILES WORK   FILES: the folder with the programs of the Windows build
set -eu
export LC_ALL=C
files=$(realpath "$1")
package=$(realpath "$(dirname "$0")/../../package")
rm -rf "$2"
mkdir -p "$2"
cd "$2"
export SOURCE_DATE_EPOCH=1700000000
failed=0
fail() { echo "FAILED: $1"; failed=1; }

rows() { msiinfo export "$msi" "$1" 2>/dev/null | tr -d '\r' | tail -n +4; }
place() { rows InstallExecuteSequence | awk -F '\t' -v action="$1" '$1 == action { print $3 }'; }
in_order() {  # actions that run one after the other
  local before=0 action at
  for action in "$@"; do
    at=$(place "$action")
    [ -n "$at" ] && [ "$at" -gt "$before" ] || echo "order: $action stands at '$at', behind $before"
    before=${at:-0}
  done
}

has='function has(value, bit) { return int(value / bit) % 2 == 1 }'  # one bit of a number

rules() {  # prints what is wrong with a package
  msi=$1
  in_order PrepareSetup InstallValidate
  in_order CostFinalize RefuseWhileInUse InstallInitialize TakeBackSetup BeginSetup StopServices RemoveFiles InstallFiles \
    WriteRegistryValues EndSetup InstallFinalize RemoveExistingProducts
  rows InstallExecuteSequence | awk -F '\t' -v last="$(place EndSetup)" -v end="$(place InstallFinalize)" \
    '$3 > last && $3 < end { print "order: " $1 " may fail behind EndSetup" }'
  # Immediate ones are those whose rights a test of their own looks at; the others are deferred (1024), with the system's
  # rights (2048), and none is a commit action (512).
  rows CustomAction | awk -F '\t' "$has"'
    !has($2, 1024) && $1 != "PrepareSetup" && $1 != "RefuseWhileInUse" { print "types: " $1 " runs immediately" }
    has($2, 1024) && !has($2, 2048) { print "types: " $1 " runs as the user" }
    has($2, 1024) && has($2, 512) { print "types: " $1 " is a commit action" }
    $1 == "TakeBackSetup" && !has($2, 256) { print "types: " $1 " is no rollback action" }'
  rows InstallExecuteSequence | awk -F '\t' '
    /^(TakeBackSetup|BeginSetup|EndSetup)\t/ && $2 != "NOT UPGRADINGPRODUCTCODE" { print "conditions: " $1 " runs if " $2 }
    $1 == "RefuseWhileInUse" && $2 !~ /^REMOVE = "ALL" AND NOT UPGRADINGPRODUCTCODE/ { print "conditions: " $1 " runs if " $2 }
    $1 == "PrepareSetup" && $2 != "" { print "conditions: " $1 " runs if " $2 }'
  rows ServiceControl | awk -F '\t' "$has"'has($3, 1) || has($3, 16) { print "services: the installer would start " $2 " before all is done" }'
  rows Component | awk -F '\t' "$has"'
    BEGIN { split("Monitor A7E0C5B2-3D46-4C19-9F6B-08D1E5274C63 Setup 6F3B90D4-1C8E-4D72-A5E9-3804B7F6C1D2 " \
                  "Tool C1F8D3A9-6E72-4B85-A04D-95B3C7E21F48 LogLevel E49A6B07-52CD-4E31-B8F7-2A0D6C91E573 " \
                  "LogLifeDays 0B7D21F6-84E3-4A5C-93D8-F6A1B24C7E90", list, " ")
            for (n = 1; n in list; n += 2) code[list[n]] = "{" list[n + 1] "}" }
    $2 != code[$1] { print "components: the code of " $1 " has become " $2 }
    $6 == "" || seen[$6]++ { print "components: " $1 " has no key path of its own" }
    !has($4, 256) { print "components: " $1 " is not 64 bit" }
    /^Log/ && !(has($4, 64) && has($4, 16) && has($4, 4) && $5 != "") { print "components: " $1 " does not hold on a repair, or goes with the package" }'
  rows Upgrade | sort | awk -F '\t' "$has"'
    $1 != "{5D2C8E14-9B57-4F0A-8C3E-61F2A7D94B05}" { print "upgrade: another code, " $1 }
    $7 == "OLDERVERSION" && !(has($5, 256) && has($5, 512) && !has($5, 2)) { print "upgrade: another build of this version stays" }
    $7 == "NEWERVERSION" && !(has($5, 2) && !has($5, 256)) { print "upgrade: a newer version would be removed" }
    { n++ } END { if (n != 2) print "upgrade: " n " rows" }'
  secure=";$(rows Property | awk -F '\t' '$1 == "SecureCustomProperties" { print $2 }');"
  for property in $(rows Upgrade | cut -f 7) MONITORNAME LOGLEVEL LOGLIFEDAYS FORCE; do
    case $secure in *";$property;"*) ;; *) echo "properties: $property does not reach the part with the system's rights" ;; esac
  done
  local table column components
  components=$(rows Component | cut -f 1)
  while read -r table column; do
    comm -23 <(rows "$table" | cut -f "$column" | sort -u) <(sort <<<"$components") | sed "s/^/keys: $table names no component: /"
  done <<<"File 2
Registry 6
ServiceControl 6
FeatureComponents 2
Environment 4
RemoveFile 2"
  rows File | awk -F '\t' '$5 == "" { print "files: " $1 " has no version" }'
  rows MsiFileHash | awk -F '\t' '{ print "files: " $1 " has a version and a hash" }'
  rows LaunchCondition | grep -q 'VersionNT64 >= 601' || echo "conditions: an older Windows is not refused"
}

"$package/make_package.sh" 1.2.3 "$files" good.msi
rules good.msi >good.txt
[ ! -s good.txt ] || fail "$(cat good.txt)"

broken() {  # rule statement ...
  local rule=$1 statement
  shift
  cp good.msi broken.msi
  for statement in "$@"; do msibuild broken.msi -q "$statement"; done
  rules broken.msi >broken.txt
  grep -q "^$rule" broken.txt || fail "nothing was found wrong by '$rule' with: $*"
}
broken order "UPDATE \`InstallExecuteSequence\` SET \`Sequence\` = 5901 WHERE \`Action\` = 'EndSetup'"
broken order "UPDATE \`InstallExecuteSequence\` SET \`Sequence\` = 1450 WHERE \`Action\` = 'BeginSetup'"
broken types "UPDATE \`CustomAction\` SET \`Type\` = 1 WHERE \`Action\` = 'BeginSetup'"
broken types "UPDATE \`CustomAction\` SET \`Type\` = 3585 WHERE \`Action\` = 'EndSetup'"
broken conditions "UPDATE \`InstallExecuteSequence\` SET \`Condition\` = 'SpoolerRuns' WHERE \`Action\` = 'BeginSetup'"
broken services "UPDATE \`ServiceControl\` SET \`Event\` = 35"
broken components "UPDATE \`Component\` SET \`Attributes\` = 276 WHERE \`Component\` = 'LogLevel'"
broken components "UPDATE \`Component\` SET \`KeyPath\` = 'MonitorDll' WHERE \`Component\` = 'Tool'"
broken upgrade "DELETE FROM \`Upgrade\` WHERE \`ActionProperty\` = 'OLDERVERSION'" \
  "INSERT INTO \`Upgrade\` (\`UpgradeCode\`, \`VersionMax\`, \`Attributes\`, \`ActionProperty\`) VALUES ('{5D2C8E14-9B57-4F0A-8C3E-61F2A7D94B05}', '1.2.3', 256, 'OLDERVERSION')"
broken properties "UPDATE \`Property\` SET \`Value\` = 'OLDERVERSION;NEWERVERSION' WHERE \`Property\` = 'SecureCustomProperties'"
broken keys "UPDATE \`Registry\` SET \`Component_\` = 'Nobody'"
broken files "UPDATE \`File\` SET \`Version\` = '' WHERE \`File\` = 'ToolExe'"

# Whatever shapes a package gives it codes of its own; the same gives the same bytes.
mkdir other
cp "$package"/{make_package.sh,kelvane_lm.wxs} other
other/make_package.sh 1.2.3 "$files" same.msi
cmp good.msi same.msi || fail "the same files gave another package"
echo '# other settings' >>other/make_package.sh
other/make_package.sh 1.2.3 "$files" other.msi
codes() { msiinfo suminfo "$1" | sed -n 's/^Revision number.*: //p'; msiinfo export "$1" Property | grep ^ProductCode; }
[ -z "$(comm -12 <(codes good.msi | sort) <(codes other.msi | sort))" ] || fail "another script gave a package with the same codes"

[ $failed -eq 0 ] && echo "the tables are well"
exit $failed
