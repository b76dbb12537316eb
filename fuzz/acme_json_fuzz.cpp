// The CA's answers as the ACME flows read them: the first byte picks the
// reader (directory, account, order, authorisation, problem, renewal
// information, certificate chain answer, the two time forms, Retry-After,
// Link, one header line, a URL's origin), the rest is the answer. Refused
// or read, never a crash or a leak; what is read keeps every bound and
// names no URL off the CA's origin.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "acme/http_client.h"
#include "acme/messages.h"
#include "acme/time_stamps.h"
#include "fuzz/fuzz_support.h"

namespace {

using namespace bmccert::acme;

const HttpsOrigin kOrigin{"example.com", 443}; // the examples of the ACME standard

bool OnCa(const std::string &url) { return OnOrigin(url, kOrigin); }

void CheckProblem(const Problem &problem) {
    BMCFUZZ_CHECK(problem.detail.size() <= kMaxProblemDetail);
    BMCFUZZ_CHECK(problem.typeUri.size() <= kMaxShortText);
    BMCFUZZ_CHECK(problem.status == 0 || (problem.status >= 100 && problem.status <= 599));
}

void CheckIdentifier(const Identifier &identifier) {
    BMCFUZZ_CHECK(!identifier.value.empty() && identifier.value.size() <= kMaxIdentifierValue);
}

void ReadOne(uint8_t selector, std::string_view body) {
    switch (selector % 12) {
    case 0: {
        Directory d;
        if (ReadDirectory(body, kOrigin, d) == MessageError::kNone)
            BMCFUZZ_CHECK(OnCa(d.newNonce) && OnCa(d.newAccount) && OnCa(d.newOrder) &&
                          OnCa(d.revokeCert) && OnCa(d.keyChange) &&
                          (d.renewalInfo.empty() || OnCa(d.renewalInfo)));
        break;
    }
    case 1: {
        Account a;
        if (ReadAccount(body, kOrigin, a) == MessageError::kNone)
            BMCFUZZ_CHECK(a.orders.empty() || OnCa(a.orders));
        break;
    }
    case 2: {
        Order o;
        if (ReadOrder(body, kOrigin, o) != MessageError::kNone) break;
        BMCFUZZ_CHECK(!o.identifiers.empty() && o.identifiers.size() <= kMaxListItems);
        BMCFUZZ_CHECK(!o.authorizations.empty() && o.authorizations.size() <= kMaxListItems);
        for (const Identifier &identifier : o.identifiers) CheckIdentifier(identifier);
        for (const std::string &url : o.authorizations) BMCFUZZ_CHECK(OnCa(url));
        BMCFUZZ_CHECK(OnCa(o.finalize) && (o.certificate.empty() || OnCa(o.certificate)));
        if (o.error) CheckProblem(*o.error);
        break;
    }
    case 3: {
        Authorization a;
        if (ReadAuthorization(body, kOrigin, a) != MessageError::kNone) break;
        CheckIdentifier(a.identifier);
        BMCFUZZ_CHECK(!a.challenges.empty() && a.challenges.size() <= kMaxListItems);
        for (const Challenge &c : a.challenges) {
            BMCFUZZ_CHECK(OnCa(c.url) && c.token.size() <= kMaxShortText);
            if (c.error) CheckProblem(*c.error);
        }
        break;
    }
    case 4: {
        Problem p;
        if (ReadProblem(body, p) == MessageError::kNone) CheckProblem(p);
        break;
    }
    case 5: {
        RenewalInfo r;
        if (ReadRenewalInfo(body, r) == MessageError::kNone)
            BMCFUZZ_CHECK(r.windowStart >= 0 && r.windowStart < r.windowEnd);
        break;
    }
    case 6:
        if (CheckChainAnswer("application/pem-certificate-chain", body) == ChainCheck::kOk)
            BMCFUZZ_CHECK(body.size() <= kMaxChainBody);
        break;
    case 7:
        for (const std::optional<int64_t> when : {ParseRfc3339(body), ParseHttpDate(body)})
            BMCFUZZ_CHECK(!when || (*when >= 0 && *when < DaysFromCivil(10000, 1, 1) * 86400));
        break;
    case 8: {
        const std::optional<int64_t> delay = ParseRetryAfter(body, 1767225600);
        BMCFUZZ_CHECK(!delay || (*delay >= 0 && *delay <= kMaxRetryAfterSeconds));
        break;
    }
    case 9:
    case 10: {
        HttpResponse response;
        if (selector % 12 == 9)
            (void)ReadLinkHeader(body, response);
        else
            CaptureHeaderLine(body, 1767225600, response);
        BMCFUZZ_CHECK(response.linkAlternates.size() <= kMaxAlternateLinks);
        BMCFUZZ_CHECK(response.linkUp.size() <= kMaxUrlLength);
        BMCFUZZ_CHECK(response.location.size() <= kMaxUrlLength);
        BMCFUZZ_CHECK(response.replayNonce.size() <= kMaxNonceLength);
        break;
    }
    default:
        if (const std::optional<HttpsOrigin> origin = HttpsUrlOrigin(body))
            BMCFUZZ_CHECK(!origin->host.empty() && origin->port != 0 && body.size() <= kMaxUrlLength);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    ReadOne(data[0], std::string_view(reinterpret_cast<const char *>(data) + 1, size - 1));
    return 0;
}
