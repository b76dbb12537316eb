// The tunnel configuration rewrite over arbitrary configuration text,
// checked against a model of its rule: pieces end after a line feed or
// after 255 characters, a piece that mentions "cert =" or "key =" becomes
// the new line, every other piece is copied as the C text it holds.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert.h"

namespace {

constexpr const char *kConfig = "/conf/adviserd/stunnel.conf";
constexpr const char *kScratch = "/conf/adviserd/tmp_stunnel.conf";
constexpr size_t kPieceLimit = 255;

std::string Expected(const std::string &input) {
    std::string out;
    size_t at = 0;
    while (at < input.size()) {
        size_t end = input.find('\n', at);
        end = end == std::string::npos ? input.size() : end + 1;
        end = std::min(end, at + kPieceLimit);
        // The library handles the piece as a C text: it ends at a NUL.
        std::string piece = input.substr(at, end - at);
        piece = piece.substr(0, piece.find('\0'));
        if (piece.find("cert =") != std::string::npos)
            out += "cert = /fuzz/cert.pem\n";
        else if (piece.find("key =") != std::string::npos)
            out += "key = /fuzz/key.pem\n";
        else
            out += piece;
        at = end;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    (void)mkdir("/conf/adviserd", 0755);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bmcfuzz::KeepDiagLogSmall();
    const std::string input(reinterpret_cast<const char *>(data), size);
    bmcfuzz::WriteFile(kConfig, input);
    BMCFUZZ_CHECK(LIB_SECURITY_SSL_ModStunnelConfFile("/fuzz/cert.pem", "/fuzz/key.pem") == 0);
    BMCFUZZ_CHECK(access(kScratch, F_OK) != 0);
    BMCFUZZ_CHECK(bmcfuzz::ReadFile(kConfig) == Expected(input));
    return 0;
}
