#!/usr/bin/env bash
# Makes the installation package of one version from the files of a Windows build.
# make_package.sh VERSION FILES MSI   FILES: the folder of kelvane_lm.dll, lmctl.exe and setup_actions.dll
#
# The same files give the same package, byte for byte: its times are SOURCE_DATE_EPOCH or that of the last commit, and the
# codes that tell it from others are made of everything that shapes it: version, times, files, this script and its tools.
set -eu
version=$1
files=$(realpath "$2")
msi=$(realpath "$3")
cd "$(dirname "$0")"
epoch=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cp "$files/kelvane_lm.dll" "$files/lmctl.exe" "$files/setup_actions.dll" kelvane_lm.wxs make_package.sh "$stage"
cd "$stage"
touch -d "@$epoch" ./*
content=$({ cat ./* && wixl --version && echo "$epoch"; } | sha256sum)
upgrade_code={$(sed -n 's/.*UpgradeCode="\(.*\)".*/\1/p' kelvane_lm.wxs)}
code() {
  sha256sum <<<"$1 $version $content" | tr a-f A-F | sed -E 's/^(.{8})(.{4}).(.{3}).(.{3})(.{12}).*/\1-\2-5\3-8\4-\5/'
}

TZ=UTC faketime -f "@$(date -u -d "@$epoch" '+%F %T')" \
  wixl -a x64 -D Version="$version" -D ProductCode="$(code product)" -o package.msi kelvane_lm.wxs
msibuild package.msi -s "Kelvane Language Monitor $version" Kelvane "x64;1033" "{$(code package)}"

# What wixl has no words for, or does not carry over.
query() { msibuild package.msi -q "$1"; }
for file in MonitorDll ToolExe; do  # a file without a version would never replace one that has one; a hash is for those without
  query "DELETE FROM \`MsiFileHash\` WHERE \`File_\` = '$file'"
  query "UPDATE \`File\` SET \`Version\` = '$version.0', \`Language\` = '1033' WHERE \`File\` = '$file'"
done
for setting in LogLevel LogLifeDays; do  # 64 bit, transitive (its condition is asked again), permanent, key path in the registry
  query "UPDATE \`Component\` SET \`Attributes\` = 340, \`Condition\` = '${setting}Data' WHERE \`Component\` = '$setting'"
done
query "DELETE FROM \`Upgrade\` WHERE \`ActionProperty\` = 'OLDERVERSION'"  # to include its maximum: another build of this version
query "INSERT INTO \`Upgrade\` (\`UpgradeCode\`, \`VersionMin\`, \`VersionMax\`, \`Attributes\`, \`ActionProperty\`) VALUES ('$upgrade_code', '0.0.0', '$version', 768, 'OLDERVERSION')"
query "UPDATE \`Property\` SET \`Value\` = 'OLDERVERSION;NEWERVERSION;MONITORNAME;LOGLEVEL;LOGLIFEDAYS;FORCE' WHERE \`Property\` = 'SecureCustomProperties'"
query "UPDATE \`CustomAction\` SET \`Type\` = 1 WHERE \`Action\` = 'PrepareSetup'"
query "UPDATE \`CustomAction\` SET \`Type\` = 1 WHERE \`Action\` = 'RefuseWhileInUse'"
query "UPDATE \`CustomAction\` SET \`Type\` = 3329 WHERE \`Action\` = 'TakeBackSetup'"  # library, rollback, the system's rights
# The maker's folder goes with the tool when nothing else is in it.
query "INSERT INTO \`RemoveFile\` (\`FileKey\`, \`Component_\`, \`DirProperty\`, \`InstallMode\`) VALUES ('MakerFolder', 'Tool', 'Maker', 2)"
# The tool's folder in the machine's PATH, taken out again with the tool.
query "CREATE TABLE \`Environment\` (\`Environment\` CHAR(72) NOT NULL, \`Name\` CHAR(255) NOT NULL LOCALIZABLE, \`Value\` CHAR(255) LOCALIZABLE, \`Component_\` CHAR(72) NOT NULL PRIMARY KEY \`Environment\`)"
query "INSERT INTO \`Environment\` (\`Environment\`, \`Name\`, \`Value\`, \`Component_\`) VALUES ('Path', '=-*PATH', '[~];[ToolFolder]', 'Tool')"
query "INSERT INTO \`InstallExecuteSequence\` (\`Action\`, \`Sequence\`) VALUES ('RemoveEnvironmentStrings', 3300)"
query "INSERT INTO \`InstallExecuteSequence\` (\`Action\`, \`Sequence\`) VALUES ('WriteEnvironmentStrings', 5200)"
mv package.msi "$msi"
