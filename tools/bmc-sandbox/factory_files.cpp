#include "factory_files.h"

#include "layout.h"

namespace sandbox {

namespace {

const std::string kHost{kControllerHostName};

} // namespace

std::string server_cert_extensions() {
    // Browsers reject a server certificate without a subjectAltName, and
    // clients that check key usage reject one without serverAuth.
    return "# X.509 v3 extensions of the controller's server certificate.\n"
           "basicConstraints = critical, CA:FALSE\n"
           "keyUsage = critical, digitalSignature, keyEncipherment\n"
           "extendedKeyUsage = serverAuth\n"
           "subjectKeyIdentifier = hash\n"
           "subjectAltName = DNS:" +
           kHost + "\n";
}

std::string factory_request_config() {
    return "[ req ]\n"
           "prompt = no\n"
           "distinguished_name = factory_dn\n"
           "x509_extensions = server_cert\n"
           "\n"
           "[ factory_dn ]\n"
           "C = US\n"
           "O = Baseboard Management Controller\n"
           "OU = Factory Default Certificate\n"
           "CN = " +
           kHost +
           "\n"
           "\n"
           "[ server_cert ]\n" +
           server_cert_extensions();
}

std::string tunnel_config() {
    return R"(; TLS tunnel of the controller. The remote console and virtual media
; services speak plain TCP on the loopback interface; this is their only
; face to the network. Installing a server certificate rewrites the pair
; named below and restarts the tunnel.

; Global options
foreground = no
pid = /var/run/stunnel.pid
output = /var/log/stunnel.log
debug = 4
;debug = 7
;syslog = yes
socket = l:TCP_NODELAY=1
socket = r:TCP_NODELAY=1

; Defaults of every service below
sslVersionMin = TLSv1.2
ciphers = ECDHE-ECDSA-AES256-GCM-SHA384:ECDHE-RSA-AES256-GCM-SHA384:ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-AES128-GCM-SHA256
ciphersuites = TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256:TLS_AES_128_GCM_SHA256
options = NO_RENEGOTIATION
options = CIPHER_SERVER_PREFERENCE
cert = /conf/certs/server/default/server.pem
key = /conf/certs/server/default/privkey.pem
;compression = zlib

[remote-console]
accept = :::7582
connect = 127.0.0.1:7578
TIMEOUTclose = 0

[virtual-media]
accept = :::5124
connect = 127.0.0.1:5120
TIMEOUTidle = 600
)";
}

std::string web_server_config() {
    return R"(# Web server of the controller: the management pages and their REST
# services, over HTTPS only.
server.modules = (
    "mod_access",
    "mod_openssl",
    "mod_redirect",
    "mod_rewrite",
    "mod_alias",
    "mod_setenv",
    "mod_fastcgi",
)
server.document-root = "/usr/share/www"
server.port = 80
server.pid-file = "/var/run/lighttpd.pid"
server.errorlog = "/var/log/lighttpd/error.log"
server.tag = ""
server.max-request-size = 65536
index-file.names = ( "index.html" )
mimetype.assign = (
    ".html" => "text/html",
    ".js" => "application/javascript",
    ".css" => "text/css",
    ".json" => "application/json",
    ".png" => "image/png",
    ".svg" => "image/svg+xml",
)
#server.bind = "127.0.0.1"
#debug.log-request-handling = "enable"

# Plain HTTP serves only the certificate authority's http-01 challenges:
# the files the enrolment writes to /conf/acme/challenge, as they are.
# Any other path is rewritten to a name no token can take (tokens have no
# dot), so it is not found; the pages are served over HTTPS only. A link
# in the directory is refused, so that it cannot publish another file.
$HTTP["scheme"] == "http" {
    server.follow-symlink = "disable"
    url.rewrite-once = (
        "^(/\.well-known/acme-challenge/[A-Za-z0-9_-]+)(\?.*)?$" => "$1",
        "" => "/.well-known/acme-challenge/.none",
    )
    alias.url = ( "/.well-known/acme-challenge/" => "/conf/acme/challenge/" )
}

$SERVER["socket"] == ":443" {
    ssl.engine = "enable"
    ssl.pemfile = "/conf/certs/server/server.pem"
    # Authority whose certificates clients present when client
    # authentication is turned on (the authentication switch sets
    # activate). A client without a verified certificate still completes
    # the handshake, so that the login pages can tell it why it is refused;
    # the presented certificate reaches them as SSL_CLIENT_CERT.
    ssl.ca-file = "/conf/certs/client/ca.pem"
    # The active root's revocation list, given (and verification enforced)
    # while that root has one.
    #ssl.verifyclient.ca-crl-file = "/conf/certs/client/ca.crl"
    ssl.verifyclient.activate = "disable"
    ssl.verifyclient.enforce = "disable"
    ssl.verifyclient.depth = 3
    ssl.verifyclient.exportcert = "enable"
    ssl.openssl.ssl-conf-cmd = ( "MinProtocol" => "TLSv1.2", "Options" => "-SessionTicket" )
}
)";
}

std::string service_manager_script() {
    return R"(#!/bin/sh
# Service manager of the sandboxed controller. Each request is recorded,
# one line per call, so that tests can tell which services the software
# asked to restart. Under `bmc-sandbox --services` (its control socket
# exists) a restart also really restarts the services named, and fails
# when one of them does not come back; otherwise nothing is started or
# stopped. Under --acme, stop and start of the test certificate
# authority's units really stop and start them.
[ "$#" -gt 0 ] || exit 0
printf '%s\n' "$*" >> /var/lib/bmc-sim/services.log || exit 1
run=/var/lib/bmc-sim/run
[ -S "$run/control.sock" ] || exit 0
case "$1 $2 $#" in
"restart "*) shift; exec "$run/bmc-sandbox" --service-restart "$@" ;;
"stop pebble.service 2"|"start pebble.service 2"|\
"stop pebble-challtestsrv.service 2"|"start pebble-challtestsrv.service 2")
    exec "$run/bmc-sandbox" --service-"$1" "$2" ;;
esac
exit 0
)";
}

} // namespace sandbox
