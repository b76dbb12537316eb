// The controller's fixed file layout: where the certificate pairs, the
// scratch files and the services' configurations lie. The library, the
// stand-ins, the tools and the tests all take the paths from here.
#pragma once

namespace controller_paths {

// The server certificate pairs, one per certificate type (1 to 6).
inline constexpr const char *kUserCertPath = "/conf/certs/server/user/actualcert.pem";
inline constexpr const char *kUserKeyPath = "/conf/certs/server/user/actualprivkey.pem";
inline constexpr const char *kOemCustomCertPath = "/conf/certs/server/oem/custom/server.pem";
inline constexpr const char *kOemCustomKeyPath = "/conf/certs/server/oem/custom/privkey.pem";
inline constexpr const char *kOemDefaultCertPath = "/conf/certs/server/oem/default/server.pem";
inline constexpr const char *kOemDefaultKeyPath = "/conf/certs/server/oem/default/privkey.pem";
inline constexpr const char *kDefaultCertPath = "/conf/certs/server/default/server.pem";
inline constexpr const char *kDefaultKeyPath = "/conf/certs/server/default/privkey.pem";
inline constexpr const char *kUploadCertPath = "/var/certs/actualcert.pem";
inline constexpr const char *kUploadKeyPath = "/var/certs/actualprivkey.pem";
inline constexpr const char *kGenCertPath = "/var/certs/TmpCertGen.pem";
inline constexpr const char *kGenKeyPath = "/var/certs/TmpPrivkeyGen.pem";
inline constexpr const char *kSignedUploadPath = "/var/certs/SignedUpload.pem";
inline constexpr const char *kSignedCertPath = "/var/certs/SignedCert.pem";
inline constexpr const char *kSignedKeyPath = "/var/certs/SignedPrivkey.pem";

// The directories of the installed user pair and of the combined file.
inline constexpr const char *kUserCertDir = "/conf/certs/server/user";
inline constexpr const char *kServerCertDir = "/conf/certs/server";
// The installation's journal, beside the combined file on the same file
// system as every file of the installed set, and the journal being written.
inline constexpr const char *kInstallJournalDir = "/conf/certs/server/.install";
inline constexpr const char *kInstallStagingDir = "/conf/certs/server/.install.new";
// The key of a pending signing request, stored with the request, and the
// file being written before it replaces that one.
inline constexpr const char *kPendingRequestDir = "/conf/certs/server/pending";
inline constexpr const char *kPendingRequestPath = "/conf/certs/server/pending/csr.pem";
inline constexpr const char *kPendingStagingPath = "/conf/certs/server/pending/csr.pem.new";
// The CA pinned for signed answers, and the file being written before it
// replaces that one.
inline constexpr const char *kPinnedCaPath = "/conf/certs/server/pinned_ca.pem";
inline constexpr const char *kPinnedCaStagingPath = "/conf/certs/server/pinned_ca.pem.new";
// The web server's certificate: the certificate in force followed by its key.
inline constexpr const char *kCombinedPath = "/conf/certs/server/server.pem";
// The extensions of a generated certificate.
inline constexpr const char *kExtensionFilePath = "/conf/certs/server/cert_v3_extfile.ext";

// Scratch files.
inline constexpr const char *kScratchDir = "/var/certs/";
inline constexpr const char *kDumpScratchPath = "/var/certs/certtmp";
inline constexpr const char *kRequestConfigPath = "/var/certs/sslconf";
inline constexpr const char *kSigningRequestPath = "/var/certs/cert_tmp.csr";
inline constexpr const char *kUploadCombinedPath = "/var/certs/TmpCombinedCert.pem";

// The services' configurations.
inline constexpr const char *kTunnelConfigDir = "/conf/adviserd";
inline constexpr const char *kTunnelConfigPath = "/conf/adviserd/stunnel.conf";
inline constexpr const char *kScratchConfigPath = "/conf/adviserd/tmp_stunnel.conf";
inline constexpr const char *kWebServerConfigPath = "/conf/lighttpd/lighttpd.conf";
// The revocation list of the active root, as the web server reads it
// (ssl.verifyclient.ca-crl-file), beside its copy of that root.
inline constexpr const char *kWebServerCrlPath = "/conf/certs/client/ca.crl";

// ACME enrolment: the account key (0600), the binding's MAC key until the
// account is registered (0600), the root the CA's HTTPS must chain to, the
// http-01 key authorisations the web server serves, and the lock of one
// enrolment or account change at a time.
inline constexpr const char *kAcmeDir = "/conf/acme";
inline constexpr const char *kAcmeAccountKeyPath = "/conf/acme/account.key";
inline constexpr const char *kAcmeMacKeyPath = "/conf/acme/eab.key";
inline constexpr const char *kAcmeServerCaPath = "/conf/acme/server-ca.pem";
inline constexpr const char *kAcmeChallengeDir = "/conf/acme/challenge";
inline constexpr const char *kAcmeLockPath = "/conf/acme/.lock";

// Client-certificate authentication: trusted roots and client certificates.
inline constexpr const char *kRootCertDir = "/conf/certs/root/";
inline constexpr const char *kClientCertDir = "/conf/certs/client/";

} // namespace controller_paths
