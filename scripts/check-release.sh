#!/usr/bin/env bash
# Checks the release that scripts/package.sh made in build/package, as a Windows shop would:
#
# 1. Reproducible: the same sources, copied to a folder of another name and packaged there
#    afresh, give byte-identical binaries, import libraries, ZIPs and SHA256SUMS.
# 2. Symbols: each binary in the ZIP names a PDB that the debug ZIP holds under that PDB's own
#    GUID and age (read from the binary by llvm-readobj, from the PDB by llvm-pdbutil).
# 3. Signed: with a throwaway self-signed code-signing certificate and a throwaway RFC 3161
#    time-stamp server on loopback, package.sh signs both binaries; `osslsigncode verify -CAfile`
#    accepts them and their time stamps, the signed zelplat.exe and DLL still load and answer
#    under Wine, and removing the signatures gives back the unsigned bytes.
# 4. Signing settings that cannot sign (a wrong password, a missing file) stop package.sh with
#    its message, and no package is made.
#
# Run after scripts/package.sh (scripts/test.sh does). Any difference ends the script with 1.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
root=$(pwd)
build="$root/build/windows-x64"
package="$root/build/package"

fail() {
    echo "check-release.sh: $*" >&2
    exit 1
}

[ -f "$package/SHA256SUMS" ] || fail "no package in $package: run scripts/package.sh first"
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct)
export SOURCE_DATE_EPOCH
work=$(mktemp -d)
cleanup() {
    if [ -n "${tsaServer:-}" ]; then
        kill "$tsaServer" 2>/dev/null || true
    fi
    WINEPREFIX="$work/wineprefix" /usr/lib/wine/wineserver -k >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap cleanup EXIT

# 1. The checkout's files (tracked, and new ones not ignored) in another folder, packaged there.
again="$work/ZelPlatformMethods64-built-again"
mkdir "$again"
git -C "$root" ls-files -z --cached --others --exclude-standard |
    (cd "$root" && xargs -0 cp --parents -t "$again")
echo "check-release.sh: packaging a copy in $again"
(cd "$again" && ZEL_PACKAGE_DIR="$work/package-again" bash scripts/package.sh >"$work/again.log" 2>&1) ||
    {
        tail -40 "$work/again.log" >&2
        fail "packaging the copy failed"
    }
different=0
for file in bin/ZelPlatformMethods64.dll bin/zelplat.exe bin/ZelPlatformMethods64.pdb \
    bin/zelplat.pdb lib/libZelPlatformMethods64.dll.a lib/ZelPlatformMethods64.lib; do
    if ! cmp -s "$build/$file" "$again/build/windows-x64/$file"; then
        echo "check-release.sh: $file differs between the two builds" >&2
        different=1
    fi
done
for file in "$package"/*; do
    if ! cmp -s "$file" "$work/package-again/$(basename "$file")"; then
        echo "check-release.sh: $(basename "$file") differs between the two packages" >&2
        different=1
    fi
done
((different == 0)) || fail "the build is not reproducible"
echo "check-release.sh: reproducible: the copy's binaries, import libraries and package are byte-identical"
rm -rf "$again"

# 2. Each binary's PDB in the debug ZIP, under the GUID and age the binary names.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
name="ZelPlatformMethods64-$version-win64"
mkdir -p "$work/unsigned"
for zip in "$name" "$name-debug"; do
    unzip -q "$package/$zip.zip" -d "$work/unsigned/$zip"
done
for binary in ZelPlatformMethods64.dll zelplat.exe; do
    debug=$(llvm-readobj-16 --coff-debug-directory "$work/unsigned/$name/bin/$binary")
    guid=$(sed -n 's/.*PDBGUID: (\(.*\)).*/\1/p' <<<"$debug" | tr -d ' ')
    age=$(sed -n 's/.*PDBAge: \([0-9]*\).*/\1/p' <<<"$debug")
    pdb=$(sed -n 's/.*PDBFileName: \(.*\)/\1/p' <<<"$debug")
    [ "$pdb" = "${binary%.*}.pdb" ] || fail "$binary names the PDB '$pdb'"
    # The GUID's text form reads its first three fields little-endian.
    key="${guid:6:2}${guid:4:2}${guid:2:2}${guid:0:2}${guid:10:2}${guid:8:2}${guid:14:2}${guid:12:2}${guid:16:16}$(printf '%X' "$age")"
    stored="$work/unsigned/$name-debug/$pdb/$key/$pdb"
    [ -f "$stored" ] || fail "the debug ZIP has no $pdb/$key/$pdb"
    summary=$(llvm-pdbutil-16 dump --summary "$stored")
    pdbGuid=$(sed -n 's/^ *GUID: {\(.*\)}/\1/p' <<<"$summary" | tr -d '-')
    pdbAge=$(sed -n 's/^ *Age: \([0-9]*\)/\1/p' <<<"$summary")
    [ "$pdbGuid$(printf '%X' "$pdbAge")" = "$key" ] ||
        fail "$pdb/$key/$pdb calls itself $pdbGuid age $pdbAge"
    echo "check-release.sh: $binary -> $pdb/$key/$pdb"
done

# 3. A signed package, with a throwaway certificate and time-stamp server.
keys="$work/keys"
mkdir "$keys"
echo "throwaway-$RANDOM-$RANDOM" >"$keys/password"
openssl req -x509 -newkey rsa:3072 -nodes -days 2 -keyout "$keys/key.pem" -out "$keys/cert.pem" \
    -subj "/CN=ZelPlatformMethods64 throwaway code signing" \
    -addext "keyUsage=critical,digitalSignature" -addext "extendedKeyUsage=codeSigning" \
    2>/dev/null
openssl pkcs12 -export -inkey "$keys/key.pem" -in "$keys/cert.pem" -out "$keys/signing.p12" \
    -passout "file:$keys/password"

# The time-stamp server: socat hands each request on loopback to answer.sh, which has openssl ts
# answer the query.
tsa="$work/tsa"
mkdir "$tsa"
openssl req -x509 -newkey rsa:3072 -nodes -days 2 -keyout "$tsa/key.pem" -out "$tsa/cert.pem" \
    -subj "/CN=ZelPlatformMethods64 throwaway time stamps" \
    -addext "keyUsage=critical,digitalSignature" -addext "extendedKeyUsage=critical,timeStamping" \
    2>/dev/null
echo 01 >"$tsa/serial"
printf '%s\n' "[ tsa ]" "default_tsa = throwaway" "[ throwaway ]" "serial = $tsa/serial" \
    "crypto_device = builtin" "signer_cert = $tsa/cert.pem" "signer_key = $tsa/key.pem" \
    "signer_digest = sha256" "default_policy = 1.3.6.1.4.1.4146.2.3" \
    "certs = $tsa/cert.pem" "digests = sha256, sha384, sha512" "accuracy = secs:1" \
    "ordering = yes" "tsa_name = yes" "ess_cert_id_chain = no" "ess_cert_id_alg = sha256" \
    >"$tsa/tsa.cnf"
cp scripts/check-release-tsa.sh "$tsa/answer.sh"
chmod +x "$tsa/answer.sh"
for attempt in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 20000))
    TSA="$tsa" socat "TCP-LISTEN:$port,bind=127.0.0.1,reuseaddr,fork" "EXEC:$tsa/answer.sh" \
        2>>"$tsa/socat.log" &
    tsaServer=$!
    sleep 0.5
    if kill -0 "$tsaServer" 2>/dev/null; then
        break
    fi
    ((attempt < 5)) || fail "no loopback port for the time-stamp server: $(cat "$tsa/socat.log")"
