#!/usr/bin/env bash
# Makes what goes to customers: the installation package, a zip for those who deploy by hand, and their check sums.
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
chmod -R u=rwX,go=rX "$stage/$name"
find "$stage/$name" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
(cd "$stage" && find "$name" | LC_ALL=C sort | TZ=UTC zip -q -X -9 "$output/$name.zip" -@)
(cd "$output" && sha256sum "$name.msi" "$name.zip" >SHA256SUMS)
