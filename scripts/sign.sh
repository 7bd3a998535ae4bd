#!/usr/bin/env bash
# Authenticode signing of the release's Windows binaries with osslsigncode (SHA-256).
#
#   scripts/sign.sh --check      checks the signing settings below and says whether they sign
#   scripts/sign.sh FILE...      signs each FILE in place and verifies every signature; a FILE is
#                                replaced only once all of them are signed and verified
#
# Settings, from the environment:
#   ZEL_SIGN_PKCS12          the code-signing certificate and its key, a PKCS#12 file
#   ZEL_SIGN_PASSWORD_FILE   a file whose first line is that PKCS#12 file's password
#   ZEL_SIGN_TIMESTAMP_URL   optional: an RFC 3161 time-stamp server; the signatures then stay
#                            valid after the certificate expires
#   ZEL_SIGN_CAFILE          optional: trusted certificates (PEM) that verifying the signatures
#                            chains to; by default the system's certificate authorities and the
#                            PKCS#12 file's own certificates
# Without ZEL_SIGN_PKCS12 and ZEL_SIGN_PASSWORD_FILE nothing is signed (--check says so and
# succeeds; signing FILEs fails). One without the other, a missing or unreadable file or a wrong
# password is an error: the script names it and exits with 1 before touching any FILE.
set -euo pipefail

fail() {
    echo "sign.sh: $*" >&2
    exit 1
}

signing_configured() {
    [ -n "${ZEL_SIGN_PKCS12:-}" ] || [ -n "${ZEL_SIGN_PASSWORD_FILE:-}" ]
}

check_settings() {
    [ -n "${ZEL_SIGN_PKCS12:-}" ] ||
        fail "ZEL_SIGN_PASSWORD_FILE is set but ZEL_SIGN_PKCS12 is not: set both to sign, neither to build unsigned"
    [ -n "${ZEL_SIGN_PASSWORD_FILE:-}" ] ||
        fail "ZEL_SIGN_PKCS12 is set but ZEL_SIGN_PASSWORD_FILE is not: set both to sign, neither to build unsigned"
    [ -f "$ZEL_SIGN_PKCS12" ] && [ -r "$ZEL_SIGN_PKCS12" ] ||
        fail "the PKCS#12 file ZEL_SIGN_PKCS12=$ZEL_SIGN_PKCS12 does not exist or cannot be read"
    [ -f "$ZEL_SIGN_PASSWORD_FILE" ] && [ -r "$ZEL_SIGN_PASSWORD_FILE" ] ||
        fail "the password file ZEL_SIGN_PASSWORD_FILE=$ZEL_SIGN_PASSWORD_FILE does not exist or cannot be read"
    if [ -n "${ZEL_SIGN_CAFILE:-}" ] && ! [ -r "$ZEL_SIGN_CAFILE" ]; then
        fail "the certificate file ZEL_SIGN_CAFILE=$ZEL_SIGN_CAFILE does not exist or cannot be read"
    fi
    command -v osslsigncode >/dev/null || fail "osslsigncode is not installed (scripts/bootstrap.sh installs it)"
    command -v openssl >/dev/null || fail "openssl is not installed (scripts/bootstrap.sh installs it)"
    if ! openssl pkcs12 -in "$ZEL_SIGN_PKCS12" -passin "file:$ZEL_SIGN_PASSWORD_FILE" -noout \
        >/dev/null 2>&1 &&
        ! openssl pkcs12 -legacy -in "$ZEL_SIGN_PKCS12" -passin "file:$ZEL_SIGN_PASSWORD_FILE" \
            -noout >/dev/null 2>&1; then
        fail "cannot open $ZEL_SIGN_PKCS12 with the password in $ZEL_SIGN_PASSWORD_FILE: a wrong password, or not a PKCS#12 file"
    fi
}

# The certificates that verifying chains to, into the file $1.
trusted_certificates() {
    if [ -n "${ZEL_SIGN_CAFILE:-}" ]; then
        cat "$ZEL_SIGN_CAFILE" >"$1"
        return
    fi
    : >"$1"
    if [ -r /etc/ssl/certs/ca-certificates.crt ]; then
        cat /etc/ssl/certs/ca-certificates.crt >>"$1"
    fi
    openssl pkcs12 -in "$ZEL_SIGN_PKCS12" -passin "file:$ZEL_SIGN_PASSWORD_FILE" -nokeys \
        2>/dev/null >>"$1" ||
        openssl pkcs12 -legacy -in "$ZEL_SIGN_PKCS12" -passin "file:$ZEL_SIGN_PASSWORD_FILE" \
            -nokeys >>"$1"
}

if [ "${1:-}" = "--check" ]; then
    if signing_configured; then
        check_settings
        echo "sign.sh: signing with $ZEL_SIGN_PKCS12${ZEL_SIGN_TIMESTAMP_URL:+, time stamps from $ZEL_SIGN_TIMESTAMP_URL}"
    else
        echo "sign.sh: ZEL_SIGN_PKCS12 and ZEL_SIGN_PASSWORD_FILE are not set: the build stays unsigned"
    fi
    exit 0
fi

(($# > 0)) || fail "usage: sign.sh --check | sign.sh FILE..."
signing_configured || fail "set ZEL_SIGN_PKCS12 and ZEL_SIGN_PASSWORD_FILE to sign"
check_settings
for file in "$@"; do
    [ -f "$file" ] || fail "$file does not exist"
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trusted_certificates "$work/trusted.pem"
timestamp=()
if [ -n "${ZEL_SIGN_TIMESTAMP_URL:-}" ]; then
    timestamp=(-ts "$ZEL_SIGN_TIMESTAMP_URL")
fi

index=0
for file in "$@"; do
    signed="$work/$index.signed"
    if ! osslsigncode sign -pkcs12 "$ZEL_SIGN_PKCS12" -readpass "$ZEL_SIGN_PASSWORD_FILE" \
        -h sha256 -n "ZelPlatformMethods64" "${timestamp[@]}" -in "$file" -out "$signed" \
        >"$work/sign.log" 2>&1; then
        cat "$work/sign.log" >&2
        fail "signing $file failed"
    fi
    if ! osslsigncode verify -in "$signed" -CAfile "$work/trusted.pem" \
        -TSA-CAfile "$work/trusted.pem" >"$work/verify.log" 2>&1; then
        cat "$work/verify.log" >&2
        fail "the signature of $file does not verify"
    fi
    echo "sign.sh: signed and verified $(basename "$file")"
    index=$((index + 1))
done

index=0
for file in "$@"; do
    cat "$work/$index.signed" >"$file"
    index=$((index + 1))
done
