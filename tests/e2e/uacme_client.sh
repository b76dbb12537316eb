# Sourced: uacme, the reference ACME client, against the sandbox's pebble
# (bmc-sandbox --acme), with a work directory WORK for its account,
# certificates, hook and trust store. Defines `acme ARG...`.
#   usage: . uacme_client.sh WORK   (after sourcing services.env)
uacme_work=${1:?usage: . uacme_client.sh WORK}
# uacme (libcurl with GnuTLS) reads no CA option and no environment
# variable: in a mount namespace of its own it finds only pebble's
# authority where the system's trust store is.
mkdir -p "$uacme_work/trust" && cp "$BMC_SIM_ACME_TLS_CA" "$uacme_work/trust/ca-certificates.crt"
cat >"$uacme_work/hook" <<HOOK
#!/bin/sh
# uacme's challenge hook: METHOD TYPE IDENT TOKEN AUTH. Takes http-01 only;
# a token is [A-Za-z0-9_-]+ before it becomes a file name.
[ "\$2" = http-01 ] || exit 1
case "\$4" in ''|*[!A-Za-z0-9_-]*) exit 1 ;; esac
case "\$1" in
begin) printf '%s' "\$5" >"$BMC_SIM_ACME_CHALLENGE_DIR/\$4" ;;
*) rm -f "$BMC_SIM_ACME_CHALLENGE_DIR/\$4" ;;
esac
HOOK
chmod +x "$uacme_work/hook"
acme() {  # uacme ARG...
    unshare -m sh -c 'mount --bind "$1/trust" /etc/ssl/certs && shift && exec uacme "$@"' sh \
        "$uacme_work" -a "$BMC_SIM_ACME_DIRECTORY" -c "$uacme_work/uacme" -h "$uacme_work/hook" -y "$@"
}
