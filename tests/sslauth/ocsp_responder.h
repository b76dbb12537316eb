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
#include <vector>

namespace bmctest {

struct IndexEntry {
    char status;        // 'V' valid, 'R' revoked
    std::string serial; // upper-case hexadecimal, whole bytes
};

class OcspResponder {
  public:
    // Files under dir: index, responder certificate and key, the issuer.
    OcspResponder(const std::string &dir, const std::string &issuerPem,
                  const std::vector<IndexEntry> &entries);
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

} // namespace bmctest
