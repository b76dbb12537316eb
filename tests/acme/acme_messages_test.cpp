// The readers of the CA's answers and the HTTPS transport. The transport
// talks to a TLS server of the test's own on loopback.
#include <gtest/gtest.h>

#include "acme/http_client.h"
#include "acme/messages.h"
#include "acme/time_stamps.h"
#include "tests/acme/tls_test_server.h"
#include "tests/support/test_certs.h"

namespace bmccert::acme {
namespace {

const HttpsOrigin kCa{"ca.test", 443};

const std::string kDirectoryBody = R"({"newNonce":"https://ca.test/nonce","newAccount":"https://ca.test/acct",
 "newOrder":"https://ca.test/order","revokeCert":"https://ca.test/revoke","keyChange":"https://ca.test/key",
 "renewalInfo":"https://ca.test/ari","meta":{"termsOfService":"https://ca.test/tos","externalAccountRequired":true}})";
const std::string kAccountBody = R"({"status":"valid","orders":"https://ca.test/acct/1/orders"})";
const std::string kOrderBody = R"({"status":"pending","expires":"2026-01-05T14:09:07.99Z",
 "identifiers":[{"type":"dns","value":"bmc.test"},{"type":"ip","value":"192.0.2.7"}],
 "authorizations":["https://ca.test/authz/1"],"finalize":"https://ca.test/order/1/finalize"})";
const std::string kAuthzBody = R"({"status":"pending","expires":"2026-01-02T14:09:30Z",
 "identifier":{"type":"dns","value":"bmc.test"},"challenges":[{"type":"http-01",
 "url":"https://ca.test/chall/1","status":"pending","token":"DGyRejmCefe7v4NfDGDKfA"}]})";
const std::string kProblemBody = R"({"type":"urn:ietf:params:acme:error:rateLimited","detail":"slow down","status":429,
 "subproblems":[{"type":"x","identifier":{}}]})";
const std::string kRenewalBody = R"({"suggestedWindow":{"start":"2026-01-03T00:00:00Z","end":"2026-01-04T00:00:00+01:00"}})";

enum class Reader { kDirectory, kAccount, kOrder, kAuthz, kProblem, kRenewal };

MessageError Read(Reader reader, const std::string &body) {
    Directory directory; Account account; Order order; Authorization authz; Problem problem;
    RenewalInfo renewal;
    switch (reader) {
    case Reader::kDirectory: return ReadDirectory(body, kCa, directory);
    case Reader::kAccount: return ReadAccount(body, kCa, account);
    case Reader::kOrder: return ReadOrder(body, kCa, order);
    case Reader::kAuthz: return ReadAuthorization(body, kCa, authz);
    case Reader::kProblem: return ReadProblem(body, problem);
    case Reader::kRenewal: return ReadRenewalInfo(body, renewal);
    }
    return MessageError::kNone;
}