done
cat "$keys/cert.pem" "$tsa/cert.pem" >"$keys/trusted.pem"

ZEL_SIGN_PKCS12="$keys/signing.p12" ZEL_SIGN_PASSWORD_FILE="$keys/password" \
    ZEL_SIGN_TIMESTAMP_URL="http://127.0.0.1:$port/" ZEL_SIGN_CAFILE="$keys/trusted.pem" \
    ZEL_PACKAGE_DIR="$work/package-signed" bash scripts/package.sh >"$work/signed.log" 2>&1 ||
    {
        cat "$work/signed.log" "$tsa/tsa.log" >&2
        fail "packaging with a signing certificate and time stamps failed"
    }
kill "$tsaServer"
mkdir "$work/signed"
unzip -q "$work/package-signed/$name.zip" -d "$work/signed/$name"
cmp -s "$package/$name-debug.zip" "$work/package-signed/$name-debug.zip" ||
    fail "signing changed the debug ZIP"
(cd "$work/package-signed" && sha256sum -c --quiet SHA256SUMS) || fail "the signed package's SHA256SUMS do not match"
for binary in ZelPlatformMethods64.dll zelplat.exe; do
    osslsigncode verify -in "$work/signed/$name/bin/$binary" -CAfile "$keys/cert.pem" \
        >"$work/verify.log" 2>&1 || {
        cat "$work/verify.log" >&2
        fail "osslsigncode verify rejects the signed $binary"
    }
    grep -q "^Signature verification: ok" "$work/verify.log" ||
        fail "osslsigncode verify did not say 'Signature verification: ok' for $binary"
    osslsigncode verify -in "$work/signed/$name/bin/$binary" -CAfile "$keys/cert.pem" \
        -TSA-CAfile "$tsa/cert.pem" >"$work/verify.log" 2>&1 &&
        grep -q "^Timestamp Server Signature verification: ok" "$work/verify.log" || {
        cat "$work/verify.log" >&2
        fail "the signature of $binary carries no time stamp that verifies"
    }
    # What the README tells a user to do with a published ZIP: remove the signature, compare.
    osslsigncode remove-signature -in "$work/signed/$name/bin/$binary" -out "$work/$binary" >/dev/null
    cmp -s "$work/$binary" "$work/unsigned/$name/bin/$binary" ||
        fail "$binary without its signature differs from the unsigned build"
    echo "check-release.sh: signed and time-stamped $binary verifies, and without its signature is the unsigned file"
