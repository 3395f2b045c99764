#!/usr/bin/env bash
# Makes what goes to customers: the installation package, a zip for those who deploy by hand, the field test for a test machine,
# and their check sums.
# make_release.sh VERSION FILES OUTPUT [--sign FILE.p12]   FILES: the folder with the programs of a Windows build
#
# --sign signs DLL, tool and package with the certificate, and verifies them. SIGN_PASSWORD is its password; with
# SIGN_TIMESTAMP_URL the signatures are counter-signed there, so that they hold when the certificate has expired.
set -eu
version=$1
files=$(realpath "$2")
output=$(realpath -m "$3")
certificate=
[ "${4:-}" = --sign ] && certificate=$(realpath "$5")
package=$(cd "$(dirname "$0")" && pwd)
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$package" log -1 --format=%ct)}
name=kelvane_lm-$version-x64

rm -rf "$output"
mkdir -p "$output"
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir "$stage/$name"

sign() {  # file
  [ -n "$certificate" ] || return 0
  printf '%s' "${SIGN_PASSWORD:-}" >"$stage/password"
  osslsigncode sign -pkcs12 "$certificate" -readpass "$stage/password" -h sha256 -n "Kelvane Language Monitor" \
    ${SIGN_TIMESTAMP_URL:+-ts "$SIGN_TIMESTAMP_URL"} -in "$1" -out "$1.signed" >"$stage/sign.log" 2>&1 &&
    mv "$1.signed" "$1" &&
    openssl pkcs12 -in "$certificate" -nokeys -passin "file:$stage/password" -out "$stage/certificates" &&
    osslsigncode verify -CAfile "$stage/certificates" -in "$1" >"$stage/sign.log" 2>&1 || {
    cat "$stage/sign.log"
    echo "$(basename "$1") could not be signed." >&2
    exit 1
  }
}

cp "$files"/{kelvane_lm,setup_actions}.dll "$files/lmctl.exe" "$stage"
for file in kelvane_lm.dll setup_actions.dll lmctl.exe; do sign "$stage/$file"; done
"$package/make_package.sh" "$version" "$stage" "$output/$name.msi"
sign "$output/$name.msi"

cp "$stage/kelvane_lm.dll" "$stage/lmctl.exe" "$files"/{kelvane_lm,lmctl}.pdb "$package"/../docs/{administration,lmctl}.md \
  "$stage/$name"

field_test=kelvane_lm-$version-fieldtest
mkdir -p "$stage/$field_test/cases"  # with the libraries that stand in for the spooler's; the test itself talks to the real one
cp "$files/fieldtest.exe" "$package/../tools/fieldtest/fieldtest.cmd" "$stage/$field_test"
cp "$files"/{run_cases,unit_tests,scenario_tests,windows_tests,setup_rights_tests,log_many_lines,norvex_srv,lmhost}.exe \
  "$files"/{winspool.drv,spoolss.dll,Norvex_SDK.dll} "$stage"/{kelvane_lm,setup_actions}.dll "$stage/$field_test/cases"

for folder in "$name" "$field_test"; do
  chmod -R u=rwX,go=rX "$stage/$folder"
  find "$stage/$folder" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
  (cd "$stage" && find "$folder" | LC_ALL=C sort | TZ=UTC zip -q -X -9 "$output/$folder.zip" -@)
done
(cd "$output" && sha256sum ./*.msi ./*.zip | sed 's| \./| |' >SHA256SUMS)
