#!/usr/bin/env bash
# Writes the committed seed corpus of every fuzz target under fuzz/seeds/.
# Run it again only to change the seeds; the fuzzers grow their own corpus
# from these under the build directory.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
seeds=$here/seeds
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$seeds"
mkdir -p "$seeds"/{dump_line_fuzz,x509_extract_fuzz,stunnel_rewrite_fuzz,upload_chain_fuzz,time_text_fuzz,web_config_fuzz,file_name_fuzz}

# A server certificate and its key, and one signed with MD5.
openssl req -x509 -newkey rsa:1024 -nodes -keyout "$work/key.pem" -out "$work/cert.pem" \
    -days 3650 -subj '/C=DE/O=Seed Works/OU=Lab/CN=seed.example' \
    -addext extendedKeyUsage=serverAuth -addext keyUsage=digitalSignature,keyEncipherment 2>/dev/null
openssl req -x509 -md5 -new -key "$work/key.pem" -out "$work/md5.pem" -days 3650 \
    -subj '/CN=md5.example' 2>/dev/null

# dump_line_fuzz: skip byte, delimiter byte, slot size byte, keyword NUL line.
printf '\001=\100serial=\000serial=0A1B\n' >"$seeds/dump_line_fuzz/serial"
printf '\002:\100Signature Algorithm:\000    Signature Algorithm: sha256WithRSAEncryption\n' \
    >"$seeds/dump_line_fuzz/signature"
printf '\002:\003SSL server :\000SSL server : Yes\n' >"$seeds/dump_line_fuzz/short-slot"

# x509_extract_fuzz: the same certificate as PEM and as DER.
cp "$work/cert.pem" "$seeds/x509_extract_fuzz/cert.pem"
openssl x509 -in "$work/cert.pem" -outform DER -out "$seeds/x509_extract_fuzz/cert.der"

# stunnel_rewrite_fuzz: a configuration with the lines the rewrite looks for.
cat >"$seeds/stunnel_rewrite_fuzz/config" <<'CONF'
; global options
cert = /conf/certs/server/default/server.pem
key = /conf/certs/server/default/privkey.pem
;cert = /old.pem
[remote-console]
accept = :::7582
connect = 127.0.0.1:7578
cert=/not/replaced
CONF
printf 'client_cert = a key = b\n[svc]\nkey = /last' >"$seeds/stunnel_rewrite_fuzz/odd"

# upload_chain_fuzz: two bytes of certificate length, the certificate, the key.
pair() {
    local size
    size=$(wc -c <"$1")
    printf "\\$(printf '%03o' $((size >> 8)))\\$(printf '%03o' $((size & 255)))"
    cat "$1" "$2"
}
pair "$work/cert.pem" "$work/key.pem" >"$seeds/upload_chain_fuzz/valid"
pair "$work/md5.pem" "$work/key.pem" >"$seeds/upload_chain_fuzz/md5"

# time_text_fuzz: both text forms the stand-in reads.
printf '2026-11-23T09:00:00Z' >"$seeds/time_text_fuzz/iso"
printf 'Nov 22 19:58:47 2026 GMT\n' >"$seeds/time_text_fuzz/openssl"
printf 'Feb 29 00:00:00 2100 GMT' >"$seeds/time_text_fuzz/not-a-leap-year"

# web_config_fuzz: a buffer size byte, then web server configuration text.
printf '\100$SERVER["socket"] == ":443" {\n    ssl.ca-file = "/conf/certs/client/ca.pem"\n}\n' \
    >"$seeds/web_config_fuzz/ca-file"
printf '\005    ssl.ca-file = "/a/path/longer/than/the/buffer.pem"\n' >"$seeds/web_config_fuzz/short"

# file_name_fuzz: upload paths, accepted and refused.
printf '/tmp/upload/root-ca.pem' >"$seeds/file_name_fuzz/accepted"
printf '/tmp/upload/a;touch x.crt' >"$seeds/file_name_fuzz/semicolon"
printf '/tmp/upload/%s.cer' "$(printf 'n%.0s' $(seq 40))" >"$seeds/file_name_fuzz/long"
