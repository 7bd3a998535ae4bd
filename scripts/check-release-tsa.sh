#!/usr/bin/env bash
# The throwaway RFC 3161 time-stamp server of scripts/check-release.sh, one request per run:
# socat hands it an HTTP request on standard input (the headers, then Content-Length bytes of
# time-stamp query); openssl ts answers with the reply that TSA/tsa.cnf configures.
set -euo pipefail
length=0
while IFS= read -r line; do
    line=${line%$'\r'}
    [ -z "$line" ] && break
    case "${line,,}" in
    content-length:*)
        length=${line#*:}
        length=${length// /}
        ;;
    esac
done
head -c "$length" >"$TSA/query.tsq"
openssl ts -reply -config "$TSA/tsa.cnf" -queryfile "$TSA/query.tsq" -out "$TSA/reply.tsr" \
    2>>"$TSA/tsa.log"
printf 'HTTP/1.1 200 OK\r\nContent-Type: application/timestamp-reply\r\nContent-Length: %d\r\nConnection: close\r\n\r\n' \
    "$(stat -c %s "$TSA/reply.tsr")"
cat "$TSA/reply.tsr"