done
# The signed binaries load and answer under Wine: zelplat loads the DLL beside it.
export WINEPREFIX="$work/wineprefix" WINEDEBUG=-all
/usr/lib/wine/wine64 wineboot -i </dev/null >/dev/null 2>&1
answer=$(/usr/lib/wine/wine64 "$work/signed/$name/bin/zelplat.exe" file-version \
    'C:\windows\system32\kernel32.dll' </dev/null 2>"$work/wine.err" | tr -d '\r') || true
version_line=$(/usr/lib/wine/wine64 "$work/signed/$name/bin/zelplat.exe" --version </dev/null \
    2>>"$work/wine.err" | tr -d '\r') || true
[ "$answer" = "10" ] && [ "$version_line" = "zelplat $version" ] || {
    cat "$work/wine.err" >&2
    fail "the signed zelplat.exe and DLL answered '$answer' and '$version_line' under Wine, not '10' and 'zelplat $version'"
}
echo "check-release.sh: the signed zelplat.exe and DLL load and answer under Wine"

# 4. Settings that cannot sign: a message, and no package.
expect_refusal() {
    local what=$1 message=$2
    shift 2
    if env "$@" ZEL_PACKAGE_DIR="$work/package-refused" bash scripts/package.sh \
        >"$work/refused.log" 2>&1; then
        fail "package.sh packaged with $what"
    fi
    grep -qF "$message" "$work/refused.log" || {
        cat "$work/refused.log" >&2
        fail "package.sh with $what did not say: $message"
    }
    [ ! -e "$work/package-refused" ] || fail "package.sh with $what left a package"
    echo "check-release.sh: $what: refused with \"$message\", no package"
}
echo "not the password" >"$keys/wrong"
expect_refusal "a wrong password" \
    "sign.sh: cannot open $keys/signing.p12 with the password in $keys/wrong: a wrong password, or not a PKCS#12 file" \
    ZEL_SIGN_PKCS12="$keys/signing.p12" ZEL_SIGN_PASSWORD_FILE="$keys/wrong"
expect_refusal "a missing PKCS#12 file" \
    "sign.sh: the PKCS#12 file ZEL_SIGN_PKCS12=$keys/missing.p12 does not exist or cannot be read" \
    ZEL_SIGN_PKCS12="$keys/missing.p12" ZEL_SIGN_PASSWORD_FILE="$keys/password"
expect_refusal "a missing password file" \
    "sign.sh: the password file ZEL_SIGN_PASSWORD_FILE=$keys/missing does not exist or cannot be read" \
    ZEL_SIGN_PKCS12="$keys/signing.p12" ZEL_SIGN_PASSWORD_FILE="$keys/missing"
echo "check-release.sh: the release checks passed"
