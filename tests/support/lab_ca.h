// A lab CA answering the controller's pending signing request: its root
// (RSA 2048) and its intermediate (EC P-256, pathlen 0), a leaf for the
// pending key with the example request's names, and variants of each.
// Shared by the tests of the signed answer's checks and forms.
#pragma once

#include <openssl/pem.h>

#include <functional>
#include <string>

#include "frame/frame.h"
#include "tests/support/example_request.h"
#include "tests/support/test_certs.h"

namespace bmctest {

inline constexpr const char *kPendingRequest = "/conf/certs/server/pending/csr.pem";

// An OpenSSL object read from PEM text.
template <typename T>
bmccert::UniquePtr<T> ReadPem(const std::string &pem,
                              T *(*read)(BIO *, T **, pem_password_cb *, void *)) {
    const bmccert::UniquePtr<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    return bmccert::UniquePtr<T>(read(bio.get(), nullptr, nullptr, nullptr));
}

// The pending key's PEM: the first block of the pending file.
inline std::string PendingKeyPem() {
    const std::string file = ReadFile(kPendingRequest);
    const std::string end = "-----END PRIVATE KEY-----\n";
    return file.substr(0, file.find(end) + end.size());
}

inline std::string Changed(CertRecipe recipe, const std::function<void(CertRecipe &)> &change) {
    change(recipe);
    return MakeCertPem(recipe);
}

struct LabCa {
    static CertRecipe Root(const char *name, KeyKind key) {
        CertRecipe root;
        root.subject = {{"CN", name}};
        root.key = key;
        root.ca = true;
        return root;
    }
    static CertRecipe Intermediate() {
        CertRecipe ca = Root("Lab Intermediate", KeyKind::Ec256);
        ca.issuer = NameEntries{{"CN", "Lab Root"}};
        ca.signer = KeyKind::Rsa2048;
        ca.pathLength = 0;
        return ca;
    }
    static std::string IntermediateWith(const std::function<void(CertRecipe &)> &change) {
        return Changed(Intermediate(), change);
    }
    // Read when called: the pending key is the one of the latest request.
    static CertRecipe Leaf() {
        CertRecipe leaf;
        leaf.subject = {{"CN", kExampleHost}};
        leaf.issuer = NameEntries{{"CN", "Lab Intermediate"}};
        leaf.signer = KeyKind::Ec256;
        leaf.keyPem = PendingKeyPem();
        // The request's names, in another case and another IPv6 notation.
        leaf.subjectAltName = "DNS:BMC-07.Example.org,IP:192.0.2.7,IP:2001:db8:0:0:0:0:0:7";
        return leaf;
    }
    const std::string root = MakeCertPem(Root("Lab Root", KeyKind::Rsa2048));
    const std::string intermediate = MakeCertPem(Intermediate());
    const std::string plainIntermediate = IntermediateWith([](CertRecipe &r) { r.ca = false; });
};

} // namespace bmctest
