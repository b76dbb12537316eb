#!/usr/bin/env bash
# Makes the private keys that the tests sign their certificates with. The
# keys are committed, so the test certificates built from them (with fixed
# dates and serial numbers) come out the same on every run; run this only
# to replace them.
set -euo pipefail
cd "$(dirname "$0")"
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa2048.key 2>/dev/null
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out rsa1024.key 2>/dev/null
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec256.key 2>/dev/null
# The 2048-bit key under a fixed pass phrase: PKCS #8, and the older form.
openssl pkcs8 -topk8 -v2 aes-128-cbc -passout 'pass:test pass phrase' -in rsa2048.key -out rsa2048-pkcs8.key
openssl pkey -aes128 -traditional -passout 'pass:test pass phrase' -in rsa2048.key -out rsa2048-legacy.key