std::string Replaced(std::string text, const std::string &from, const std::string &to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string List(const std::string &item, size_t count) {
    std::string list;
    for (size_t i = 0; i < count; ++i) list += (i ? "," : "") + item;
    return list;
}

// The values that take work to read: a fraction, an offset, a problem type.
TEST(AcmeMessages, ReadsTheExamples) {
    Order order;
    ASSERT_EQ(ReadOrder(kOrderBody, kCa, order), MessageError::kNone);
    EXPECT_EQ(order.expires, 1767622147);
    EXPECT_EQ(order.identifiers.at(1).type, IdentifierType::kIp);
    Problem problem;
    ASSERT_EQ(ReadProblem(kProblemBody, problem), MessageError::kNone);
    EXPECT_EQ(problem.type, ProblemType::kRateLimited);
    RenewalInfo renewal;
    ASSERT_EQ(ReadRenewalInfo(kRenewalBody, renewal), MessageError::kNone);
    EXPECT_EQ(renewal.windowEnd - renewal.windowStart, 23 * 3600);
}

TEST(AcmeMessages, RefusesWhatDoesNotFit) {
    const std::string longDetail(kMaxProblemDetail + 1, 'x');
    const std::string longUrl = "https://ca.test/" + std::string(kMaxUrlLength, 'a');
    const struct {
        Reader reader;
        std::string body;
        MessageError expected;
    } rows[] = {
        {Reader::kDirectory, kDirectoryBody, MessageError::kNone},
        {Reader::kAccount, kAccountBody, MessageError::kNone},
        {Reader::kAuthz, kAuthzBody, MessageError::kNone},
        {Reader::kDirectory, "[]", MessageError::kWrongType},
        {Reader::kDirectory, kDirectoryBody + "x", MessageError::kNotJson},
        {Reader::kDirectory, Replaced(kDirectoryBody, "{", R"({"newNonce":"https://ca.test/n2",)"), MessageError::kNotJson},
        {Reader::kDirectory, Replaced(kDirectoryBody, "\"newOrder\"", "\"oldOrder\""), MessageError::kMissingField},
        {Reader::kDirectory, Replaced(kDirectoryBody, "https://ca.test/order", "http://ca.test/order"), MessageError::kBadUrl},
        {Reader::kDirectory, Replaced(kDirectoryBody, "https://ca.test/acct", "https://ca.test:8443/acct"), MessageError::kOtherOrigin},
        {Reader::kDirectory, Replaced(kDirectoryBody, "https://ca.test/acct", "https://user@ca.test/acct"), MessageError::kBadUrl},
        {Reader::kDirectory, Replaced(kDirectoryBody, "https://ca.test/ari", longUrl), MessageError::kTooLong},
        {Reader::kDirectory, Replaced(kDirectoryBody, "true", "\"true\""), MessageError::kWrongType},
        {Reader::kDirectory, std::string(kMaxJsonBody + 1, ' '), MessageError::kNotJson},
        {Reader::kAccount, Replaced(kAccountBody, "valid", "pending"), MessageError::kOutOfRange},
        {Reader::kAccount, Replaced(kAccountBody, "https://ca.test", "https://other.test"), MessageError::kOtherOrigin},
        {Reader::kOrder, Replaced(kOrderBody, "\"dns\"", "\"email\""), MessageError::kOutOfRange},
        {Reader::kOrder, Replaced(kOrderBody, "bmc.test", "bmc\\u0001.test"), MessageError::kOutOfRange},
        {Reader::kOrder, Replaced(kOrderBody, "\"bmc.test\"", "\"\""), MessageError::kOutOfRange},
        {Reader::kOrder, Replaced(kOrderBody, "\"https://ca.test/authz/1\"", List("\"https://ca.test/a\"", 101)), MessageError::kTooMany},
        {Reader::kOrder, Replaced(kOrderBody, "\"https://ca.test/authz/1\"", ""), MessageError::kMissingField},
        {Reader::kOrder, Replaced(kOrderBody, "\"https://ca.test/authz/1\"", "7"), MessageError::kWrongType},
        {Reader::kOrder, Replaced(kOrderBody, "https://ca.test/authz", "https://evil.test/authz"), MessageError::kOtherOrigin},
        {Reader::kOrder, Replaced(kOrderBody, "https://ca.test/order/1/finalize", "https://ca.test:444/f"), MessageError::kOtherOrigin},
        {Reader::kOrder, Replaced(kOrderBody, "\"finalize\"", "\"certificate\":\"https://evil.test/c\",\"finalize\""), MessageError::kOtherOrigin},
        {Reader::kOrder, Replaced(kOrderBody, "07.99Z", "07.9999999999Z"), MessageError::kOutOfRange},
        {Reader::kOrder, Replaced(kOrderBody, "2026-01-05", "2026-02-30"), MessageError::kOutOfRange},
        {Reader::kOrder, Replaced(kOrderBody, "\"status\"", "\"error\":{\"detail\":\"" + longDetail + "\"},\"status\""), MessageError::kTooLong},
        {Reader::kAuthz, Replaced(kAuthzBody, "https://ca.test/chall", "https://other.test/chall"), MessageError::kOtherOrigin},
        {Reader::kAuthz, Replaced(kAuthzBody, "\"status\":\"pending\",\"token\"", "\"status\":\"ready\",\"token\""), MessageError::kOutOfRange},
        {Reader::kAuthz, Replaced(kAuthzBody, "\"DGyRejmCefe7v4NfDGDKfA\"", "[]"), MessageError::kWrongType},
        {Reader::kAuthz, Replaced(kAuthzBody, "\"identifier\":{", "\"identifier\":{\"x\":1,"), MessageError::kNone},
        {Reader::kAuthz, Replaced(kAuthzBody, "\"identifier\":{\"type\":\"dns\",\"value\":\"bmc.test\"}", "\"identifier\":\"bmc.test\""), MessageError::kWrongType},
        {Reader::kAuthz, Replaced(kAuthzBody, "\"status\":\"pending\",\"expires\"", "\"status\":\"pending\",\"wildcard\":1,\"expires\""), MessageError::kWrongType},
        {Reader::kProblem, Replaced(kProblemBody, "slow down", longDetail), MessageError::kTooLong},
        {Reader::kProblem, Replaced(kProblemBody, "slow down", "a\\nb"), MessageError::kOutOfRange},
        {Reader::kProblem, Replaced(kProblemBody, "429", "4290000000000"), MessageError::kOutOfRange},
        {Reader::kProblem, Replaced(kProblemBody, "429", "429.0"), MessageError::kWrongType},
        {Reader::kRenewal, Replaced(kRenewalBody, "04T00:00:00+01:00", "03T01:00:00+01:00"), MessageError::kOutOfRange},
        {Reader::kRenewal, Replaced(kRenewalBody, "+01:00", "+01"), MessageError::kOutOfRange},
        {Reader::kRenewal, Replaced(kRenewalBody, "\"start\"", "\"begin\""), MessageError::kMissingField},
        {Reader::kRenewal, Replaced(kRenewalBody, "2026-01-03T00:00:00Z", "1969-12-31T23:59:59Z"), MessageError::kOutOfRange},
    };
    for (const auto &row : rows)
        EXPECT_EQ(Read(row.reader, row.body), row.expected) << row.body.substr(0, 300);
}

TEST(AcmeMessages, ChainAnswer) {
    const std::string pem = "-----BEGIN CERTIFICATE-----\nMII\n";
    EXPECT_EQ(CheckChainAnswer("application/pem-certificate-chain; charset=utf-8", pem), ChainCheck::kOk);
    EXPECT_EQ(CheckChainAnswer("application/pkix-cert", pem), ChainCheck::kWrongContentType);
    EXPECT_EQ(CheckChainAnswer("application/pem-certificate-chain", "<html>"), ChainCheck::kNotPem);
    EXPECT_EQ(CheckChainAnswer("application/pem-certificate-chain", pem + std::string(kMaxChainBody, 'A')),
              ChainCheck::kTooBig);
}

TEST(AcmeHeaders, RetryAfterAndLinks) {
    const int64_t now = 784111777; // Sun, 06 Nov 1994 08:49:37 GMT
    EXPECT_EQ(ParseRetryAfter(" 120 ", now), 120);
    EXPECT_EQ(ParseRetryAfter("Sun, 06 Nov 1994 08:51:37 GMT", now), 120);
    EXPECT_EQ(ParseRetryAfter("Sat, 05 Nov 1994 08:51:37 GMT", now), 0);
    for (const char *garbage : {"", "-5", "12s", "99999999999999999999", "2592001",
                                "Sun, 06 Nov 1994 08:51:37 UTC", "Sunday, 06-Nov-94 08:49:37 GMT"})
        EXPECT_EQ(ParseRetryAfter(garbage, now), std::nullopt) << garbage;

    HttpResponse response;
    ASSERT_TRUE(ReadLinkHeader(R"(<https://ca.test/i>;rel="up", <https://ca.test/c/1> ; rel=alternate,<https://ca.test/x>;title="a,b")", response));
    EXPECT_EQ(response.linkUp, "https://ca.test/i");
    EXPECT_EQ(response.linkAlternates, std::vector<std::string>{"https://ca.test/c/1"});
    for (const std::string &bad : std::vector<std::string>{"https://ca.test/i;rel=up", "<https://ca.test/i", "<a>;rel=\"up",
                                  List("<https://ca.test/a>;rel=alternate", kMaxAlternateLinks + 1)}) {
        HttpResponse untouched;
        EXPECT_FALSE(ReadLinkHeader(bad, untouched)) << bad;
        EXPECT_TRUE(untouched.linkAlternates.empty() && untouched.linkUp.empty());
    }
}

// The transport, against a server whose certificate a file of the test's roots.
class AcmeTransport : public testing::Test {
  protected:
    void SetUp() override {
        bmctest::CertRecipe recipe;
        recipe.key = bmctest::KeyKind::Ec256;
        recipe.subjectAltName = "IP:127.0.0.1";
        const std::string cert = bmctest::MakeCertPem(recipe);
        bmctest::WriteFile(roots_, cert);
        recipe.key = bmctest::KeyKind::Rsa2048;
        bmctest::WriteFile(strangers_, bmctest::MakeCertPem(recipe));
        server_.emplace(cert, bmctest::KeyPem(bmctest::KeyKind::Ec256),
                        [this](const bmctest::TlsRequest &request) { return Answer(request); });
        elsewhere_.emplace(cert, bmctest::KeyPem(bmctest::KeyKind::Ec256),
                           [](const bmctest::TlsRequest &) { return std::string("HTTP/1.1 204 No\r\n\r\n"); });
    }

    std::string Answer(const bmctest::TlsRequest &request) {
        const std::string &path = request.path;
        if (path == "/hang") return bmctest::kHang;
        if (path.rfind("/hop", 0) == 0 && path < "/hop5") // /hopN redirects to /hop(N+1)
            return Redirect("/hop" + std::to_string(path.back() - '0' + 1));
        if (path == "/self") return Redirect(path);
        if (path == "/away") return Redirect(elsewhere_->Origin() + "/x");
        if (path == "/plain") return Redirect("http://127.0.0.1/x");
        if (path == "/big") return "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + std::string(5000, 'a');
        if (path == "/biglength") return "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + std::string(5000, 'a');
        const std::string body = request.method + " " + request.contentType + " " + request.body;
        return "HTTP/1.1 201 Created\r\nReplay-Nonce: abc_-9\r\nLocation: " + server_->Origin() +
               "/acct/1\r\nRetry-After: 30\r\nContent-Type: application/json\r\nLink: <" +
               server_->Origin() + "/up>;rel=\"up\"\r\nContent-Length: " +
               std::to_string(request.method == "HEAD" ? 0 : body.size()) + "\r\n\r\n" +
               (request.method == "HEAD" ? "" : body);
    }
    static std::string Redirect(const std::string &to) {
        return "HTTP/1.1 302 Found\r\nLocation: " + to + "\r\nContent-Length: 0\r\n\r\n";
    }
    HttpSettings Settings(const std::string &caFile = "", bool verify = true,
                          const std::string &directory = "") const {
        HttpSettings settings;
        settings.directoryUrl = directory.empty() ? server_->Origin() + "/dir" : directory;
        settings.caFile = caFile.empty() ? roots_ : caFile;
        settings.verifyCertificate = verify;
        settings.totalTimeoutMs = 1000;
        return settings;
    }

    // In the sandbox's own /tmp, gone with it.
    std::string roots_ = "/tmp/acme-roots.pem", strangers_ = "/tmp/acme-strangers.pem";
    std::optional<bmctest::TlsTestServer> server_, elsewhere_;
};

TEST_F(AcmeTransport, CarriesRequestsAndHeaders) {
    HttpClient client(Settings());
    HttpResponse response;
    ASSERT_EQ(client.Post(server_->Origin() + "/new", "{\"protected\":1}", kMaxJsonBody, response),
              TransportError::kNone);
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.body, "POST application/jose+json {\"protected\":1}");
    EXPECT_EQ(response.replayNonce, "abc_-9");
    EXPECT_EQ(response.location, server_->Origin() + "/acct/1");
    EXPECT_EQ(response.retryAfterSeconds, 30);
    EXPECT_EQ(response.linkUp, server_->Origin() + "/up");
    ASSERT_EQ(client.Head(server_->Origin() + "/nonce", response), TransportError::kNone);
    EXPECT_EQ(response.replayNonce, "abc_-9");
    ASSERT_EQ(client.Get(server_->Origin() + "/hop2", kMaxJsonBody, response), TransportError::kNone);
    EXPECT_EQ(response.url, server_->Origin() + "/hop5");
}

TEST_F(AcmeTransport, RefusesWhatItMustNotFollow) {
    const std::string origin = server_->Origin();
    const struct {
        std::string path; // or a whole URL
        HttpSettings settings;
        size_t maxBody;
        TransportError expected;
    } rows[] = {
        {"/hop1", Settings(), kMaxJsonBody, TransportError::kRedirectLoop}, // 3 hops, a 4th
        {"/self", Settings(), kMaxJsonBody, TransportError::kRedirectLoop},
        {"/away", Settings(), kMaxJsonBody, TransportError::kOtherOrigin},
        {"/plain", Settings(), kMaxJsonBody, TransportError::kOtherOrigin},
        {"/big", Settings(), 4096, TransportError::kTooBig},
        {"/biglength", Settings(), 4096, TransportError::kTooBig},
        {"/hang", Settings(), kMaxJsonBody, TransportError::kTimeout},
        {"/x", Settings(strangers_, true), kMaxJsonBody, TransportError::kTlsVerifyFailed},
        {"/x", Settings(strangers_, false), kMaxJsonBody, TransportError::kNone},
        {elsewhere_->Origin() + "/x", Settings(), kMaxJsonBody, TransportError::kOtherOrigin},
        {"http://127.0.0.1/x", Settings(), kMaxJsonBody, TransportError::kBadUrl},
        {origin + "/" + std::string(kMaxUrlLength, 'a'), Settings(), kMaxJsonBody, TransportError::kBadUrl},
        {"https://127.0.0.1:1/x", Settings("", true, "https://127.0.0.1:1/dir"), kMaxJsonBody, TransportError::kUnreachable},
    };
    for (const auto &row : rows) {
        HttpClient client(row.settings);
        HttpResponse response;
        const std::string url = row.path[0] == '/' ? origin + row.path : row.path;
        EXPECT_EQ(client.Get(url, row.maxBody, response), row.expected) << url.substr(0, 80);
    }
}

} // namespace
} // namespace bmccert::acme
