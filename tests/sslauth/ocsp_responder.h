// A real `openssl ocsp` responder for the revocation tests: it answers from
// an index the test writes and signs with a responder certificate the test
// makes. The port is the one it was given by the kernel (port 0), read
// from its "ACCEPT" line; the responder is stopped on every path by its
// owner's destructor. It listens on every address, so the tests run in a
// sandbox with a private network (loopback only).
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace bmctest {

struct IndexEntry {
    char status;        // 'V' valid, 'R' revoked
    std::string serial; // upper-case hexadecimal, whole bytes
};

// Who signs the answers: a responder the root certified for OCSP signing,
// one it certified without that purpose, or a rogue that certified itself.
enum class Signer { kDelegated, kWithoutOcspSigning, kRogue };

class OcspResponder {
  public:
    // Files under dir: index, responder certificate and key, the issuer.
    OcspResponder(const std::string &dir, const std::string &issuerPem,
                  const std::vector<IndexEntry> &entries, Signer signer = Signer::kDelegated);
    OcspResponder(const OcspResponder &) = delete;
    OcspResponder &operator=(const OcspResponder &) = delete;
    ~OcspResponder();

    [[nodiscard]] std::string Url() const;

  private:
    void Stop() noexcept;
    pid_t pid_ = -1;
    FILE *output_ = nullptr;
    int port_ = 0;
};

// A server that answers one connection with the bytes it was given,
// whatever was asked: a replayed, oversized, redirected or garbled answer.
class CannedServer {
  public:
    explicit CannedServer(std::string raw);
    CannedServer(const CannedServer &) = delete;
    CannedServer &operator=(const CannedServer &) = delete;
    ~CannedServer();
    [[nodiscard]] std::string Url() const;

  private:
    int listener_ = -1;
    int port_ = 0;
    std::thread server_;
};

// An answer of the real responder fetched with the openssl tool, for the
// certificate and issuer files given; with or without a nonce.
std::string FetchOcspAnswer(const std::string &issuerPath, const std::string &certPath,
                            const std::string &url, bool nonce);

} // namespace bmctest
