#include "acme/uniform_random.h"

#include <openssl/rand.h>

#include <cmath>
#include <cstdint>

namespace bmccert::acme {

std::optional<double> UniformRandom() {
    unsigned char bytes[8] = {};
    if (RAND_bytes(bytes, sizeof bytes) != 1) return std::nullopt;
    uint64_t bits = 0;
    for (unsigned char byte : bytes)
        bits = (bits << 8) | byte;
    return std::ldexp(static_cast<double>(bits >> 11), -53);
}

} // namespace bmccert::acme
