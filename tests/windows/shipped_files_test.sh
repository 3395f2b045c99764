#!/usr/bin/env bash
# What the files that go to customers are like: their size, flags and sections, the PDB that belongs to each, and signatures
# with a throw-away certificate.
# shipped_files_test.sh FILES WORK   FILES: the folder with the programs of the Windows build
set -eu
export LC_ALL=C
files=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
make_release=$(realpath "$(dirname "$0")/../../package/make_release.sh")
rm -rf "$2"
mkdir -p "$2"
cd "$2"
failed=0
fail() { echo "FAILED: $1"; failed=1; }

size=$(stat -c %s "$files/kelvane_lm.dll")
echo "kelvane_lm.dll has $size bytes"
[ "$size" -le 160000 ] || fail "the DLL has more than 160,000 bytes"
for file in kelvane_lm.dll lmctl.exe setup_actions.dll; do
  llvm-readobj --file-headers --sections "$files/$file" >headers.txt
  for flag in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT GUARD_CF; do
    grep -q "IMAGE_DLL_CHARACTERISTICS_$flag" headers.txt || fail "$file lacks $flag"
  done
  awk '/Characteristics/ { write = run = 0 } /IMAGE_SCN_MEM_WRITE/ { write = 1 } /IMAGE_SCN_MEM_EXECUTE/ { run = 1 }
       write && run { bad = 1 } END { exit bad }' headers.txt || fail "$file has a section that is written and run"
  ! grep -q 'Name: .debug_' headers.txt || fail "$file holds debug information"
done

# A file that names a routine that Windows 7 lacks is not loaded there at all.
for file in kelvane_lm.dll lmctl.exe setup_actions.dll; do
  llvm-readobj --coff-imports "$files/$file" | sed 's/ (.*//' |
    awk '/Name:/ { library = tolower($2) } /Symbol:/ { print library " " $2 }' | sort -u >imports.txt
  unknown=$(comm -23 imports.txt <(awk '/^[^#]/ { for (n = 2; n <= NF; ++n) print substr($1, 1, length($1) - 1) " " $n }' \
    "$here/imports_of_6_1.txt" | sort -u))
  [ -z "$unknown" ] || fail "$file imports what Windows 7 is not known to have: $unknown"
done
for word in asInvoker '>true</longPathAware>'; do
  grep -aq "$word" "$files/lmctl.exe" || fail "the manifest of lmctl.exe lacks $word"
done

# What a crash dump tells are addresses.
base=$((0x$(llvm-readobj --file-headers "$files/kelvane_lm.dll" | sed -n 's/.*ImageBase: 0x//p')))
llvm-pdbutil dump --publics "$files/kelvane_lm.pdb" | tr '\n' ' ' | tr -s ' ' | sed 's/| S_PUB32/\n&/g' >publics.txt
llvm-readobj --sections "$files/kelvane_lm.dll" | sed -n 's/.*VirtualAddress: //p' >sections.txt
for routine in InitializePrintMonitor2 MonWritePort CheckRealCmd; do
  read -r section offset < <(sed -n "s/.*\`[_Z0-9]*$routine[^\`]*\` flags = function, addr = 0*\([0-9]*\):0*\([0-9]*\).*/\1 \2/p" publics.txt)
  address=$(printf '0x%x' $((base + $(sed -n "${section:-1}p" sections.txt) + ${offset:-0} + 4)))
  llvm-symbolizer --obj="$files/kelvane_lm.dll" "$address" >symbol.txt || true
  grep -q "$routine" symbol.txt && grep -q '^/src/.*\.cpp:' symbol.txt || fail "$address of $routine is $(xargs <symbol.txt)"
done

for name in kelvane_lm:dll:src/monitor/entry.cpp lmctl:exe:tools/lmctl/story/story_machine.cpp; do
  IFS=: read -r stem kind source <<<"$name"
  # The program has the identifier as bytes, of which the first three parts are numbers that begin with their low byte.
  read -r a b c d e f g h rest < <(llvm-readobj --coff-debug-directory "$files/$stem.$kind" | sed -n 's/.*PDBGUID: (\(.*\))/\1/p')
  of_program="$d$c$b$a-$f$e-$h$g-$(tr -d ' ' <<<"$rest")"
  of_pdb=$(llvm-pdbutil dump --summary "$files/$stem.pdb" | sed -n 's/.*GUID: {\(.*\)}/\1/p')
  [ "$of_program" = "$(sed 's/-\([^-]*\)$/\1/' <<<"$of_pdb")" ] || fail "$stem.pdb is of $of_pdb, $stem.$kind of $of_program"
  llvm-pdbutil dump -l "$files/$stem.pdb" >lines.txt
  grep -A1 "^/$source (MD5" lines.txt | grep -q 'line/addr entries' || fail "$stem.pdb has no lines of $source"
done

openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out certificate.pem -days 2 -subj "/CN=Nobody" \
  -addext extendedKeyUsage=codeSigning 2>/dev/null
openssl pkcs12 -export -inkey key.pem -in certificate.pem -out certificate.p12 -passout pass:secret
SIGN_PASSWORD=secret "$make_release" 9.8.7 "$files" release --sign certificate.p12
(cd release && sha256sum --quiet -c SHA256SUMS && unzip -q ./*-x64.zip) || fail "the check sums are not those of the files"
for file in release/*.msi release/*/kelvane_lm.dll release/*/lmctl.exe; do
  osslsigncode verify -CAfile certificate.pem -in "$file" 2>&1 | grep -q 'Signature verification: ok' || fail "$file is not signed"
done
! SIGN_PASSWORD=wrong "$make_release" 9.8.7 "$files" release --sign certificate.p12 >refused.txt 2>&1 ||
  fail "a wrong password went unnoticed"
[ $failed -eq 0 ] && echo "the files are well"
exit $failed
